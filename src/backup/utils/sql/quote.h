#pragma once

#include <string>
#include <string_view>

#include "backup/utils/sql/sql_export.h"

/// An SQL string literal: the text in single quotes, with each single quote in it doubled and nothing else changed. A
/// MySQL connection must run with NO_BACKSLASH_ESCAPES; otherwise a backslash in the text can end the literal early.
///
/// A text from a pointer ends at its first zero byte; a std::string is quoted whole. The text must not lie in the
/// buffer.
class BACKUP_SQL_API Quote {
public:
  /// A null pointer gives the empty string, without quotes.
  explicit Quote(char const* text);
  explicit Quote(std::string const& text);
  /// Takes the content of `buffer`, which is left empty, and appends the literal to it.
  Quote(char const* text, std::string& buffer);
  Quote(std::string const& text, std::string& buffer);

  /// Appends the literal of `text`; a null pointer appends nothing.
  void init(char const* text);
  std::string const& str() const;

private:
  void append(std::string_view text);

  std::string str_;
};

/// `text` for a LIKE pattern whose escape character is "|": "|", "_" and "%" get a "|" in front. A backslash stays.
BACKUP_SQL_API std::string escape_like(std::string const& text);
