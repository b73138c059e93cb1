#pragma once

#include <map>
#include <string>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/binding_value_converter.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/sql_value.h"
#include "backup/utils/sql/where_sql.h"
#include "json_spirit/json_spirit.h"

class Select_SQL;

/// UPDATE of one table, with the WHERE clause of `Where_SQL`. Shape, every dialect: "UPDATE `t` SET `a`=:1,`b`=:2 WHERE
/// ...".
///
/// Assignments are written in ascending byte order of the column names, not in the order of the calls. Setting a column
/// again replaces its value. Without assignments the text is "UPDATE `t` SET ", which no database runs: ask `empty()`.
/// An UPDATE without conditions updates every row: nothing here refuses it.
///
/// Lifetime: the table is kept by pointer and must outlive every rendering; this statement owns the statements that it
/// returns for filling. Errors: without a value nothing changes; when a converter refuses a value, it is stored
/// unconverted.
class BACKUP_SQL_API Update_SQL : public Where_SQL {
public:
  explicit Update_SQL(char const* table);
  /// Copies share the filter and the statements used as values.
  Update_SQL(Update_SQL const& other);
  ~Update_SQL() override;
  Update_SQL& operator=(Update_SQL const& other);

  void clear() override;
  /// True without assignments, whatever the table and conditions.
  bool empty() const override;
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  Update_SQL& table(char const* name);
  using Where_SQL::where;
  /// A raw WHERE text, kept by pointer.
  Update_SQL& where(char const* text);

  Update_SQL& set(std::string const& column, Binding_Value const& value,
                  Binding_Value_Converter const* converter = nullptr);
  Update_SQL& set(std::string const& column, Binding_Value&& value, Binding_Value_Converter const* converter = nullptr);
  /// The member `key`, of any JSON type. Without one nothing changes, and a debug run logs a warning.
  Update_SQL& set(std::string const& column, json_spirit::Object const& object, std::string const& key,
                  Binding_Value_Converter const* converter = nullptr);
  /// The same with the key as column.
  Update_SQL& set(json_spirit::Object const& object, std::string const& key,
                  Binding_Value_Converter const* converter = nullptr);

  /// The bytes of a uuid text. The empty text becomes no bytes; any other text is assigned unchanged.
  Update_SQL& set_uuid(std::string const& column, char const* uuid);
  Update_SQL& set_uuid(std::string const& column, std::string const& uuid);
  Update_SQL& set_uuid(std::string const& column, Secure_String const& uuid);
  /// The string or secure string `key`, or its JSON null. For anything else nothing changes, and a debug run logs a
  /// warning.
  Update_SQL& set_uuid(std::string const& column, json_spirit::Object const& object, std::string const& key);
  Update_SQL& set_uuid(json_spirit::Object const& object, std::string const& key);

  /// A new uuid's bytes. When the system gives no random bytes, nothing changes and an error is logged.
  Update_SQL& set_new_uuid(std::string const& column);
  /// The text "YYYY-MM-DD hh:mm:ss", UTC.
  Update_SQL& set_time(std::string const& column, long long const& seconds);
  /// A text fragment, or a SELECT, which the caller fills; written in parentheses. When memory is short, null with
  /// errno ENOMEM, and nothing changes.
  SQL* set_sql(std::string const& column);
  Select_SQL* set_select_sql(std::string const& column);

private:
  Update_SQL& store(std::string const& column, SQL_Value&& value);
  template <class T, class... Arguments>
  T* store_new(std::string const& column, Arguments... arguments);
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  char const* table_;
  std::map<std::string, SQL_Value> assignments_;
};
