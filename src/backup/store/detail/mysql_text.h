#pragma once

#include <string>
#include <string_view>

#include "backup/store/detail/parameters.h"

namespace backup {

/// A statement with marks in place of its named parameters, for a database that has only marks.
struct MySQL_Text {
  std::string text;       ///< a "?" in place of each name
  Parameters parameters;  ///< its names; `places` counts only these
};

/// Replaces ":name" outside of literals, quoted names and comments, as MySQL reads them with NO_BACKSLASH_ESCAPES. A
/// name consists of bytes that `is_name_byte` accepts. Linear.
MySQL_Text mark_names(std::string const& named);

/// True when `text` is the word in letters of any case; `lower` is in lower case, ASCII.
bool is_word(std::string_view text, std::string_view lower);

/// True for a byte that may be part of a name: letters, digits, "_", "$" and bytes above 127.
bool is_name_byte(char c);

}  // namespace backup
