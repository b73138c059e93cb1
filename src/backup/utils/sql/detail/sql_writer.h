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

/// The name of a generated parameter: a colon and its number. Most steps change only the last digit.
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
  /// Fast when `number` is the next one.
  void set(unsigned long long number) {
    if (number == number_ + 1 && end_[-1] != '9' && number != 0) {
      ++end_[-1];
    } else {
      end_ = std::to_chars(text_.data() + 1, text_.data() + text_.size(), number).ptr;
    }
    number_ = number;
  }
  /// Moves to the next name up to `last` in the order of texts: :1, :10, :100, ..., :2.
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

/// Takes the output of a rendering: the text so far, the bindings, the parameter counter. Embedded statements are
/// appended in place too, so no text is copied at each level of nesting.
///
/// Values are gathered by address while the text is written. At the end they are copied: with names into the map, in
/// the order of its names; with "?" marks into the list. Marks are not exact when the text has a colon elsewhere, a
/// name is bound by hand, or a part knows only names. Then names take the places of the marks, the values go to the
/// map, and `Question_Mask_SQL_Converter` makes the marks.
class SQL_Writer {
public:
  /// Writes names; `finish` fills `bindings`.
  SQL_Writer(SQL::Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index)
      : db_(db), sql_(sql), bindings_(bindings), index_(index) {
    if (!sql.empty()) {
      open(1);
    } else if (sql.capacity() < first_.size()) {
      sql.reserve(first_.size());  // `close` then needs no memory
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
  /// The same, but appends to the content of `sql`.
  static void append(SQL const& part, SQL::Database_Type db, std::string& sql, Bindings& bindings,
                     unsigned long long& index) {
    SQL_Writer out(db, sql, bindings, index);
    part.write_sql(out);
    out.finish();
  }
  /// Fills the bindings. The last call on a writer.
  void finish();
  /// The four-argument `get_sql` and the conversion to "?" marks in one, for an object of the library's own class.
  /// Appends to `values`. False when the conversion fails.
  static bool render_marks(SQL const& part, SQL::Database_Type db, std::string& sql,
                           std::vector<Binding_Value>& values);

  SQL::Database_Type db() const { return db_; }
  /// The text with names: call `use_names` first. Valid until more is written.
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
  /// Appends several texts with one check for room.
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

  /// The length of the text so far. A mark counts as its name, so a position stays valid after `use_names`.
  std::size_t position() const;
  /// Removes the text after a position. Its values deliberately stay in the bindings.
  void truncate(std::size_t position);

  /// An unchanged name in backticks; null is the empty name.
  void name(char const* name) { write("`", name == nullptr ? "" : name, "`"); }
  void name(std::string const& name) { write("`", name, "`"); }
  /// " `alias`", or nothing for null and "".
  void alias(char const* alias) {
    if (is_set(alias)) write(" `", alias, "`");
  }
  /// Makes room for `count` parameters.
  void expect(std::size_t count);
  /// The next parameter, bound to `value`, which must live until the rendering ends.
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
  /// The same; the writer keeps the value.
  void param(Binding_Value&& value);
  /// The four-argument `get_sql` of `part`, with the names bound by hand.
  void part(SQL const& part) {
    if (!part.is_own_class()) {
      part_apart(part);
      return;
    }
    part.write_sql(*this);
    merge_bindings(part);
  }
  /// The same in parentheses.
  void sub_statement(SQL const& statement) {
    *this << '(';
    part(statement);
    *this << ')';
  }
  /// A column's value: its statement in parentheses, or the next parameter.
  void value(SQL_Value const& value) {
    if (value.sql() != nullptr) {
      sub_statement(*value.sql());
    } else {
      param(value.val());
    }
  }
  /// Copies the names bound by hand on `part`.
  void merge_bindings(SQL const& part) {
    if (part.has_bindings()) merge_own_bindings(part);
  }
  /// Replaces marks by names and writes names from here on. For callers that read the text or render a part apart.
  void use_names();
  /// Calls the four-argument `get_sql` of `part` with `text` and gives its result.
  std::string const& render_apart(SQL const& part, std::string& text);

  /// Calls `write(element)` for each element and puts commas between them.
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

  // A short text is written to `first_` and copied at the end. A longer one is written to the string itself, resized
  // ahead of the text; `resize` fills with zeros, so it takes a limited step and not the whole capacity.
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

  Inline_List<Binding_Value const*> gathered_;  // not yet in `bindings_`
  std::forward_list<Binding_Value> made_;       // values that the writer keeps
  Parameter_Name name_{0};                      // the last one written

  bool has_marks_ = false;          // not names
  Inline_List<std::size_t> marks_;  // their places in the text

  std::string scratch_;  // for parts that write to a text of their own
};

/// True when `object` is exactly a T. Compares addresses: each class has its type information in one place.
template <class T>
bool is_exactly(SQL const& object) {
  return &typeid(object) == &typeid(T);
}

}  // namespace backup
