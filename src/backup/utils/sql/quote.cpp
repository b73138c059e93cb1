#include "backup/utils/sql/quote.h"

#include <cstddef>
#include <utility>

#include "backup/utils/sql/detail/quoted_text.h"

Quote::Quote(char const* text) { init(text); }

Quote::Quote(std::string const& text) { append(text); }

Quote::Quote(char const* text, std::string& buffer) {
  str_.swap(buffer);
  init(text);
}

Quote::Quote(std::string const& text, std::string& buffer) {
  str_.swap(buffer);
  append(text);
}

void Quote::init(char const* text) {
  if (text != nullptr) append(text);
}

void Quote::append(std::string_view text) {
  str_.reserve(str_.size() + 2 * text.size() + 3);
  backup::append_quoted(str_, text);
}

std::string const& Quote::str() const { return str_; }

std::string escape_like(std::string const& text) {
  std::string escaped;
  escaped.reserve(text.size() + 8);
  for (char const c : text) {
    if (c == '|' || c == '_' || c == '%') escaped += '|';
    escaped += c;
  }
  return escaped;
}
