#pragma once

#include <optional>
#include <string>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/binding_value_converter.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "json_spirit/json_spirit.h"

/// Values for a column of INSERT and UPDATE: what both statements' setters share.
namespace column_value {

/// Who reports, and as what: "Failed to add 'k' to <statement> statement: ...", "Failed to <verb> new uuid for 'c'".
struct Reporter {
  sql_log::Source source;
  char const* statement;
  char const* verb;
};

/// The converter's result, or `value` itself without a converter or when it refuses.
Binding_Value convert(Binding_Value value, Binding_Value_Converter const* converter);
/// By the uuid and the hexadecimal converter.
Binding_Value from_uuid(Binding_Value text);
Binding_Value from_hex(Binding_Value text);

/// The member `key`, converted. None, reported when ACE::debug() is true, when there is no such member.
std::optional<Binding_Value> from_json(Reporter const& reporter, json_spirit::Object const& object,
                                       std::string const& key, Binding_Value_Converter const* converter);

/// The string or secure string `key`, by `from_text`, or its JSON null as it is. None, reported when ACE::debug() is
/// true, for anything else.
std::optional<Binding_Value> from_json_text(Reporter const& reporter, json_spirit::Object const& object,
                                            std::string const& key, Binding_Value from_text(Binding_Value));

/// A new uuid; none, reported always, when there is none to be had.
std::optional<Binding_Value> new_uuid(Reporter const& reporter, std::string const& column);

/// The text "YYYY-MM-DD hh:mm:ss", UTC, of a POSIX time.
Binding_Value from_time(long long seconds);

}  // namespace column_value
