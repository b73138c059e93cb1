#pragma once

#include <string>

#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_value.h"

/// Where a rendering goes: the text so far, the bindings, the parameter counter. Everything is appended in place,
/// embedded statements too, so no text is copied once per level of nesting.
class SQL_Writer {
public:
  SQL_Writer(SQL::Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index)
      : db_(db), sql_(sql), bindings_(bindings), index_(index) {}
  SQL_Writer(SQL_Writer const&) = delete;
  SQL_Writer& operator=(SQL_Writer const&) = delete;

  /// `get_sql_i` of a class that has a `write_sql`: replaces the content of `sql`.
  template <class T>
  static void render(T const& part, SQL::Database_Type db, std::string& sql, Bindings& bindings,
                     unsigned long long& index) {
    sql.clear();
    SQL_Writer out(db, sql, bindings, index);
    part.write_sql(out);
  }

  SQL::Database_Type db() const { return db_; }
  std::string& text() { return sql_; }
  Bindings& bindings() { return bindings_; }
  unsigned long long& index() { return index_; }

  SQL_Writer& operator<<(char c) {
    sql_ += c;
    return *this;
  }
  SQL_Writer& operator<<(char const* text) {
    sql_ += text;
    return *this;
  }
  SQL_Writer& operator<<(std::string const& text) {
    sql_ += text;
    return *this;
  }
  SQL_Writer& operator<<(long long number);

  /// A name between backticks as it stands; null is the empty name.
  void name(char const* name);
  void name(std::string const& name);
  /// " `alias`", or nothing for null and "".
  void alias(char const* alias);
  /// The next generated name, and `value` bound under it.
  void param(Binding_Value const& value);
  /// What the four-argument `get_sql` of `part` gives, its explicit bindings included.
  void part(SQL const& part);
  /// The same between parentheses.
  void sub_statement(SQL const& statement);
  /// A column's value: its statement between parentheses, or the next parameter.
  void value(SQL_Value const& value);
  /// Copies the explicit bindings of `part`.
  void merge_bindings(SQL const& part) { part.merge_bindings(bindings_, false); }

  /// Calls `write(element)` for each element, a comma between two.
  template <class List, class Write>
  void list(List const& list, Write write) {
    char const* comma = "";
    for (auto const& element : list) {
      sql_ += comma;
      write(element);
      comma = ",";
    }
  }

private:
  template <class T>
  static void write(SQL const& part, SQL_Writer& out) {
    static_cast<T const&>(part).write_sql(out);
  }

  SQL::Database_Type db_;
  std::string& sql_;
  Bindings& bindings_;
  unsigned long long& index_;
  std::string scratch_;  // for parts that can only write to a text of their own
};
