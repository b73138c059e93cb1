#pragma once

#include <array>
#include <charconv>
#include <cstring>
#include <forward_list>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "backup/utils/sql/detail/inline_list.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_text.h"
#include "backup/utils/sql/sql_value.h"

namespace backup {

/// The name of a generated parameter, a colon and its number: counted on in its own text.
class Parameter_Name {
public:
  explicit Parameter_Name(unsigned long long number) : number_(number) {
    text_[0] = ':';
    end_ = std::to_chars(text_.data() + 1, text_.data() + text_.size(), number).ptr;
  }
  Parameter_Name(Parameter_Name const&) = delete;
  Parameter_Name& operator=(Parameter_Name const&) = delete;

  unsigned long long number() const { return number_; }
  std::string_view get() const { return {text_.data(), static_cast<std::size_t>(end_ - text_.data())}; }
  /// To the number `number`, which mostly is the next one.
  void set(unsigned long long number) {
    if (number == number_ + 1 && end_[-1] != '9' && number != 0) {
      ++end_[-1];
    } else {
      end_ = std::to_chars(text_.data() + 1, text_.data() + text_.size(), number).ptr;
    }
    number_ = number;
  }
  /// To the one that follows in the order of texts, where numbers end at `last`: :1, :10, :100, ..., :2.
  void set_next_text(unsigned long long last) {
    if (number_ * 10 <= last) {
      number_ *= 10;
      *end_++ = '0';
      return;
    }
    if (number_ == last) drop_digit();
    while (end_[-1] == '9') drop_digit();
    ++number_;
    ++end_[-1];
  }

private:
  void drop_digit() {
    number_ /= 10;
    --end_;
  }

  unsigned long long number_;
  std::array<char, 21> text_;  // a colon and 20 digits
  char* end_;
};

/// Where a rendering goes: the text so far, the bindings, the parameter counter. Everything is appended in place,
/// embedded statements too, so no text is copied once per level of nesting.
///
/// Values are gathered by address while the text is written. With names they are copied into the map once, at the end,
/// in the order of its names; with marks, into the list. The places of the marks are kept: names take them, and the
/// values go to the map, where it turns out that the marks are not exact, for a colon elsewhere in the text, a name
/// bound by hand, or a part that knows names only. `Question_Mask_SQL_Converter` decides then.
class SQL_Writer {
public:
  /// Writes names, and fills `bindings` in `finish`.
  SQL_Writer(SQL::Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index)
      : db_(db), sql_(sql), bindings_(bindings), index_(index) {
    if (!sql.empty()) {
      open(1);
    } else if (sql.capacity() < first_.size()) {
      sql.reserve(first_.size());  // the end takes no memory
    }
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
    put({text, length});
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
  /// One text behind the other, room being made once.
  template <class... Text>
  void write(Text const&... text) {
    make_room((std::string_view(text).size() + ...));
    (put(text), ...);
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
  void name(char const* name) { write("`", name == nullptr ? "" : name, "`"); }
  void name(std::string const& name) { write("`", name, "`"); }
  /// " `alias`", or nothing for null and "".
  void alias(char const* alias) {
    if (is_set(alias)) write(" `", alias, "`");
  }
  /// So many parameters are to come.
  void expect(std::size_t count);
  /// The next parameter, bound to `value`, which lives until the rendering ends.
  void param(Binding_Value const& value) {
    ++index_;
    gathered_.push_back(&value);
    if (has_marks_) {
      marks_.push_back(size());
      *this << '?';
    } else {
      append_name(index_);
    }
  }
  /// The same for a value that is made here.
  void param(Binding_Value&& value);
  /// What the four-argument `get_sql` of `part` gives, its explicit bindings included.
  void part(SQL const& part) {
    if (!part.is_own_class()) {
      part_apart(part);
      return;
    }
    part.write_sql(*this);
    merge_bindings(part);
  }
  /// The same between parentheses.
  void sub_statement(SQL const& statement) {
    *this << '(';
    part(statement);
    *this << ')';
  }
  /// A column's value: its statement between parentheses, or the next parameter.
  void value(SQL_Value const& value) {
    if (value.sql() != nullptr) {
      sub_statement(*value.sql());
    } else {
      param(value.val());
    }
  }
  /// Copies the explicit bindings of `part`.
  void merge_bindings(SQL const& part) {
    if (part.has_bindings()) merge_own_bindings(part);
  }
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

  // A short text stands in `first_` until it is done. A longer one stands in the string, which is longer than the text
  // then: by the room that comes next, which it fills with zeros, so not by all that it has.
  void open(std::size_t room);
  void close() noexcept;
  std::size_t size() const { return static_cast<std::size_t>(at_ - begin_); }
  void make_room(std::size_t length) {
    if (static_cast<std::size_t>(end_ - at_) < length) grow(length);
  }
  void put(std::string_view text) {
    std::memcpy(at_, text.data(), text.size());
    at_ += text.size();
  }
  void grow(std::size_t length);
  void append_name(unsigned long long number);
  void part_apart(SQL const& part);
  void merge_own_bindings(SQL const& part);
  void bind_gathered();
  void list_gathered(std::vector<Binding_Value>& values);

  SQL::Database_Type db_;
  std::string& sql_;
  std::array<char, 400> first_;
  bool is_open_ = true;
  char* begin_ = first_.data();
  char* at_ = begin_;
  char* end_ = begin_ + first_.size();
  Bindings& bindings_;
  unsigned long long& index_;

  Inline_List<Binding_Value const*> gathered_;  // the last ones, not yet in `bindings_`
  std::forward_list<Binding_Value> made_;       // gathered like others
  Parameter_Name name_{0};                      // the last one written

  bool has_marks_ = false;          // not names
  Inline_List<std::size_t> marks_;  // their places in the text

  std::string scratch_;  // for parts that can only write to a text of their own
};

/// True when T is the very class of `object`. By address: each class has its type information in one place, its own.
template <class T>
bool is_exactly(SQL const& object) {
  return &typeid(object) == &typeid(T);
}

}  // namespace backup
