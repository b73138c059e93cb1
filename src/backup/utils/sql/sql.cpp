#include "backup/utils/sql/sql.h"

#include <ace/ACE.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "backup/runtime/hex_string.h"
#include "backup/runtime/uuid.h"
#include "backup/utils/sql/detail/column_value.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/question_mask_sql_converter.h"

using backup::is_set;
using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/sql";
constexpr std::size_t reserved_characters = 1024;

template <class Text>
Byte_String decode_hex(Text const& hex) {
  Byte_String bytes;
  Hex_String(hex.data(), hex.size()).get_bytes(bytes);
  return bytes;
}

void log_statement(std::string const& sql) {
  sql_log::report({source_file}, LM_DEBUG, 0, "SQL: %s\n", sql);
  sql_log::report({source_file}, LM_DEBUG, 0, "Params:\n");
}

void log_value(std::string const& name, Binding_Value const& value) {
  std::string text;
  try {
    value.to_str(text);
  } catch (std::runtime_error const& mismatch) {  // tag and value do not match: no reason to fail the rendering
    text = mismatch.what();
  }
  sql_log::report({source_file}, LM_DEBUG, 0, "%s: %s\n", name, text);
}

}  // namespace

SQL::SQL(char const* sql, Type type, bool is_static) : sql_(sql), ref_count_(0), type_(type) {
  if (!is_static) this->sql(sql, false);
}

SQL::SQL(SQL const& other)
    : sql_(other.sql_),
      extras_(other.extras_ == nullptr ? nullptr : std::make_unique<Extras>(*other.extras_)),
      ref_count_(0),
      type_(other.type_) {
  if (other.has_own_text()) sql_ = extras_->sql.get();
}

SQL::~SQL() = default;

SQL::Extras& SQL::extras() {
  if (extras_ == nullptr) extras_ = std::make_unique<Extras>();
  return *extras_;
}

void SQL::clear() {
  sql_ = nullptr;
  extras_.reset();
}

bool SQL::empty() const { return !is_set(sql_); }

void SQL::get_sql_i(Database_Type /*db*/, std::string& sql, Bindings& /*bindings*/,
                    unsigned long long& /*index*/) const {
  sql = sql_ == nullptr ? "" : sql_;
}

bool SQL::is_own_class() const { return backup::is_exactly<SQL>(*this); }

void SQL::write_sql(SQL_Writer& out) const {
  if (sql_ != nullptr) out << sql_;
}

void SQL::get_count_sql_i(Database_Type db, std::string& sql, Bindings& /*bindings*/,
                          unsigned long long& /*index*/) const {
  if (count_sql() != nullptr) {
    sql = count_sql();
    return;
  }
  sql = get_count_sql_prefix(db);
  if (sql_ != nullptr) sql += sql_;
  sql += get_count_sql_suffix(db);
  if (ACE::debug()) {
    sql_log::report({source_file}, LM_DEBUG, 0,
                    "Please use SQL::count_sql or Select_SQL to perform this count query SQL: %s\n", sql);
  }
}

SQL& SQL::operator=(SQL const& other) {
  if (this == &other) return *this;
  SQL copied(other);
  take(copied);
  return *this;
}

bool SQL::has_own_text() const { return extras_ != nullptr && sql_ != nullptr && sql_ == extras_->sql.get(); }

void SQL::take(SQL& copied) {
  if (extras_ != nullptr) {
    Extras& extras = copied.extras();
    if (!copied.has_own_text()) extras.sql.swap(extras_->sql);
    extras.count_sql.keep_copy_of(extras_->count_sql);
  }
  std::swap(sql_, copied.sql_);
  extras_.swap(copied.extras_);
  std::swap(type_, copied.type_);
}

SQL& SQL::sql(char const* text, bool is_static) {
  if (is_static || text == nullptr) {
    sql_ = text;
  } else {
    extras().sql.set(text, true);
    sql_ = extras_->sql.get();
  }
  return *this;
}

SQL& SQL::count_sql(char const* text, bool is_static) {
  if (text != nullptr || extras_ != nullptr) extras().count_sql.set(text, !is_static);
  return *this;
}

char const* SQL::sql() const { return sql_; }
char const* SQL::count_sql() const { return extras_ == nullptr ? nullptr : extras_->count_sql.get(); }
SQL::Type SQL::type() const { return type_; }

std::string& SQL::get_sql(Database_Type db, std::string& sql, Bindings& bindings) const {
  unsigned long long index = 0;
  get_sql(db, sql, bindings, index);
  if (ACE::debug()) log_sql(sql, bindings);
  return sql;
}

std::string& SQL::get_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  sql.reserve(reserved_characters);
  get_sql_i(db, sql, bindings, index);
  merge_bindings(bindings, false);
  return sql;
}

