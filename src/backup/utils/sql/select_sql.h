#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <cstdint>
#include <string>
#include <vector>

#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/where_sql.h"

/// One SELECT statement, and the query that counts its rows. Setters record, rendering writes. Shape, every dialect:
///
///   SELECT [DISTINCT ]<select list> FROM <tables> <joins> WHERE ... GROUP BY ... HAVING ... ORDER BY ... LIMIT n
///   OFFSET n
///
/// Table names and aliases get backticks; keys, conditions and free texts are written unchanged.
///
/// Lifetime: every char const* is kept by pointer and must outlive rendering, unless a copy is asked for; std::string
/// arguments are copied. The statement owns the sub-selects that it returns for filling. Nested statements are rendered
/// recursively. Errors: setters check nothing. Null and empty texts count as unset, except an empty alias in the count
/// query. When memory is short, factories give null with errno ENOMEM and add nothing.
class BACKUP_SQL_API Select_SQL : public Where_SQL {
public:
  /// MariaDB has no FULL JOIN: after a table without an alias it reads FULL as the alias and runs an inner join.
  enum Join_Mode : std::uint32_t { PLAIN_JOIN = 1, LEFT_JOIN = 2, RIGHT_JOIN = 3, INNER_JOIN = 4, FULL_JOIN = 5 };

  explicit Select_SQL(char const* table = nullptr, char const* alias = nullptr);
  /// Copies share the filter and the sub-selects.
  Select_SQL(Select_SQL const& other);
  ~Select_SQL() override;
  Select_SQL& operator=(Select_SQL const& other);

  /// Back to the state of a new statement, except that the key set by `count()` stays: deliberate.
  void clear() override;
  /// True without select text and keys, whatever the tables and conditions.
  bool empty() const override;
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;
  /// Counts the rows without select list, ORDER BY, LIMIT and OFFSET, in one of three forms:
  ///   a GROUP BY text set, even an empty one: "SELECT COUNT(dummy) FROM (SELECT 1 dummy FROM ... GROUP BY ...) AS sum"
  ///   a count key:                            "SELECT COUNT(<key>) FROM ..."
  ///   neither:                                "SELECT COUNT([DISTINCT ]`t`.id) FROM ...", `t` from the first table's
  ///                                           alias or name; "id" alone without a named table
  /// The last form with DISTINCT logs a warning that asks for `count()`. The first form ignores DISTINCT.
  void get_count_sql_i(Database_Type db, std::string& sql, Bindings& bindings,
                       unsigned long long& index) const override;

  /// The whole select list as one text, in place of the keys.
  Select_SQL& select(char const* text);
  /// Adds one column text. Without any, "*" is selected.
  Select_SQL& add_key(std::string const& key, char const* alias);
  /// A sub-select as a column.
  Select_SQL* add_sql_key(char const* alias);
  Select_SQL& clear_key();
  /// The expression that the count query counts. Limit and offset are ignored. Rows where it is NULL are not counted,
  /// for instance after a right or full join. For an aggregate without GROUP BY, the rows that it sums up are counted.
  /// "*" counts every row.
  Select_SQL& count(char const* key);

  /// The whole FROM list as one text, in place of the tables.
  Select_SQL& from(char const* text);
  Select_SQL& table(char const* name, char const* alias);
  Select_SQL* sql_table(char const* alias);

  /// Joins, in order of addition. One with neither table name nor sub-select is left out silently.
  Select_SQL& join(char const* table, char const* alias, std::string const& on);
  Select_SQL& left_join(char const* table, char const* alias, std::string const& on);
  Select_SQL& right_join(char const* table, char const* alias, std::string const& on);
  Select_SQL& inner_join(char const* table, char const* alias, std::string const& on);
  Select_SQL& join_i(Join_Mode mode, char const* table, char const* alias, std::string const& on);
  Select_SQL* sql_join(char const* alias, std::string const& on);
  Select_SQL* sql_left_join(char const* alias, std::string const& on);
  Select_SQL* sql_right_join(char const* alias, std::string const& on);
  Select_SQL* sql_inner_join(char const* alias, std::string const& on);
  Select_SQL* sql_join_i(Join_Mode mode, char const* alias, std::string const& on);
  Select_SQL& clear_join();

