#pragma once

#include <memory>

#include "backup/utils/sql/sql_export.h"

namespace backup {

/// True unless null or empty.
inline bool is_set(char const* text) { return text != nullptr && *text != '\0'; }

/// A text by pointer: the caller's, or an own copy. A copy of the object copies an own text and shares the caller's.
class BACKUP_SQL_API SQL_Text {
public:
  SQL_Text() noexcept = default;
  SQL_Text(SQL_Text const& other);
  SQL_Text(SQL_Text&& other) noexcept;
  SQL_Text& operator=(SQL_Text const& other);
  SQL_Text& operator=(SQL_Text&& other) noexcept;
  ~SQL_Text();

  /// With `copy` keeps a copy. Without it keeps the pointer, and the text must outlive every use. Null stays null.
  void set(char const* text, bool copy);
  void clear() noexcept;
  void swap(SQL_Text& other) noexcept;
  /// Takes the other's own copy along, unless this has one: `get()` may point into it.
  void keep_copy_of(SQL_Text& other) noexcept;
  char const* get() const noexcept { return text_; }
  bool empty() const noexcept { return !is_set(text_); }

private:
  char const* text_ = nullptr;
  std::unique_ptr<char[]> copy_;
};

}  // namespace backup
