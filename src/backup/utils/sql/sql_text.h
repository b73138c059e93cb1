#pragma once

#include <memory>

#include "backup/utils/sql/sql_export.h"

namespace backup {

/// True for a text that is neither null nor empty.
inline bool is_set(char const* text) { return text != nullptr && *text != '\0'; }

/// A text kept by pointer, the caller's or an own copy. Copying copies an own text and shares a caller's.
class BACKUP_SQL_API SQL_Text {
public:
  SQL_Text() noexcept = default;
  SQL_Text(SQL_Text const& other);
  SQL_Text& operator=(SQL_Text const& other);
  ~SQL_Text() = default;

  /// With `copy` keeps a copy, without it the pointer, whose text must outlive every use. Null is kept as null.
  void set(char const* text, bool copy);
  void clear() noexcept;
  void swap(SQL_Text& other) noexcept;
  char const* get() const noexcept { return text_; }
  /// True when null or "".
  bool empty() const noexcept { return !is_set(text_); }

private:
  char const* text_ = nullptr;
  std::unique_ptr<char[]> copy_;
};

}  // namespace backup
