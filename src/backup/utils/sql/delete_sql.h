#pragma once

#include <string>

#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/where_sql.h"

/// DELETE FROM one table, with the WHERE clause of `Where_SQL`. Shape, every dialect: "DELETE FROM `t` WHERE ...".
/// A DELETE without conditions deletes every row: nothing here refuses it.
/// Lifetime: `table` is kept by pointer and must outlive every rendering. Errors: none, a null table renders as "``".
class BACKUP_SQL_API Delete_SQL : public Where_SQL {
public:
  explicit Delete_SQL(char const* table);
  /// Copies share the filter.
  Delete_SQL(Delete_SQL const& other);
  ~Delete_SQL() override;
  Delete_SQL& operator=(Delete_SQL const& other);

  /// True without a table text, whatever the conditions.
  bool empty() const override;
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  /// `clear()` keeps the table: it is `Where_SQL`'s.
  Delete_SQL& table(char const* name);
  using Where_SQL::where;
  /// A raw WHERE text, kept by pointer.
  Delete_SQL& where(char const* text);

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  char const* table_;
};
