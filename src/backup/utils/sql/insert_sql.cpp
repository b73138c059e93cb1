#include "backup/utils/sql/insert_sql.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

#include "backup/utils/sql/detail/column_value.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/select_sql.h"

namespace {

constexpr char const* source_file = "src/backup/utils/sql/insert_sql";

column_value::Reporter reporter(int line = __builtin_LINE()) { return {{source_file, line}, "insert", "add"}; }

// The dialect's verb; null where none is written.
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

Insert_SQL::Insert_SQL(Insert_SQL const& other) = default;

Insert_SQL& Insert_SQL::operator=(Insert_SQL const& other) {
  Insert_SQL const replaced(*this);  // `other` may be a part of it
  SQL::operator=(other);
  table_ = other.table_;
  or_expr_ = other.or_expr_;
  columns_ = other.columns_;
  entries_ = other.entries_;
  select_ = other.select_;
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
  entries_.emplace_back();
  return *this;
}

std::vector<Insert_SQL::Entry> const& Insert_SQL::entries() const { return entries_; }

Insert_SQL& Insert_SQL::clear_entries() {
  entries_.resize(1);
  entries_.front().clear();
  return *this;
}

Insert_SQL& Insert_SQL::value_i(std::string const& column, SQL_Value const& value) {
  return store(column, SQL_Value(value));
}

// Changes nothing when memory runs short.
Insert_SQL& Insert_SQL::store(std::string const& column, SQL_Value&& value) {
  std::size_t const listed = columns_.size();
  add_column(column);
  try {
    entries_.back().insert_or_assign(column, std::move(value));
  } catch (std::bad_alloc const&) {
    columns_.resize(listed);
    throw;
  }
  return *this;
}

// Rows are mostly filled in the order of the columns, so the one after the row's last is looked at before the others.
void Insert_SQL::add_column(std::string const& column) {
  std::size_t const next = entries_.back().size();
  if (next < columns_.size() && columns_[next] == column) return;
  if (std::find(columns_.begin(), columns_.end(), column) == columns_.end()) columns_.push_back(column);
}

Insert_SQL& Insert_SQL::value(std::string const& column, Binding_Value const& value,
                              Binding_Value_Converter const* converter) {
  return store(column, column_value::convert(value, converter));
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
  Binding_Value_UUID_Converter const converter;
  return value(column, uuid, &converter);
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, std::string const& uuid) {
  Binding_Value_UUID_Converter const converter;
  return value(column, uuid, &converter);
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, Secure_String const& uuid) {
  Binding_Value_UUID_Converter const converter;
  return value(column, uuid, &converter);
}

Insert_SQL& Insert_SQL::value_uuid(std::string const& column, json_spirit::Object const& object,
                                   std::string const& key) {
  Binding_Value_UUID_Converter const converter;
  std::optional<Binding_Value> value = column_value::from_json_text(reporter(), object, key, converter);
  return value ? store(column, *std::move(value)) : *this;
}

Insert_SQL& Insert_SQL::value_uuid(json_spirit::Object const& object, std::string const& key) {
  return value_uuid(key, object, key);
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, char const* hex) {
  Binding_Value_Hex_Converter const converter;
  return value(column, hex, &converter);
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, std::string const& hex) {
  Binding_Value_Hex_Converter const converter;
  return value(column, hex, &converter);
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, Secure_String const& hex) {
  Binding_Value_Hex_Converter const converter;
  return value(column, hex, &converter);
}

Insert_SQL& Insert_SQL::value_hex(std::string const& column, json_spirit::Object const& object,
                                  std::string const& key) {
  Binding_Value_Hex_Converter const converter;
  std::optional<Binding_Value> value = column_value::from_json_text(reporter(), object, key, converter);
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

// A new statement as the column's value. Null with errno ENOMEM and nothing stored when memory is short.
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
  add_column(column);
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

bool Insert_SQL::is_own_class() const { return is_exactly<Insert_SQL>(*this); }

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
  std::vector<std::size_t> order(columns_.size());  // of the columns by name, which is that of an entry
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) { return columns_[a] < columns_[b]; });
  std::vector<SQL_Value const*> row(columns_.size());
  std::size_t values = 0;
  for (Entry const& entry : entries_) values += entry.size();
  out.expect(values);
  out.list(entries_, [&](Entry const& entry) {
    auto value = entry.begin();
    bool const is_full = entry.size() == columns_.size();
    for (std::size_t const column : order) {
      bool const has_value = is_full || (value != entry.end() && value->first == columns_[column]);
      row[column] = has_value ? &(value++)->second : nullptr;
    }
    write_row(out, row);
  });
}

// (NULL | :n | (statement),...)
void Insert_SQL::write_row(SQL_Writer& out, std::vector<SQL_Value const*> const& row) {
  out << '(';
  out.list(row, [&](SQL_Value const* value) {
    if (value == nullptr) {
      out << "NULL";
    } else {
      out.value(*value);
    }
  });
  out << ')';
}
