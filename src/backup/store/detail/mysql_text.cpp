#include "backup/store/detail/mysql_text.h"

#include <algorithm>

namespace backup {

namespace {

// A blank or a control character.
bool is_blank(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

std::size_t through(std::string_view text, std::string_view end, std::size_t from) {
  std::size_t const found = text.find(end, from);
  return found == std::string_view::npos ? text.size() : found + end.size();
}

// The length of the literal, quoted name or comment that `text` begins with; 0 when it begins with none. A doubled
// quote counts as the end of one and the beginning of the next.
std::size_t opaque_length(std::string_view text) {
  switch (text.front()) {
    case '\'':
    case '"':
    case '`': return through(text, text.substr(0, 1), 1);
    case '#': return through(text, "\n", 1);
    case '-': {
      bool const is_comment = text.substr(0, 2) == "--" && (text.size() == 2 || is_blank(text[2]));
      return is_comment ? through(text, "\n", 2) : 0;
    }
    case '/': {
      // The server runs the content of a comment for some versions only.
      bool const is_comment = text.substr(0, 2) == "/*" && text.substr(0, 3) != "/*!" && text.substr(0, 4) != "/*M!";
      return is_comment ? through(text, "*/", 2) : 0;
    }
    default: return 0;
  }
}

}  // namespace

bool is_word(std::string_view text, std::string_view lower) {
  auto const is_same = [](char c, char lower_c) { return (c | 0x20) == lower_c; };
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), is_same);
}

bool is_name_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
         static_cast<unsigned char>(c) >= 0x80;
}

MySQL_Text mark_names(std::string const& named) {
  MySQL_Text marked;
  marked.text.reserve(named.size());
  std::string_view rest(named);
  while (!rest.empty()) {
    std::size_t length = opaque_length(rest);
    if (length == 0) {
      length = 1;
      if (rest.front() == ':') {
        auto const end = std::find_if_not(rest.begin() + 1, rest.end(), is_name_byte);
        length = static_cast<std::size_t>(end - rest.begin());
      }
      if (length > 1) {
        marked.parameters.names.emplace_back(rest.substr(0, length), marked.parameters.places++);
        marked.text += '?';
        rest.remove_prefix(length);
        continue;
      }
    }
    marked.text += rest.substr(0, length);
    rest.remove_prefix(length);
  }
  std::sort(marked.parameters.names.begin(), marked.parameters.names.end());
  return marked;
}

}  // namespace backup
