#include "backup/utils/sql/where_sql.h"

#include <string_view>
#include <utility>

#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"

using backup::SQL_Writer;

Where_SQL::Where_SQL(char const* text, Type type) : SQL(text, type, true) {}

Where_SQL::Where_SQL(Where_SQL const& other) = default;
Where_SQL::~Where_SQL() = default;

Where_SQL& Where_SQL::operator=(Where_SQL const& other) {
  if (this == &other) return *this;
  Where_SQL copied(other);
  take(copied);
  return *this;
}

void Where_SQL::take(Where_SQL& copied) {
  SQL::take(copied);
  where_.swap(copied.where_);
  std::swap(filter_, copied.filter_);
}

void Where_SQL::clear() {
  where_.clear();
  filter_.reset();
  SQL::clear();
}

Where_SQL& Where_SQL::where(char const* text, bool copy) {
  where_.set(text, copy);
  return *this;
}

Filter_SQL* Where_SQL::filter() const { return static_cast<Filter_SQL*>(filter_.get()); }
Filter_SQL* Where_SQL::and_filter() { return filter_of_type<And_Filter_SQL>(Filter_SQL::FILTER_AND); }
Filter_SQL* Where_SQL::or_filter() { return filter_of_type<Or_Filter_SQL>(Filter_SQL::FILTER_OR); }

template <class T>
Filter_SQL* Where_SQL::filter_of_type(Filter_SQL::Filter_Type type) {
  if (filter_.get() != nullptr && filter()->type() == TYPE_FILTER && filter()->filter_type() == type) return filter();
  return without_throwing([this]() -> Filter_SQL* { return new_sql<T>(filter_); });
}

std::string& Where_SQL::get_where_sql(Database_Type db, std::string& sql, Bindings& bindings,
                                      unsigned long long& index) const {
  sql.clear();
  SQL_Writer out(db, sql, bindings, index);
  write_where(out);
  out.finish();
  return sql;
}

// [ WHERE <raw text | filter>]
void Where_SQL::write_where(SQL_Writer& out) const {
  if (!where_.empty()) {
    out.write(" WHERE ", where_.get());
    return;
  }
  if (filter_.get() == nullptr) return;
  constexpr std::string_view word = " WHERE ";
  std::size_t const start = out.position();
  out << word;
  out.part(*filter_);
  if (out.position() == start + word.size()) out.truncate(start);
}
