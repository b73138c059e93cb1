#pragma once

#include <string>

#include "backup/store/detail/parameters.h"

/// A statement with its named parameters for a database that knows only marks by place.
struct MySQL_Text {
  std::string text;       ///< a "?" in place of each name
  Parameters parameters;  ///< its names; `places` counts them only
};

/// Replaces ":name" outside of literals, quoted names and comments, as MySQL reads them with NO_BACKSLASH_ESCAPES. A
/// name is letters, digits, "_", "$" and bytes above 127. Linear.
MySQL_Text mark_names(std::string const& named);
