#pragma once

#include <string_view>

namespace backup {

/// Appends a text in single quotes, with each single quote in it doubled and nothing else changed. `Out` has the
/// `append` of a std::string.
template <class Out>
void append_quoted(Out& out, std::string_view text) {
  out.append("'", 1);
  for (;;) {
    std::size_t const quote = text.find('\'');
    std::string_view const plain = text.substr(0, quote);
    out.append(plain.data(), plain.size());
    if (quote == std::string_view::npos) break;
    out.append("''", 2);
    text.remove_prefix(quote + 1);
  }
  out.append("'", 1);
}

}  // namespace backup
