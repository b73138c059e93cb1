#pragma once

#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql_export.h"

/// Turns named parameters into positional ones: ":name" becomes "?" for each name that is bound, and the values are
/// listed in the order of the marks. A name is ASCII letters, digits and "_".
///
/// Quotes are not recognised: a bound ":name" inside a string literal is rewritten too. Unbound names and colons
/// without a name stay. When the text ends in a colon, what stands between it and the last name or colon before it is
/// written twice: "a = :v AND b:" becomes "a = ? AND b AND b:". Both are deliberate.
class BACKUP_SQL_API Question_Mask_SQL_Converter {
public:
  /// True: `sql` is rewritten and a value a mark appended to `values`, which is not cleared. An empty `sql` is reported
  /// to the log and gives false with nothing changed. Throws std::length_error when there are more bindings than
  /// characters, `sql` unchanged. Linear in the text, a map lookup a name.
  bool convert(std::string& sql, Bindings const& bindings, std::vector<Binding_Value>& values) const;
};
