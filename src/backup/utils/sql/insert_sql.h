#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/binding_value_converter.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/sql_value.h"
#include "json_spirit/json_spirit.h"

class Select_SQL;

/// One INSERT of one or more rows, or of the rows of a SELECT. Shape: "INSERT INTO `t`(`a`,`b`)
/// VALUES(:1,:2),(:3,NULL)". The verb is the dialect's: "INSERT IGNORE" and "REPLACE" for MySQL, "INSERT OR IGNORE" and
/// "INSERT OR REPLACE" for SQLite.
///
/// Columns are listed in the order of their first use in any row. A row without a value for a column gets the word
/// NULL; `value_null` binds a null value instead. A new statement has one empty row. Value setters fill the last row.
///
/// Lifetime: the table is kept by pointer and must outlive every rendering; this statement owns the statements that it
/// returns for filling. Errors: without a value nothing changes; when a converter refuses a value, it is stored
/// unconverted.
class BACKUP_SQL_API Insert_SQL : public SQL {
public:
  enum Or_Expr : std::uint32_t { OR_NONE = 1, OR_IGNORE = 2, OR_REPLACE = 3 };

  using Entry = std::map<std::string, SQL_Value>;

  explicit Insert_SQL(char const* table);
  /// Copies share the statements used as values or rows.
  Insert_SQL(Insert_SQL const& other);
  ~Insert_SQL() override;
  Insert_SQL& operator=(Insert_SQL const& other);

  void clear() override;
  /// True without columns and without a SELECT.
  bool empty() const override;
  /// For a dialect other than MySQL and SQLite, writes no verb and appends " INTO `t`..." to what `sql` holds:
  /// deliberate.
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  Insert_SQL& table(char const* name);
  Insert_SQL& or_expr(Or_Expr expression);

  /// Starts the next row.
  Insert_SQL& new_entry();
  /// The rows, each with its values by column. The first call makes them, and setters then keep them up to date, which
  /// makes filling slower. Threads may call this at the same time.
  std::vector<Entry> const& entries() const;
  /// Drops all rows and starts one; the columns stay.
  Insert_SQL& clear_entries();

  /// Every setter calls this: it lists a new column and sets the value in the last row. It is fastest when rows are
  /// filled in the order of the columns; otherwise it searches the list of columns.
  Insert_SQL& value_i(std::string const& column, SQL_Value const& value);
  Insert_SQL& value(std::string const& column, Binding_Value const& value,
                    Binding_Value_Converter const* converter = nullptr);
  Insert_SQL& value(std::string const& column, Binding_Value&& value,
                    Binding_Value_Converter const* converter = nullptr);
  /// The member `key`, of any JSON type. Without one nothing changes, and a debug run logs a warning.
  Insert_SQL& value(std::string const& column, json_spirit::Object const& object, std::string const& key,
                    Binding_Value_Converter const* converter = nullptr);
  /// The same with the key as column.
  Insert_SQL& value(json_spirit::Object const& object, std::string const& key,
                    Binding_Value_Converter const* converter = nullptr);

  /// The bytes of a uuid text. The empty text becomes no bytes; any other text is bound unchanged.
  Insert_SQL& value_uuid(std::string const& column, char const* uuid);
  Insert_SQL& value_uuid(std::string const& column, std::string const& uuid);
  Insert_SQL& value_uuid(std::string const& column, Secure_String const& uuid);
  /// The string or secure string `key`, or its JSON null. For anything else nothing changes, and a debug run logs a
  /// warning.
  Insert_SQL& value_uuid(std::string const& column, json_spirit::Object const& object, std::string const& key);
  Insert_SQL& value_uuid(json_spirit::Object const& object, std::string const& key);
  /// The bytes of 32 hexadecimal digits. The empty text becomes no bytes; any other text is bound unchanged.
  Insert_SQL& value_hex(std::string const& column, char const* hex);
  Insert_SQL& value_hex(std::string const& column, std::string const& hex);
  Insert_SQL& value_hex(std::string const& column, Secure_String const& hex);
  Insert_SQL& value_hex(std::string const& column, json_spirit::Object const& object, std::string const& key);
  Insert_SQL& value_hex(json_spirit::Object const& object, std::string const& key);

  /// A parameter bound to null.
  Insert_SQL& value_null(std::string const& column);
  /// A new uuid's bytes. When the system gives no random bytes, nothing changes and an error is logged.
  Insert_SQL& value_new_uuid(std::string const& column);
  /// The text "YYYY-MM-DD hh:mm:ss", UTC.
  Insert_SQL& value_time(std::string const& column, long long const& seconds);
  /// A text fragment, or a SELECT, which the caller fills; written in parentheses. When memory is short, null with
  /// errno ENOMEM, and nothing changes.
  SQL* value_sql(std::string const& column);
  Select_SQL* value_select_sql(std::string const& column);
  /// Lists the column only.
  Insert_SQL& value_key(std::string const& column);

  /// The SELECT whose rows are inserted in place of values; the first call makes it. When memory is short, null with
  /// errno ENOMEM.
  Select_SQL* values_sql();

private:
  // In the order of `columns_`; shorter when the last columns have no value.
  using Row = std::vector<std::optional<SQL_Value>>;

  std::vector<Entry> made_entries() const;
  std::size_t place_of(std::string const& column);
  Insert_SQL& store(std::string const& column, SQL_Value&& value);
  void store_anywhere(Row& row, std::string const& column, SQL_Value&& value);
  template <class T, class... Arguments>
  T* store_new(std::string const& column, Arguments... arguments);
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;
  void write_row(backup::SQL_Writer& out, Row const& row) const;

  char const* table_;
  Or_Expr or_expr_;
  std::vector<std::string> columns_;
  std::vector<Row> rows_;
  mutable std::atomic<std::vector<Entry>*> entries_{nullptr};  // what `entries` has made, or null
  ACE_Intrusive_Auto_Ptr<SQL> select_;
};
