#include "backup/runtime/string_template.h"

#include <charconv>

namespace {

template <class Number>
void assign_number(std::string* target, Number number) {
  if (target == nullptr) return;
  char text[32];  // the longest: -1.7976931348623157e+308
  target->assign(text, std::to_chars(text, text + sizeof text, number).ptr);
}

}  // namespace

// A closing delimiter belongs to the nearest opening one before it: "{{{a}}}" is the variable a in single braces.
String_Template::String_Template(std::string const& pattern, std::string const& open, std::string const& close) {
  std::size_t text = 0;  // where the text before the next variable starts
  while (!open.empty() && !close.empty()) {
    std::size_t const first = pattern.find(open, text);
    if (first == std::string::npos) break;
    std::size_t const end = pattern.find(close, first + open.size());
    if (end == std::string::npos) break;
    std::size_t const start = pattern.rfind(open, end - open.size());  // not before `first`: the parse stays linear
    std::size_t const name = start + open.size();
    std::size_t const variable = names_.emplace(pattern.substr(name, end - name), names_.size()).first->second;
    pieces_.push_back({pattern.substr(text, start - text), variable});
    text = end + close.size();
  }
  if (text < pattern.size()) pieces_.push_back({pattern.substr(text), no_variable});
  values_.resize(names_.size());
}

void String_Template::set(std::string const& name, std::string const& value) {
  if (std::string* const target = find(name)) *target = value;
}

void String_Template::set(std::string const& name, char const* value) {
  if (std::string* const target = find(name)) *target = value == nullptr ? "" : value;
}

void String_Template::set(std::string const& name, bool value) {
  if (std::string* const target = find(name)) *target = value ? '1' : '0';
}

void String_Template::set(std::string const& name, long long value) { assign_number(find(name), value); }

void String_Template::set(std::string const& name, unsigned long long value) { assign_number(find(name), value); }

void String_Template::set(std::string const& name, double value) { assign_number(find(name), value); }

void String_Template::append_to(std::string& text) const {
  for (Piece const& piece : pieces_) {
    text += piece.text;
    if (piece.variable != no_variable) text += values_[piece.variable];
  }
}

std::string String_Template::str() const {
  std::string text;
  append_to(text);
  return text;
}

std::string* String_Template::find(std::string const& name) {
  auto const known = names_.find(name);
  return known == names_.end() ? nullptr : &values_[known->second];
}
