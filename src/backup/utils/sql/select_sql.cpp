#include "backup/utils/sql/select_sql.h"

#include <algorithm>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <limits>
#include <locale>
#include <utility>

#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"

using backup::is_set;
using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/select_sql";

// `statement` as a SELECT, or null when it is none.
SQL const* as_select(ACE_Intrusive_Auto_Ptr<SQL> const& statement) {
  SQL const* const sql = statement.get();
  return sql != nullptr && sql->type() == SQL::TYPE_SELECT ? sql : nullptr;
}

char const* join_keyword(Select_SQL::Join_Mode mode) {
  switch (mode) {
    case Select_SQL::LEFT_JOIN: return " LEFT JOIN ";
    case Select_SQL::RIGHT_JOIN: return " RIGHT JOIN ";
    case Select_SQL::INNER_JOIN: return " INNER JOIN ";
    case Select_SQL::FULL_JOIN: return " FULL JOIN ";
    default: return " JOIN ";
  }
}

// The pieces between commas, trimmed. Empty pieces are kept.
std::vector<std::string> split_list(char const* list) {
  std::string const text = list == nullptr ? "" : list;
  std::vector<std::string> pieces;
  auto const is_comma = [](char c) { return c == ','; };
  boost::algorithm::split(pieces, text, is_comma, boost::algorithm::token_compress_off);
  std::locale const locale;
  auto const& types = std::use_facet<std::ctype<char>>(locale);  // once: the look-up is slow
  auto const is_space = [&types](char c) { return types.is(std::ctype_base::space, c); };
  for (std::string& piece : pieces) boost::algorithm::trim_if(piece, is_space);
  return pieces;
}

}  // namespace

Select_SQL::Select_SQL(char const* table, char const* alias) : Where_SQL(nullptr, TYPE_SELECT) {
  if (is_set(table)) this->table(table, alias);
}

Select_SQL::Select_SQL(Select_SQL const& other) = default;
Select_SQL::~Select_SQL() = default;

Select_SQL& Select_SQL::operator=(Select_SQL const& other) {
  if (this == &other) return *this;
  Select_SQL copied(other);
  take(copied);
  std::swap(clauses_, copied.clauses_);
  return *this;
}

void Select_SQL::clear() {
  char const* const count = clauses_.count;
  clauses_ = Clauses();
  clauses_.count = count;
  Where_SQL::clear();
}

bool Select_SQL::empty() const { return !is_set(clauses_.select) && clauses_.keys.empty(); }

Select_SQL& Select_SQL::select(char const* text) {
  clauses_.select = text;
  return *this;
}

Select_SQL& Select_SQL::add_key(std::string const& key, char const* alias) {
  if (clauses_.keys.capacity() == 0) clauses_.keys.reserve(4);
  clauses_.keys.emplace_back(key, alias);
  return *this;
}

Select_SQL* Select_SQL::add_sql_key(char const* alias) {
  return add_new<Select_SQL>([&](ACE_Intrusive_Auto_Ptr<SQL> const& sql) { clauses_.keys.emplace_back(sql, alias); });
}

Select_SQL& Select_SQL::clear_key() {
  clauses_.keys.clear();
  clauses_.select = nullptr;
  return *this;
}

Select_SQL& Select_SQL::count(char const* key) {
  clauses_.count = key;
  return *this;
}

Select_SQL& Select_SQL::from(char const* text) {
  clauses_.from = text;
  return *this;
}

Select_SQL& Select_SQL::table(char const* name, char const* alias) {
  clauses_.tables.emplace_back(name, alias);
  return *this;
}

Select_SQL* Select_SQL::sql_table(char const* alias) {
  return add_new<Select_SQL>([&](ACE_Intrusive_Auto_Ptr<SQL> const& sql) { clauses_.tables.emplace_back(sql, alias); });
}

Select_SQL& Select_SQL::join(char const* table, char const* alias, std::string const& on) {
  return join_i(PLAIN_JOIN, table, alias, on);
}

Select_SQL& Select_SQL::left_join(char const* table, char const* alias, std::string const& on) {
  return join_i(LEFT_JOIN, table, alias, on);
}

Select_SQL& Select_SQL::right_join(char const* table, char const* alias, std::string const& on) {
  return join_i(RIGHT_JOIN, table, alias, on);
}

Select_SQL& Select_SQL::inner_join(char const* table, char const* alias, std::string const& on) {
  return join_i(INNER_JOIN, table, alias, on);
}

Select_SQL& Select_SQL::join_i(Join_Mode mode, char const* table, char const* alias, std::string const& on) {
  clauses_.joins.push_back({mode, Source(table, alias), on});
  return *this;
}

