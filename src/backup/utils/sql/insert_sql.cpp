#include "backup/utils/sql/insert_sql.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "backup/utils/sql/detail/column_value.h"
#include "backup/utils/sql/detail/reserve_more.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/select_sql.h"

using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/insert_sql";

column_value::Reporter reporter(int line = __builtin_LINE()) { return {{source_file, line}, "insert", "add"}; }

// The dialect's verb, or null when none is written.
char const* verb(SQL::Database_Type db, Insert_SQL::Or_Expr expression) {
  bool const mysql = db == SQL::DB_MYSQL;
  if (!mysql && db != SQL::DB_SQLITE) return nullptr;
  if (expression == Insert_SQL::OR_IGNORE) return mysql ? "INSERT IGNORE" : "INSERT OR IGNORE";
  if (expression == Insert_SQL::OR_REPLACE) return mysql ? "REPLACE" : "INSERT OR REPLACE";
  return "INSERT";
}

}  // namespace

Insert_SQL::Insert_SQL(char const* table) : SQL(nullptr, TYPE_INSERT, true), table_(table), or_expr_(OR_NONE) {
  new_entry();
}

Insert_SQL::Insert_SQL(Insert_SQL const& other)
    : SQL(other),
      table_(other.table_),
      or_expr_(other.or_expr_),
      columns_(other.columns_),
      rows_(other.rows_),
      select_(other.select_) {}

Insert_SQL::~Insert_SQL() { delete entries_.load(); }

Insert_SQL& Insert_SQL::operator=(Insert_SQL const& other) {
  if (this == &other) return *this;
  Insert_SQL copied(other);
  std::vector<Entry> copied_entries;
  std::vector<Entry>* const entries = entries_.load();
  if (entries != nullptr) copied_entries = copied.made_entries();
  take(copied);
  table_ = copied.table_;
  or_expr_ = copied.or_expr_;
  columns_.swap(copied.columns_);
  rows_.swap(copied.rows_);
  if (entries != nullptr) entries->swap(copied_entries);
  std::swap(select_, copied.select_);
  return *this;
}

void Insert_SQL::clear() {
  table_ = nullptr;
  or_expr_ = OR_NONE;
  columns_.clear();
  clear_entries();
  select_.reset();
  SQL::clear();
}

bool Insert_SQL::empty() const { return select_.get() == nullptr && columns_.empty(); }

Insert_SQL& Insert_SQL::table(char const* name) {
  table_ = name;
  return *this;
}

Insert_SQL& Insert_SQL::or_expr(Or_Expr expression) {
  or_expr_ = expression;
  return *this;
}

Insert_SQL& Insert_SQL::new_entry() {
  Row row;
  row.reserve(columns_.size());
  std::vector<Entry>* const entries = entries_.load();
  if (entries != nullptr) backup::reserve_more(*entries, 1);
  rows_.push_back(std::move(row));
  if (entries != nullptr) entries->emplace_back();
  return *this;
}

// Made once. When two threads ask at the same time, one of them drops its result.
std::vector<Insert_SQL::Entry> const& Insert_SQL::entries() const {
  std::vector<Entry>* entries = entries_.load();
  if (entries != nullptr) return *entries;
  auto made = std::make_unique<std::vector<Entry>>(made_entries());
  return entries_.compare_exchange_strong(entries, made.get()) ? *made.release() : *entries;
}

std::vector<Insert_SQL::Entry> Insert_SQL::made_entries() const {
  std::vector<Entry> entries(rows_.size());
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    for (std::size_t column = 0; column < rows_[i].size(); ++column) {
      if (rows_[i][column]) entries[i].emplace(columns_[column], *rows_[i][column]);
    }
  }
  return entries;
}

Insert_SQL& Insert_SQL::clear_entries() {
  rows_.resize(1);
  rows_.front().clear();
  if (std::vector<Entry>* const entries = entries_.load()) {
    entries->resize(1);
    entries->front().clear();
  }
  return *this;
}

Insert_SQL& Insert_SQL::value_i(std::string const& column, SQL_Value const& value) {
  return store(column, SQL_Value(value));
}

// Fast when the column is the next one.
Insert_SQL& Insert_SQL::store(std::string const& column, SQL_Value&& value) {
  Row& row = rows_.back();
  std::size_t const next = row.size();
  if (next < columns_.size() && columns_[next] == column && entries_.load() == nullptr) {
    row.emplace_back(std::move(value));
  } else {
    store_anywhere(row, column, std::move(value));
  }
  return *this;
}

// Changes nothing when memory is short.
void Insert_SQL::store_anywhere(Row& row, std::string const& column, SQL_Value&& value) {
  std::size_t const listed = columns_.size();
  std::size_t const place = place_of(column);
  try {
    if (row.size() <= place) row.resize(place + 1);
    if (std::vector<Entry>* const entries = entries_.load()) entries->back().insert_or_assign(column, value);
    row[place] = std::move(value);
  } catch (std::bad_alloc const&) {
    columns_.resize(listed);
    throw;
  }
}

