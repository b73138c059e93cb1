#include "backup/runtime/http_query_string.h"

#include <algorithm>
#include <string_view>

#include "backup/runtime/detail/hex_digits.h"

namespace {

void decode(std::string_view coded, std::string& text) {
  text.clear();
  for (std::size_t i = 0; i < coded.size();) {
    std::size_t const begin = i;
    while (i < coded.size() && coded[i] != '+' && coded[i] != '%') ++i;
    text.append(coded, begin, i - begin);
    if (i == coded.size()) return;
    bool const is_escape = coded[i] == '%' && i + 2 < coded.size() &&
                           backup::hex_value(coded[i + 1]) != backup::no_hex_digit &&
                           backup::hex_value(coded[i + 2]) != backup::no_hex_digit;
    if (is_escape) {
      text += static_cast<char>(backup::hex_byte(&coded[i + 1]));
      i += 3;
    } else {
      text += coded[i] == '+' ? ' ' : '%';
      ++i;
    }
  }
}

}  // namespace

HTTP_Query_String_Iterator::HTTP_Query_String_Iterator(char const* text, unsigned int /*flags*/) {
  if (text == nullptr) return;
  text_ = text;
  read_pair();
}

HTTP_Query_String_Iterator::HTTP_Query_String_Iterator(std::string text, unsigned int /*flags*/)
    : text_(std::move(text)) {
  read_pair();
}

HTTP_Query_String_Iterator::Pair const* HTTP_Query_String_Iterator::operator->() const { return &pair_; }
HTTP_Query_String_Iterator::Pair const& HTTP_Query_String_Iterator::operator*() const { return pair_; }

HTTP_Query_String_Iterator& HTTP_Query_String_Iterator::operator++() {
  read_pair();
  return *this;
}

bool HTTP_Query_String_Iterator::operator==(HTTP_Query_String_Iterator const& other) const {
  return rest() == other.rest();
}

bool HTTP_Query_String_Iterator::operator!=(HTTP_Query_String_Iterator const& other) const { return !(*this == other); }

std::string_view HTTP_Query_String_Iterator::rest() const {
  return begin_ == at_end ? std::string_view() : std::string_view(text_).substr(begin_);
}

void HTTP_Query_String_Iterator::read_pair() {
  if (next_ > text_.size() / 2) {
    // Drop the part already read once it is longer than the rest: a walk that waits inside a long value holds little
    // else.
    text_ = text_.substr(next_);
    next_ = 0;
  }
  std::string_view const text = text_;
  begin_ = text.find_first_not_of('&', next_);
  if (begin_ == std::string_view::npos) {
    begin_ = at_end;
    return;
  }
  next_ = std::min(text.find('&', begin_), text.size());
  std::string_view const pair = text.substr(begin_, next_ - begin_);
  std::size_t const equals = std::min(pair.find('='), pair.size());
  decode(pair.substr(0, equals), pair_.first);
  decode(pair.substr(std::min(equals + 1, pair.size())), pair_.second);
}
