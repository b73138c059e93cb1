#pragma once

#include <string>
#include <vector>

#include "backup/utils/sql/sql.h"

inline std::string value_text(Binding_Value const& value) {
  std::string text;
  value.to_str(text);
  return text;
}

/// A text with its bindings: "a=:1 {:1=5}"; the text alone without any.
inline std::string with_bindings(std::string text, Bindings const& bindings) {
  if (bindings.empty()) return text;
  char const* separator = " {";
  for (auto const& [name, value] : bindings) {
    text += separator + name + '=' + value_text(value);
    separator = " ";
  }
  return text + '}';
}

inline std::string render(SQL const& statement, SQL::Database_Type db = SQL::DB_SQLITE) {
  std::string text;
  Bindings bindings;
  statement.get_sql(db, text, bindings);
  return with_bindings(text, bindings);
}

inline std::string render_count(SQL const& statement, SQL::Database_Type db = SQL::DB_SQLITE) {
  std::string text;
  Bindings bindings;
  statement.get_count_sql(db, text, bindings);
  return with_bindings(text, bindings);
}

/// "a=? [5]"
inline std::string with_values(std::string text, std::vector<Binding_Value> const& values) {
  text += " [";
  char const* separator = "";
  for (Binding_Value const& value : values) {
    text += separator + value_text(value);
    separator = ",";
  }
  return text + ']';
}

inline std::string render_positional(SQL const& statement, SQL::Database_Type db = SQL::DB_SQLITE) {
  std::string text;
  std::vector<Binding_Value> values;
  statement.get_sql(db, text, values);
  return with_values(text, values);
}