std::string& SQL::get_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const {
  bool is_converted = false;
  bool const may_append = type_ == TYPE_INSERT || type_ == TYPE_UNION;  // append to what `sql` holds
  if (is_own_class() && (sql.empty() || !may_append)) {
    sql.clear();
    sql.reserve(reserved_characters);
    is_converted = SQL_Writer::render_marks(*this, db, sql, values);
  } else {
    Bindings bindings;
    unsigned long long index = 0;
    get_sql(db, sql, bindings, index);
    is_converted = Question_Mask_SQL_Converter().convert(sql, bindings, values);
  }
  if (is_converted && ACE::debug()) log_sql(sql, values);
  return sql;
}

std::string& SQL::get_count_sql(Database_Type db, std::string& sql, Bindings& bindings) const {
  unsigned long long index = 0;
  get_count_sql(db, sql, bindings, index);
  if (ACE::debug()) log_sql(sql, bindings);
  return sql;
}

std::string& SQL::get_count_sql(Database_Type db, std::string& sql, Bindings& bindings,
                                unsigned long long& index) const {
  sql.reserve(reserved_characters);
  get_count_sql_i(db, sql, bindings, index);
  merge_bindings(bindings, count_sql() != nullptr);
  return sql;
}

std::string& SQL::get_count_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const {
  Bindings bindings;
  unsigned long long index = 0;
  get_count_sql(db, sql, bindings, index);
  if (!Question_Mask_SQL_Converter().convert(sql, bindings, values)) {
    sql_log::report({source_file}, LM_ERROR, 0, "Failed to convert SQL to question mark format: %s\n", sql);
  }
  if (ACE::debug()) log_sql(sql, values);
  return sql;
}

void SQL::merge_bindings(Bindings& bindings, bool without_paging) const {
  if (extras_ == nullptr) return;
  for (auto const& [name, value] : extras_->bindings) {
    if (without_paging && (name == ":limit" || name == ":offset")) continue;
    bindings.insert_or_assign(name, value);
  }
}

char const* SQL::get_count_sql_prefix(Database_Type db) const {
  return db == DB_MYSQL ? "SELECT COUNT(*) FROM (" : "SELECT COUNT() FROM (";
}

char const* SQL::get_count_sql_suffix(Database_Type db) const { return db == DB_MYSQL ? ") AS sum" : ")"; }

SQL& SQL::bind(std::string const& name, Binding_Value const& value) {
  extras().bindings.insert_or_assign(name, value);
  return *this;
}

SQL& SQL::bind(std::string const& name, json_spirit::Object const& object, std::string const& key) {
  json_spirit::Value const* const value = json_spirit::object_get_value(object, key);
  return value == nullptr ? *this : bind(name, Binding_Value(*value));
}

SQL& SQL::bind(json_spirit::Object const& object, std::string const& key) { return bind(':' + key, object, key); }

SQL& SQL::bind_uuid(std::string const& name, char const* uuid) {
  return bind(name, Binding_Value(uuid_string_to_binary(uuid)));
}

SQL& SQL::bind_uuid(std::string const& name, std::string const& uuid) {
  return bind(name, Binding_Value(uuid_string_to_binary(uuid)));
}

SQL& SQL::bind_uuid(std::string const& name, Secure_String const& uuid) {
  return bind(name, Binding_Value(uuid_string_to_binary_secure(uuid)));
}

SQL& SQL::bind_uuid(std::string const& name, json_spirit::Object const& object, std::string const& key) {
  std::string const* const uuid = json_spirit::object_get_str(object, key);
  return uuid == nullptr ? *this : bind_uuid(name, *uuid);
}

SQL& SQL::bind_uuid(json_spirit::Object const& object, std::string const& key) {
  return bind_uuid(':' + key, object, key);
}

SQL& SQL::bind_hex(std::string const& name, char const* hex) {
  return bind_hex(name, std::string(hex == nullptr ? "" : hex));
}

SQL& SQL::bind_hex(std::string const& name, std::string const& hex) {
  return bind(name, Binding_Value(decode_hex(hex)));
}

SQL& SQL::bind_hex(std::string const& name, Secure_String const& hex) {
  return bind(name, Binding_Value(decode_hex(hex)));
}

SQL& SQL::bind_new_uuid(std::string const& name) {
  std::optional<Binding_Value> const uuid = column_value::new_uuid({{source_file}, "", "bind"}, name);
  return uuid ? bind(name, *uuid) : *this;
}

SQL& SQL::unbind(std::string const& name) {
  if (extras_ != nullptr) extras_->bindings.erase(name);
  return *this;
}

void SQL::log_sql(std::string const& sql, Bindings const& bindings) {
  log_statement(sql);
  for (auto const& [name, value] : bindings) log_value(name, value);
}

void SQL::log_sql(std::string const& sql, std::vector<Binding_Value> const& values) {
  log_statement(sql);
  for (Binding_Value const& value : values) log_value("?", value);
}

void SQL::intrusive_add_ref(SQL* sql) {
  if (sql != nullptr) ++sql->ref_count_;
}

void SQL::intrusive_remove_ref(SQL* sql) {
  if (sql != nullptr && sql->ref_count_.value() > 0 && --sql->ref_count_ == 0) delete sql;
}

bool SQL::is_sole_reference(SQL const& sql) { return sql.ref_count_.value() == 1; }