  Select_SQL& where(char const* text, bool copy);
  Select_SQL& group_by(char const* text, bool copy);
  Select_SQL& having(char const* text, bool copy);
  /// Any statement, not owned, written without parentheses. A HAVING text wins over it.
  Select_SQL& having(SQL const* condition);

  /// The whole ORDER BY as one text, in place of the sort keys; " DESC" follows when `desc` is set.
  Select_SQL& order_by(char const* text);
  Select_SQL& sort_by(std::string const& key, bool desc);
  /// Replaces the sort keys by a comma-separated list. Each is trimmed and takes the direction set by `desc`. Empty
  /// pieces are kept. Null counts as "".
  Select_SQL& sort_keys(char const* keys);
  /// Sets the directions of the sort keys from a comma-separated list: exactly "desc" is descending, anything else
  /// ascending. Keys beyond the list keep their direction. Call it after `sort_keys`.
  Select_SQL& sort_orders(char const* orders);
  /// Sets the direction of all present sort keys, and of those that `sort_keys` sets later.
  Select_SQL& desc(bool d);

  /// Rows at most; a negative number means no limit. With an offset alone the limit is written as 2^63-1.
  Select_SQL& limit(long long n);
  /// Rows to skip; only numbers above 0 count.
  Select_SQL& offset(long long n);
  long long limit() const;
  long long offset() const;
  Select_SQL& distinct(bool d);

  /// Appends FROM to HAVING to `sql`: the part that a SELECT shares with its count query. `scratch` is working storage.
  void get_sql_ii(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index,
                  std::string& scratch) const;

private:
  // A name or a sub-select, with an alias.
  struct Source {
    Source(char const* its_name, char const* its_alias) : name(its_name), alias(its_alias) {}
    Source(ACE_Intrusive_Auto_Ptr<SQL> const& statement, char const* its_alias)
        : name(nullptr), sql(statement), alias(its_alias) {}

    char const* name;
    ACE_Intrusive_Auto_Ptr<SQL> sql;
    char const* alias;
  };
  struct Key {
    Key(std::string const& column, char const* its_alias) : key(column), alias(its_alias) {}
    Key(ACE_Intrusive_Auto_Ptr<SQL> const& statement, char const* its_alias) : sql(statement), alias(its_alias) {}

    std::string key;
    ACE_Intrusive_Auto_Ptr<SQL> sql;
    char const* alias;
  };
  struct Join {
    Join_Mode mode;
    Source source;
    std::string on;
  };
  struct Sort {
    Sort(std::string its_key, bool is_desc) : key(std::move(its_key)), desc(is_desc) {}

    std::string key;
    bool desc;
  };

  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;
  void write_tail(backup::SQL_Writer& out, std::string& scratch) const;
  void write_key(backup::SQL_Writer& out, Key const& key) const;
  void write_from(backup::SQL_Writer& out) const;
  void write_join(backup::SQL_Writer& out, Join const& join) const;
  void write_having(backup::SQL_Writer& out, std::string& scratch) const;
  void write_order(backup::SQL_Writer& out) const;
  void write_guessed_count_key(backup::SQL_Writer& out) const;

  // All clauses except WHERE.
  struct Clauses {
    std::vector<Key> keys;
    char const* select = nullptr;
    char const* count = nullptr;
    std::vector<Source> tables;
    char const* from = nullptr;
    std::vector<Join> joins;
    backup::SQL_Text group_by;
    SQL const* having_sql = nullptr;
    backup::SQL_Text having;
    std::vector<Sort> sorts;
    char const* order_by = nullptr;
    long long limit = -1;
    long long offset = 0;
    bool desc = false;
    bool distinct = false;
  };

  Clauses clauses_;
};
