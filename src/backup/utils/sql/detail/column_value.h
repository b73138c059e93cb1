#pragma once

#include <optional>
#include <string>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/binding_value_converter.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "json_spirit/json_spirit.h"

/// Values for a column, for the setters of INSERT and UPDATE.
namespace column_value {

/// What the log texts name: "Failed to add 'k' to <statement> statement: ...", "Failed to <verb> new uuid for 'c'".
struct Reporter {
  sql_log::Source source;
  char const* statement;
  char const* verb;
};

/// The converter's result. Without a converter, or when it refuses, `value`.
Binding_Value convert(Binding_Value value, Binding_Value_Converter const* converter);
/// By the uuid and the hexadecimal converter.
Binding_Value from_uuid(Binding_Value text);
Binding_Value from_hex(Binding_Value text);

/// The member `key`, converted. None without it, and logged when ACE::debug() is true.
std::optional<Binding_Value> from_json(Reporter const& reporter, json_spirit::Object const& object,
                                       std::string const& key, Binding_Value_Converter const* converter);

/// The string or secure string `key`, converted by `from_text`, or its JSON null. None for anything else, and logged
/// when ACE::debug() is true.
std::optional<Binding_Value> from_json_text(Reporter const& reporter, json_spirit::Object const& object,
                                            std::string const& key, Binding_Value from_text(Binding_Value));

/// A new uuid. None, and always logged, when the system gives no random bytes.
std::optional<Binding_Value> new_uuid(Reporter const& reporter, std::string const& column);

/// The text "YYYY-MM-DD hh:mm:ss", UTC, of a POSIX time.
Binding_Value from_time(long long seconds);

}  // namespace column_value
