#include "backup/utils/sql/detail/sql_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <string_view>
#include <utility>

#include "backup/utils/sql/detail/sql_text.h"
#include "backup/utils/sql/question_mask_sql_converter.h"

namespace {

class Parameter_Name {
public:
  explicit Parameter_Name(unsigned long long number) {
    text_[0] = ':';
    end_ = std::to_chars(text_.data() + 1, text_.data() + text_.size(), number).ptr;
  }
  std::string_view get() const { return {text_.data(), static_cast<std::size_t>(end_ - text_.data())}; }

private:
  std::array<char, 21> text_;  // a colon and 20 digits
  char const* end_;
};

}  // namespace

void SQL_Writer::open(std::size_t room) {
  std::size_t const size = sql_.size();
  sql_.resize(std::max(size, std::min(room, sql_.capacity())));
  begin_ = sql_.data();
  at_ = begin_ + size;
  end_ = begin_ + sql_.size();
  is_open_ = true;
}

void SQL_Writer::close() noexcept {
  if (is_open_) sql_.resize(size());
  is_open_ = false;
}

void SQL_Writer::grow(std::size_t length) {
  close();
  std::size_t const room = std::max(sql_.size() + length, 2 * sql_.size());
  sql_.reserve(room);
  open(room);
}

void SQL_Writer::name(char const* name) {
  *this << '`';
  if (name != nullptr) *this << name;
  *this << '`';
}

void SQL_Writer::name(std::string const& name) { *this << '`' << name << '`'; }

void SQL_Writer::alias(char const* alias) {
  if (!is_set(alias)) return;
  *this << ' ';
  name(alias);
}

void SQL_Writer::append_name(unsigned long long number) { (*this << ':').number(number); }

void SQL_Writer::expect(std::size_t count) {
  if (list_ == nullptr) {
    gathered_.reserve(gathered_.size() + count);
  } else {
    marks_.reserve(marks_.size() + count);
    list_->reserve(list_->size() + count);
  }
}

void SQL_Writer::param(Binding_Value const& value) {
  ++index_;
  if (list_ != nullptr) {
    if (list_->size() == list_->capacity()) list_->reserve(list_->size() + std::max<std::size_t>(8, list_->size()));
    list_->push_back(value);
    marks_.push_back(size());
    *this << '?';
  } else {
    gathered_.push_back(&value);
    append_name(index_);
  }
}

void SQL_Writer::param(Binding_Value&& value) { param(made_.emplace_front(std::move(value))); }

std::size_t SQL_Writer::position() const {
  std::size_t position = size();
  // Names of one digit are a character longer than marks, those of two digits one more.
  for (std::size_t smallest = 1; smallest <= marks_.size(); smallest *= 10) position += marks_.size() + 1 - smallest;
  return position;
}

void SQL_Writer::truncate(std::size_t position) {
  use_names();
  at_ = begin_ + position;
}

void SQL_Writer::use_names() {
  if (list_ == nullptr) return;
  std::vector<Binding_Value>& list = *std::exchange(list_, nullptr);
  std::string const marked(text());
  at_ = begin_;
  std::size_t position = 0;
  unsigned long long number = 0;
  for (std::size_t const mark : marks_) {
    append(marked.data() + position, mark - position);
    append_name(++number);
    position = mark + 1;
  }
  append(marked.data() + position, marked.size() - position);
  marks_.clear();
  bind(0, number, [&](unsigned long long n) { return std::move(list[list_start_ + n - 1]); });
  list.resize(list_start_);
}

// Binds the names of the `count` numbers behind `before`. Their order in the map is that of their texts: :1, :10, :100,
// ..., :2.
template <class Value_Of>
void SQL_Writer::bind(unsigned long long before, std::size_t count, Value_Of value_of) {
  auto place = bindings_.end();
  auto const bind_one = [&](unsigned long long number) {
    place = std::next(bindings_.insert_or_assign(place, std::string(Parameter_Name(number).get()), value_of(number)));
  };
  if (before > 8 * count) {  // in that order most of the numbers would be those of others
    for (std::size_t i = 1; i <= count; ++i, place = bindings_.end()) bind_one(before + i);
    return;
  }
  unsigned long long const last = before + count;
  unsigned long long number = 1;
  for (unsigned long long i = 0; i < last; ++i) {
    if (number > before) bind_one(number);
    if (number * 10 <= last) {
      number *= 10;
      continue;
    }
    if (number == last) number /= 10;
    for (++number; number % 10 == 0;) number /= 10;
  }
}

void SQL_Writer::bind_gathered() {
  if (gathered_.empty()) return;
  unsigned long long const before = index_ - gathered_.size();
  bind(before, gathered_.size(),
       [&](unsigned long long number) -> Binding_Value const& { return *gathered_[number - before - 1]; });
  gathered_.clear();
}

void SQL_Writer::finish() {
  bind_gathered();
  close();
}

void SQL_Writer::merge_bindings(SQL const& part) {
  if (!part.has_bindings()) return;
  use_names();
  bind_gathered();
  part.merge_bindings(bindings_, false);
}

std::string const& SQL_Writer::render_apart(SQL const& part, std::string& text) {
  use_names();
  bind_gathered();
  return part.get_sql(db_, text, bindings_, index_);
}

void SQL_Writer::part(SQL const& part) {
  if (part.is_own_class()) {
    part.write_sql(*this);
    merge_bindings(part);
  } else {
    scratch_.clear();
    render_apart(part, scratch_);
    *this << scratch_;
  }
}

bool SQL_Writer::render_marks(SQL const& part, SQL::Database_Type db, std::string& sql,
                              std::vector<Binding_Value>& values) {
  Bindings bindings;
  unsigned long long index = 0;
  SQL_Writer out(db, sql, bindings, index);
  out.list_ = &values;
  out.list_start_ = values.size();
  try {
    part.write_sql(out);
    out.merge_bindings(part);
    out.close();
  } catch (...) {
    values.resize(out.list_start_);
    throw;
  }
  // The conversion may take a colon for a name's. It also reports an empty text, and one shorter than its bindings are
  // many.
  bool const is_exact =
      out.list_ != nullptr && sql.find(':') == std::string::npos && !sql.empty() && sql.size() >= index;
  if (is_exact) return true;
  out.open(sql.size());
  out.use_names();
  out.finish();
  return Question_Mask_SQL_Converter().convert(sql, bindings, values);
}

void SQL_Writer::sub_statement(SQL const& statement) {
  *this << '(';
  part(statement);
  *this << ')';
}

void SQL_Writer::value(SQL_Value const& value) {
  if (value.sql() != nullptr) {
    sub_statement(*value.sql());
  } else {
    param(value.val());
  }
}