Select_SQL* Select_SQL::sql_join(char const* alias, std::string const& on) { return sql_join_i(PLAIN_JOIN, alias, on); }

Select_SQL* Select_SQL::sql_left_join(char const* alias, std::string const& on) {
  return sql_join_i(LEFT_JOIN, alias, on);
}

Select_SQL* Select_SQL::sql_right_join(char const* alias, std::string const& on) {
  return sql_join_i(RIGHT_JOIN, alias, on);
}

Select_SQL* Select_SQL::sql_inner_join(char const* alias, std::string const& on) {
  return sql_join_i(INNER_JOIN, alias, on);
}

Select_SQL* Select_SQL::sql_join_i(Join_Mode mode, char const* alias, std::string const& on) {
  return add_new<Select_SQL>([&](ACE_Intrusive_Auto_Ptr<SQL> const& sql) {
    clauses_.joins.push_back({mode, Source(sql, alias), on});
  });
}

Select_SQL& Select_SQL::clear_join() {
  clauses_.joins.clear();
  return *this;
}

Select_SQL& Select_SQL::where(char const* text, bool copy) {
  Where_SQL::where(text, copy);
  return *this;
}

Select_SQL& Select_SQL::group_by(char const* text, bool copy) {
  clauses_.group_by.set(text, copy);
  return *this;
}

Select_SQL& Select_SQL::having(char const* text, bool copy) {
  clauses_.having.set(text, copy);
  return *this;
}

Select_SQL& Select_SQL::having(SQL const* condition) {
  clauses_.having_sql = condition;
  return *this;
}

Select_SQL& Select_SQL::order_by(char const* text) {
  clauses_.order_by = text;
  return *this;
}

Select_SQL& Select_SQL::sort_by(std::string const& key, bool desc) {
  clauses_.sorts.emplace_back(key, desc);
  return *this;
}

Select_SQL& Select_SQL::sort_keys(char const* keys) {
  std::vector<Sort> sorts;
  for (std::string& piece : split_list(keys)) sorts.emplace_back(std::move(piece), clauses_.desc);
  clauses_.sorts.swap(sorts);
  return *this;
}

Select_SQL& Select_SQL::sort_orders(char const* orders) {
  std::vector<std::string> const pieces = split_list(orders);
  std::size_t const count = std::min(pieces.size(), clauses_.sorts.size());
  for (std::size_t i = 0; i < count; ++i) clauses_.sorts[i].desc = pieces[i] == "desc";
  return *this;
}

Select_SQL& Select_SQL::desc(bool d) {
  for (Sort& sort : clauses_.sorts) sort.desc = d;
  clauses_.desc = d;
  return *this;
}

Select_SQL& Select_SQL::limit(long long n) {
  clauses_.limit = n;
  return *this;
}

Select_SQL& Select_SQL::offset(long long n) {
  clauses_.offset = n;
  return *this;
}

long long Select_SQL::limit() const { return clauses_.limit; }
long long Select_SQL::offset() const { return clauses_.offset; }

Select_SQL& Select_SQL::distinct(bool d) {
  clauses_.distinct = d;
  return *this;
}

void Select_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Select_SQL::is_own_class() const { return backup::is_exactly<Select_SQL>(*this); }

// SELECT [DISTINCT ]<text | key,... | *><tail><order, limit, offset>
void Select_SQL::write_sql(SQL_Writer& out) const {
  out << "SELECT ";
  if (clauses_.distinct) out << "DISTINCT ";
  if (is_set(clauses_.select)) {
    out << clauses_.select;
  } else if (clauses_.keys.empty()) {
    out << '*';
  } else {
    out.list(clauses_.keys, [&](Key const& key) { write_key(out, key); });
  }
  std::string scratch;
  write_tail(out, scratch);
  write_order(out);
}

void Select_SQL::write_key(SQL_Writer& out, Key const& key) const {
  if (SQL const* const sub = as_select(key.sql)) {
    out.sub_statement(*sub);
  } else {
    out << key.key;
  }
  out.alias(key.alias);
}

// [ FROM ...][ JOIN ...]...[ WHERE ...][ GROUP BY ...][ HAVING ...]
void Select_SQL::write_tail(SQL_Writer& out, std::string& scratch) const {
  write_from(out);
  for (Join const& join : clauses_.joins) write_join(out, join);
  bool const has_statement = clauses_.having.empty() && clauses_.having_sql != nullptr;
  if (has_statement) out.use_names();  // that statement sees the text written here
  std::size_t const where_start = out.text().size();
  write_where(out);
  std::size_t const where_end = out.text().size();
  if (!clauses_.group_by.empty()) out.write(" GROUP BY ", clauses_.group_by.get());
  if (!clauses_.having.empty()) {
    out.write(" HAVING ", clauses_.having.get());
  } else if (has_statement) {
    scratch.assign(out.text().substr(where_start, where_end - where_start));
    write_having(out, scratch);
  }
}