// The column's place in the list; a new column is appended.
std::size_t Insert_SQL::place_of(std::string const& column) {
  auto const listed = std::find(columns_.begin(), columns_.end(), column);
  auto const place = static_cast<std::size_t>(listed - columns_.begin());
  if (listed == columns_.end()) columns_.push_back(column);
  return place;
}

Insert_SQL& Insert_SQL::value(std::string const& column, Binding_Value const& value,
                              Binding_Value_Converter const* converter) {
  return store(column, column_value::convert(value, converter));
}

Insert_SQL& Insert_SQL::value(std::string const& column, Binding_Value&& value,
                              Binding_Value_Converter const* converter) {
  if (converter == nullptr) return store(column, std::move(value));
  return store(column, column_value::convert(std::move(value), converter));
}

Insert_SQL& Insert_SQL::value(std::string const& column, json_spirit::Object const& object, std::string const& key,
                              Binding_Value_Converter const* converter) {
  std::optional<Binding_Value> value = column_value::from_json(reporter(), object, key, converter);
  return value ? store(column, *std::move(value)) : *this;
}

Insert_SQL& Insert_SQL::value(json_spirit::Object const& object, std::string const& key,
                              Binding_Value_Converter const* converter) {
  return value(key, object, key, converter);
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, char const* uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, std::string const& uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, Secure_String const& uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, json_spirit::Object const& object,
                                   std::string const& key) {
  std::optional<Binding_Value> value = column_value::from_json_text(reporter(), object, key, column_value::from_uuid);
  return value ? store(column, *std::move(value)) : *this;
}

Insert_SQL& Insert_SQL::value_uuid(json_spirit::Object const& object, std::string const& key) {
  return value_uuid(key, object, key);
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, char const* hex) {
  return store(column, column_value::from_hex(hex));
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, std::string const& hex) {
  return store(column, column_value::from_hex(hex));
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, Secure_String const& hex) {
  return store(column, column_value::from_hex(hex));
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, json_spirit::Object const& object,
                                  std::string const& key) {
  std::optional<Binding_Value> value = column_value::from_json_text(reporter(), object, key, column_value::from_hex);
  return value ? store(column, *std::move(value)) : *this;
}

Insert_SQL& Insert_SQL::value_hex(json_spirit::Object const& object, std::string const& key) {
  return value_hex(key, object, key);
}

Insert_SQL& Insert_SQL::value_null(std::string const& column) { return store(column, SQL_Value()); }

Insert_SQL& Insert_SQL::value_new_uuid(std::string const& column) {
  std::optional<Binding_Value> uuid = column_value::new_uuid(reporter(), column);
  return uuid ? store(column, *std::move(uuid)) : *this;
}

Insert_SQL& Insert_SQL::value_time(std::string const& column, long long const& seconds) {
  return store(column, column_value::from_time(seconds));
}

// Stores a new statement as the column's value. When memory is short, null with errno ENOMEM, and nothing is stored.
template <class T, class... Arguments>
T* Insert_SQL::store_new(std::string const& column, Arguments... arguments) {
  return add_new<T>([&](ACE_Intrusive_Auto_Ptr<SQL> const& statement) { store(column, SQL_Value(statement)); },
                    arguments...);
}

SQL* Insert_SQL::value_sql(std::string const& column) { return store_new<SQL>(column, nullptr, TYPE_RAW, true); }

Select_SQL* Insert_SQL::value_select_sql(std::string const& column) {
  return store_new<Select_SQL>(column, nullptr, nullptr);
}

Insert_SQL& Insert_SQL::value_key(std::string const& column) {
  place_of(column);
  return *this;
}

Select_SQL* Insert_SQL::values_sql() {
  if (select_.get() != nullptr && select_->type() == TYPE_SELECT) return static_cast<Select_SQL*>(select_.get());
  return without_throwing([this] { return new_sql<Select_SQL>(select_, nullptr, nullptr); });
}

void Insert_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  if (verb(db, or_expr_) != nullptr) sql.clear();
  SQL_Writer::append(*this, db, sql, bindings, index);
}

bool Insert_SQL::is_own_class() const { return backup::is_exactly<Insert_SQL>(*this); }

// <verb> INTO `table`[(`column`,...)] <select | VALUES(value,...),...>
void Insert_SQL::write_sql(SQL_Writer& out) const {
  if (char const* const word = verb(out.db(), or_expr_)) out << word;
  out << " INTO ";
  out.name(table_);
  if (!columns_.empty()) {
    out << '(';
    out.list(columns_, [&](std::string const& column) { out.name(column); });
    out << ')';
  }
  out << ' ';
  if (select_.get() != nullptr) {
    out.part(*select_);
    return;
  }
  out << "VALUES";
  std::size_t values = 0;
  for (Row const& row : rows_) values += row.size();
  out.expect(values);
  out.list(rows_, [&](Row const& row) { write_row(out, row); });
}

// (NULL | :n | (statement),...)
void Insert_SQL::write_row(SQL_Writer& out, Row const& row) const {
  char separator = '(';
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    out << separator;
    separator = ',';
    if (column < row.size() && row[column]) {
      out.value(*row[column]);
    } else {
      out << "NULL";
    }
  }
  if (columns_.empty()) out << '(';
  out << ')';
}
