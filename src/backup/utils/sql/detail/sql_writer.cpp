#include "backup/utils/sql/detail/sql_writer.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "backup/utils/sql/detail/reserve_more.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/sql_text.h"

namespace backup {

void SQL_Writer::open(std::size_t room) {
  constexpr std::size_t step = 1000;
  std::size_t const size = sql_.size();
  reserve_more(sql_, room);
  sql_.resize(std::max(size + room, std::min(size + step, sql_.capacity())));
  begin_ = sql_.data();
  at_ = begin_ + size;
  end_ = begin_ + sql_.size();
  is_open_ = true;
}

void SQL_Writer::close() noexcept {
  if (!std::exchange(is_open_, false)) return;
  if (begin_ == first_.data()) {
    sql_.assign(begin_, size());
  } else {
    sql_.resize(size());
  }
}

void SQL_Writer::grow(std::size_t length) {
  close();
  open(length);
}

void SQL_Writer::expect(std::size_t count) {
  constexpr std::size_t length = 6;  // roughly a parameter and a comma
  close();
  reserve_more(sql_, count * (has_marks_ ? 2 : length));
  open(1);
  gathered_.reserve(gathered_.size() + count);
  if (has_marks_) marks_.reserve(marks_.size() + count);
}

void SQL_Writer::append_name(unsigned long long number) {
  name_.set(number);
  *this << name_.get();
}

void SQL_Writer::param(Binding_Value&& value) { param(made_.emplace_front(std::move(value))); }

std::size_t SQL_Writer::position() const {
  std::size_t position = size();
  if (!has_marks_) return position;
  // A name is longer than a mark by its digits.
  for (std::size_t smallest = 1; smallest <= marks_.size(); smallest *= 10) position += marks_.size() + 1 - smallest;
  return position;
}

void SQL_Writer::truncate(std::size_t position) {
  use_names();
  at_ = begin_ + position;
}

void SQL_Writer::use_names() {
  if (!std::exchange(has_marks_, false)) return;
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
}

// The map orders names by text: :1, :10, :100, ..., :2.
void SQL_Writer::bind_gathered() {
  if (gathered_.empty()) return;
  unsigned long long const before = index_ - gathered_.size();
  bool const is_first = bindings_.empty();
  auto place = bindings_.end();
  auto const bind = [&](Parameter_Name const& name) {
    Binding_Value const& value = *gathered_[name.number() - before - 1];
    if (is_first) {
      bindings_.emplace_hint(bindings_.end(), name.get(), value);
    } else {
      place = std::next(bindings_.insert_or_assign(place, std::string(name.get()), value));
    }
  };
  Parameter_Name name(1);
  if (before > 8 * gathered_.size()) {  // that order would mostly pass numbers of others
    for (std::size_t i = 1; i <= gathered_.size(); ++i, place = bindings_.end()) {
      name.set(before + i);
      bind(name);
    }
  } else {
    for (unsigned long long i = 1;; ++i, name.set_next_text(index_)) {
      if (name.number() > before) bind(name);
      if (i == index_) break;
    }
  }
  gathered_.clear();
}

void SQL_Writer::list_gathered(std::vector<Binding_Value>& values) {
  reserve_more(values, gathered_.size());
  Take_Back added(values);
  for (Binding_Value const* const value : gathered_) values.push_back(*value);
  added.keep();
}

void SQL_Writer::finish() {
  bind_gathered();
  close();
}

void SQL_Writer::merge_own_bindings(SQL const& part) {
  use_names();
  bind_gathered();
  part.merge_bindings(bindings_, false);
}

std::string const& SQL_Writer::render_apart(SQL const& part, std::string& text) {
  use_names();
  bind_gathered();
  return part.get_sql(db_, text, bindings_, index_);
}

void SQL_Writer::part_apart(SQL const& part) {
  scratch_.clear();
  *this << render_apart(part, scratch_);
}

bool SQL_Writer::render_marks(SQL const& part, SQL::Database_Type db, std::string& sql,
                              std::vector<Binding_Value>& values) {
  Bindings bindings;
  unsigned long long index = 0;
  SQL_Writer out(db, sql, bindings, index);
  out.has_marks_ = true;
  part.write_sql(out);
  out.merge_bindings(part);
  out.close();
  // The conversion may read a colon as the start of a name. It also reports an empty text, and more bindings than
  // characters.
  bool const is_exact = out.has_marks_ && sql.find(':') == std::string::npos && !sql.empty() && sql.size() >= index;
  if (is_exact) {
    out.list_gathered(values);
    return true;
  }
  out.open(1);
  out.use_names();
  out.finish();
  return Question_Mask_SQL_Converter().convert(sql, bindings, values);
}

}  // namespace backup