// FROM <text | source,...>, a source being `name` or (sub-select), each with its alias
void Select_SQL::write_from(SQL_Writer& out) const {
  if (is_set(clauses_.from)) {
    out.write(" FROM ", clauses_.from);
    return;
  }
  if (clauses_.tables.empty()) return;
  out << " FROM ";
  out.list(clauses_.tables, [&](Source const& source) {
    if (SQL const* const sub = as_select(source.sql)) {
      out.sub_statement(*sub);
    } else if (is_set(source.name)) {
      out.name(source.name);
    }
    out.alias(source.alias);
  });
}

// [ LEFT| RIGHT| INNER| FULL] JOIN <source>[ ON condition]
void Select_SQL::write_join(SQL_Writer& out, Join const& join) const {
  SQL const* const sub = as_select(join.source.sql);
  if (sub == nullptr && !is_set(join.source.name)) return;
  out << join_keyword(join.mode);
  if (sub != nullptr) {
    out.sub_statement(*sub);
  } else {
    out.name(join.source.name);
  }
  out.alias(join.source.alias);
  if (!join.on.empty()) out.write(" ON ", join.on);
}

// The statement gets the text that holds the WHERE clause, unchanged: one that appends in place of replacing keeps that
// clause in front.
void Select_SQL::write_having(SQL_Writer& out, std::string& scratch) const {
  out.render_apart(*clauses_.having_sql, scratch);
  if (!scratch.empty()) out.write(" HAVING ", scratch);
}

// [ ORDER BY <text[ DESC] | key ASC|DESC,...>][ LIMIT n][ OFFSET n]
void Select_SQL::write_order(SQL_Writer& out) const {
  if (is_set(clauses_.order_by)) {
    out.write(" ORDER BY ", clauses_.order_by);
    if (clauses_.desc) out << " DESC";
  } else if (!clauses_.sorts.empty()) {
    out << " ORDER BY ";
    out.list(clauses_.sorts, [&](Sort const& sort) {
      if (sort.desc) {
        out.write(sort.key, " DESC");
      } else {
        out.write(sort.key, " ASC");
      }
    });
  }
  if (clauses_.limit >= 0 || clauses_.offset > 0) {
    (out << " LIMIT ").number(clauses_.limit >= 0 ? clauses_.limit : std::numeric_limits<long long>::max());
  }
  if (clauses_.offset > 0) (out << " OFFSET ").number(clauses_.offset);
}

// SELECT COUNT(dummy) FROM (SELECT 1 dummy<tail>) | SELECT COUNT(key)<tail> | SELECT COUNT([DISTINCT
// ][`table`.]id)<tail>
void Select_SQL::get_count_sql_i(Database_Type db, std::string& sql, Bindings& bindings,
                                 unsigned long long& index) const {
  sql = "SELECT COUNT(";
  SQL_Writer out(db, sql, bindings, index);
  std::string scratch;
  if (clauses_.group_by.get() != nullptr) {
    out << "dummy) FROM (SELECT 1 dummy";
    write_tail(out, scratch);
    out << get_count_sql_suffix(db);
    out.finish();
    return;
  }
  if (is_set(clauses_.count)) {
    out << clauses_.count;
  } else {
    write_guessed_count_key(out);
  }
  out << ')';
  write_tail(out, scratch);
  out.finish();
  if (!is_set(clauses_.count) && clauses_.distinct) {
    sql_log::report({source_file}, LM_WARNING, 0,
                    "Please use Select_SQL::count(val) to set up the key of count query SQL: %s\n", sql);
  }
}

void Select_SQL::write_guessed_count_key(SQL_Writer& out) const {
  if (clauses_.distinct) out << "DISTINCT ";
  if (!clauses_.tables.empty() && clauses_.tables.front().name != nullptr) {
    Source const& first = clauses_.tables.front();
    out.name(first.alias != nullptr ? first.alias : first.name);
    out << '.';
  }
  out << "id";
}

void Select_SQL::get_sql_ii(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index,
                            std::string& scratch) const {
  SQL_Writer out(db, sql, bindings, index);
  write_tail(out, scratch);
  out.finish();
}
