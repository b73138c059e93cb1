#include "backup/utils/sql/detail/column_value.h"

#include <ace/ACE.h>

#include <array>
#include <utility>

#include "backup/runtime/posix_time.h"
#include "backup/runtime/uuid.h"

namespace column_value {

namespace {

void report_missing(Reporter const& reporter, std::string const& key, char const* what) {
  if (!ACE::debug()) return;
  sql_log::report(reporter.source, LM_WARNING, 0, "Failed to add '%s' to %s statement: no such %s in input.\n", key,
                  reporter.statement, what);
}

}  // namespace

Binding_Value convert(Binding_Value value, Binding_Value_Converter const* converter) {
  Binding_Value converted;
  if (converter != nullptr && converter->convert(value, converted)) return converted;
  return value;
}

Binding_Value from_uuid(Binding_Value text) {
  Binding_Value_UUID_Converter const converter;
  return convert(std::move(text), &converter);
}

Binding_Value from_hex(Binding_Value text) {
  Binding_Value_Hex_Converter const converter;
  return convert(std::move(text), &converter);
}

std::optional<Binding_Value> from_json(Reporter const& reporter, json_spirit::Object const& object,
                                       std::string const& key, Binding_Value_Converter const* converter) {
  json_spirit::Value const* const value = json_spirit::object_get_value(object, key);
  if (value != nullptr) return convert(Binding_Value(*value), converter);
  report_missing(reporter, key, "value");
  return std::nullopt;
}

std::optional<Binding_Value> from_json_text(Reporter const& reporter, json_spirit::Object const& object,
                                            std::string const& key, Binding_Value from_text(Binding_Value)) {
  json_spirit::Value const* const value = json_spirit::object_get_value(object, key);
  if (value != nullptr) {
    if (value->is_null()) return Binding_Value(*value);
    if (value->type() == json_spirit::str_type || value->type() == json_spirit::secure_str_type) {
      return from_text(*value);
    }
  }
  report_missing(reporter, key, "string");
  return std::nullopt;
}

std::optional<Binding_Value> new_uuid(Reporter const& reporter, std::string const& column) {
  std::array<unsigned char, 16> uuid{};
  if (uuid_binary(uuid.data())) return Binding_Value(Byte_String(uuid.begin(), uuid.end()));
  sql_log::report(reporter.source, LM_ERROR, 0, "Failed to %s new uuid for '%s'\n", reporter.verb, column);
  return std::nullopt;
}

Binding_Value from_time(long long seconds) {
  return Binding_Value(POSIX_Time_To_ISO8601(seconds, "%Y-%m-%d %H:%M:%S"));
}

}  // namespace column_value
