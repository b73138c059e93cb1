#pragma once

#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql_export.h"

/// Turns named parameters into positional ones: each bound ":name" becomes "?", and the values are listed in the order
/// of the marks. A name consists of ASCII letters, digits and "_".
///
/// Quotes are not recognised: a bound ":name" inside a string literal is rewritten too. Unbound names and colons
/// without a name stay. When the text ends in a colon, the part between it and the last name or colon before it is
/// written twice: "a = :v AND b:" becomes "a = ? AND b AND b:". Both are deliberate.
class BACKUP_SQL_API Question_Mask_SQL_Converter {
public:
  /// Rewrites `sql`, appends the value of each mark to `values` without clearing it, and gives true. An empty `sql` is
  /// logged and gives false; nothing changes. Throws std::length_error, `sql` unchanged, when there are more bindings
  /// than characters. Linear in the text; one map lookup for each name at most.
  bool convert(std::string& sql, Bindings const& bindings, std::vector<Binding_Value>& values) const;
};
