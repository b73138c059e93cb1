#pragma once

#include <charconv>
#include <cstring>
#include <forward_list>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "backup/utils/sql/detail/inline_list.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_value.h"

/// Where a rendering goes: the text so far, the bindings, the parameter counter. Everything is appended in place,
/// embedded statements too, so no text is copied once per level of nesting.
///
/// With names, values are gathered by address while the text is written, and copied into the map once, at the end, in
/// the order of its names. With marks, "?" and the value's copy in the list are written at once. The places of the
/// marks are kept: names take them, and the values go to the map, where it turns out that the marks are not exact, for
/// a colon elsewhere in the text, a name bound by hand, or a part that knows names only. `Question_Mask_SQL_Converter`
/// decides then.
class SQL_Writer {
public:
  /// Writes names, and fills `bindings` in `finish`.
  SQL_Writer(SQL::Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index)
      : db_(db), sql_(sql), bindings_(bindings), index_(index) {
    open(2 * sql.size() + 1024);
  }
  SQL_Writer(SQL_Writer const&) = delete;
  SQL_Writer& operator=(SQL_Writer const&) = delete;
  ~SQL_Writer() { close(); }

  /// `get_sql_i` of the library's classes: replaces the content of `sql`.
  static void render(SQL const& part, SQL::Database_Type db, std::string& sql, Bindings& bindings,
                     unsigned long long& index) {
    sql.clear();
    append(part, db, sql, bindings, index);
  }
  /// The same, behind the content of `sql`.
  static void append(SQL const& part, SQL::Database_Type db, std::string& sql, Bindings& bindings,
                     unsigned long long& index) {
    SQL_Writer out(db, sql, bindings, index);
    part.write_sql(out);
    out.finish();
  }
  /// Fills the bindings: the last call on a writer.
  void finish();
  /// The four-argument `get_sql` of an object of the library's own class and the conversion to "?" marks in one. Adds
  /// to `values`. False when the conversion fails.
  static bool render_marks(SQL const& part, SQL::Database_Type db, std::string& sql,
                           std::vector<Binding_Value>& values);

  SQL::Database_Type db() const { return db_; }
  /// With names; see `use_names`. Valid until the next text.
  std::string_view text() const { return {begin_, size()}; }

  void append(char const* text, std::size_t length) {
    make_room(length);
    std::memcpy(at_, text, length);
    at_ += length;
  }
  SQL_Writer& operator<<(char c) {
    make_room(1);
    *at_++ = c;
    return *this;
  }
  SQL_Writer& operator<<(char const* text) {
    append(text, std::strlen(text));
    return *this;
  }
  SQL_Writer& operator<<(std::string_view text) {
    append(text.data(), text.size());
    return *this;
  }
  SQL_Writer& operator<<(std::string const& text) {
    append(text.data(), text.size());
    return *this;
  }
  /// Integers, and reals as the shortest text that reads back the same.
  template <class Number>
  SQL_Writer& number(Number number) {
    make_room(longest_number);
    at_ = std::to_chars(at_, end_, number).ptr;
    return *this;
  }

  /// How much is written. Marks count as their names, so a position holds whatever becomes of them.
  std::size_t position() const;
  /// Takes back what was written behind a position. Its values stay in the bindings, which is deliberate.
  void truncate(std::size_t position);

  /// A name between backticks as it stands; null is the empty name.
  void name(char const* name);
  void name(std::string const& name);
  /// " `alias`", or nothing for null and "".
  void alias(char const* alias);
  /// So many parameters are to come.
  void expect(std::size_t count);
  /// The next parameter, bound to `value`, which lives until the rendering ends.
  void param(Binding_Value const& value);
  /// The same for a value that is made here.
  void param(Binding_Value&& value);
  /// What the four-argument `get_sql` of `part` gives, its explicit bindings included.
  void part(SQL const& part);
  /// The same between parentheses.
  void sub_statement(SQL const& statement);
  /// A column's value: its statement between parentheses, or the next parameter.
  void value(SQL_Value const& value);
  /// Copies the explicit bindings of `part`.
  void merge_bindings(SQL const& part);
  /// From here on names are written, and names take the place of marks. For who reads the text, or renders a statement
  /// to a text of its own.
  void use_names();
  /// What the four-argument `get_sql` of `part` gives for `text`, whatever the part makes of that text.
  std::string const& render_apart(SQL const& part, std::string& text);

  /// Calls `write(element)` for each element, a comma between two.
  template <class List, class Write>
  void list(List const& list, Write write) {
    bool is_first = true;
    for (auto const& element : list) {
      if (!is_first) *this << ',';
      is_first = false;
      write(element);
    }
  }

private:
  static constexpr std::size_t longest_number = 32;  // -1.7976931348623157e+308 has 24 characters

  // While the writer lives, the string is longer than the text, which ends at `at_`.
  void open(std::size_t room);
  void close() noexcept;
  std::size_t size() const { return static_cast<std::size_t>(at_ - begin_); }
  void make_room(std::size_t length) {
    if (static_cast<std::size_t>(end_ - at_) < length) grow(length);
  }
  void grow(std::size_t length);
  void append_name(unsigned long long number);
  void bind_gathered();
  template <class Value_Of>
  void bind(unsigned long long before, std::size_t count, Value_Of value_of);

  SQL::Database_Type db_;
  std::string& sql_;
  bool is_open_ = false;
  char* begin_ = nullptr;
  char* at_ = nullptr;
  char* end_ = nullptr;
  Bindings& bindings_;
  unsigned long long& index_;

  Inline_List<Binding_Value const*> gathered_;  // the last ones, not yet in `bindings_`
  std::forward_list<Binding_Value> made_;       // gathered like others

  std::vector<Binding_Value>* list_ = nullptr;  // of the values; null when names are written
  std::size_t list_start_ = 0;                  // what it held before
  Inline_List<std::size_t> marks_;              // their places in the text

  std::string scratch_;  // for parts that can only write to a text of their own
};

/// True when T is the very class of `object`. By address: each class has its type information in one place, its own.
template <class T>
bool is_exactly(SQL const& object) {
  return &typeid(object) == &typeid(T);
}
