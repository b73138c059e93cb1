#include "backup/utils/sql/delete_sql.h"

#include "backup/utils/sql/detail/sql_writer.h"

using backup::is_set;
using backup::SQL_Writer;

Delete_SQL::Delete_SQL(char const* table) : Where_SQL(nullptr, TYPE_DELETE), table_(table) {}

Delete_SQL::Delete_SQL(Delete_SQL const& other) = default;
Delete_SQL::~Delete_SQL() = default;

Delete_SQL& Delete_SQL::operator=(Delete_SQL const& other) {
  if (this == &other) return *this;
  Delete_SQL copied(other);
  take(copied);
  table_ = copied.table_;
  return *this;
}

bool Delete_SQL::empty() const { return !is_set(table_); }

Delete_SQL& Delete_SQL::table(char const* name) {
  table_ = name;
  return *this;
}

Delete_SQL& Delete_SQL::where(char const* text) {
  Where_SQL::where(text, false);
  return *this;
}

void Delete_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Delete_SQL::is_own_class() const { return backup::is_exactly<Delete_SQL>(*this); }

// DELETE FROM `table`[ WHERE ...]
void Delete_SQL::write_sql(SQL_Writer& out) const {
  out << "DELETE FROM ";
  out.name(table_);
  write_where(out);
}
