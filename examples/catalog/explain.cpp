#include "explain.h"

#include <ostream>
#include <string>
#include <vector>

#include "backup/utils/sql/sql.h"
#include "text.h"

namespace {

std::string value_text(Binding_Value const& value) {
  if (value.type() == Binding_Value::str_type) return '"' + printable(value.val().get_str()) + '"';
  std::string text;
  value.to_str(text);
  return text;
}

void write_named(std::ostream& out, char const* title, std::string const& text, Bindings const& bindings) {
  out << "  " << title << ", by name\n    " << printable(text) << '\n';
  for (auto const& [name, value] : bindings) out << "      " << name << " = " << value_text(value) << '\n';
}

void write_positional(std::ostream& out, char const* title, std::string const& text,
                      std::vector<Binding_Value> const& values) {
  out << "  " << title << ", by position\n    " << printable(text) << '\n';
  std::size_t position = 0;
  for (Binding_Value const& value : values) out << "      " << ++position << " = " << value_text(value) << '\n';
}

}  // namespace

void explain(Key_Outcomes const& outcomes, std::ostream& out) {
  if (!outcomes.empty()) out << "keys\n";
  for (Key_Outcome const& outcome : outcomes) out << "  " << printable(outcome_text(outcome)) << '\n';
}

void explain(File_Statements const& files, SQL::Database_Type db, std::ostream& out) {
  out << (db == SQL::DB_MYSQL ? "MySQL\n" : "SQLite\n");
  std::string text;
  Bindings bindings;
  files.page.get_sql(db, text, bindings);
  write_named(out, "statement", text, bindings);

  std::vector<Binding_Value> values;
  files.page.get_sql(db, text, values);
  write_positional(out, "statement", text, values);

  bindings.clear();
  files.all.get_count_sql(db, text, bindings);
  write_named(out, "count query", text, bindings);

  values.clear();
  files.all.get_count_sql(db, text, values);
  write_positional(out, "count query", text, values);
}
