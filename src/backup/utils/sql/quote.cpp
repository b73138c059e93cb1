#include "backup/utils/sql/quote.h"

#include <cstddef>
#include <cstring>
#include <utility>

Quote::Quote(char const* text) { init(text); }

Quote::Quote(std::string const& text) { append(text.data(), text.size()); }

Quote::Quote(char const* text, std::string& buffer) {
  str_.swap(buffer);
  init(text);
}

Quote::Quote(std::string const& text, std::string& buffer) {
  str_.swap(buffer);
  append(text.data(), text.size());
}

void Quote::init(char const* text) {
  if (text != nullptr) append(text, std::strlen(text));
}

std::string const& Quote::str() const { return str_; }

std::string Quote::take() { return std::move(str_); }

void Quote::append(char const* text, std::size_t length) {
  str_.reserve(str_.size() + 2 * length + 3);
  str_ += '\'';
  char const* const end = text + length;
  while (text != end) {
    auto const* quote = static_cast<char const*>(std::memchr(text, '\'', static_cast<std::size_t>(end - text)));
    if (quote == nullptr) quote = end;
    str_.append(text, quote);
    if (quote == end) break;
    str_ += "''";
    text = quote + 1;
  }
  str_ += '\'';
}

std::string escape_like(std::string const& text) {
  std::string escaped;
  escaped.reserve(text.size() + 8);
  for (char const c : text) {
    if (c == '|' || c == '_' || c == '%') escaped += '|';
    escaped += c;
  }
  return escaped;
}
