#include "backup/utils/sql/sql_text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace backup {

SQL_Text::SQL_Text(SQL_Text const& other) { *this = other; }
SQL_Text::SQL_Text(SQL_Text&& other) noexcept { swap(other); }
SQL_Text::~SQL_Text() = default;

SQL_Text& SQL_Text::operator=(SQL_Text const& other) {
  if (this != &other) set(other.text_, other.text_ == other.copy_.get());
  return *this;
}

SQL_Text& SQL_Text::operator=(SQL_Text&& other) noexcept {
  SQL_Text taken(std::move(other));
  swap(taken);
  return *this;
}

void SQL_Text::set(char const* text, bool copy) {
  if (!copy || text == nullptr) {
    text_ = text;
    return;
  }
  std::size_t const size = std::strlen(text) + 1;
  std::unique_ptr<char[]> own(new char[size]);
  std::copy_n(text, size, own.get());
  text_ = own.get();
  copy_ = std::move(own);
}

void SQL_Text::clear() noexcept {
  text_ = nullptr;
  copy_.reset();
}

void SQL_Text::swap(SQL_Text& other) noexcept {
  std::swap(text_, other.text_);
  copy_.swap(other.copy_);
}

void SQL_Text::keep_copy_of(SQL_Text& other) noexcept {
  if (copy_ == nullptr) copy_.swap(other.copy_);
}

}  // namespace backup
