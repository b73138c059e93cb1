#include "backup/utils/sql/update_sql.h"

#include <optional>
#include <utility>

#include "backup/utils/sql/detail/column_value.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/select_sql.h"

using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/update_sql";

column_value::Reporter reporter(int line = __builtin_LINE()) { return {{source_file, line}, "update", "set"}; }

}  // namespace

Update_SQL::Update_SQL(char const* table) : Where_SQL(nullptr, TYPE_UPDATE), table_(table) {}

Update_SQL::Update_SQL(Update_SQL const& other) = default;
Update_SQL::~Update_SQL() = default;

Update_SQL& Update_SQL::operator=(Update_SQL const& other) {
  if (this == &other) return *this;
  Update_SQL copied(other);
  take(copied);
  table_ = copied.table_;
  assignments_.swap(copied.assignments_);
  return *this;
}

void Update_SQL::clear() {
  table_ = nullptr;
  assignments_.clear();
  Where_SQL::clear();
}

bool Update_SQL::empty() const { return assignments_.empty(); }

Update_SQL& Update_SQL::table(char const* name) {
  table_ = name;
  return *this;
}

Update_SQL& Update_SQL::where(char const* text) {
  Where_SQL::where(text, false);
  return *this;
}

Update_SQL& Update_SQL::store(std::string const& column, SQL_Value&& value) {
  assignments_.insert_or_assign(column, std::move(value));
  return *this;
}

Update_SQL& Update_SQL::set(std::string const& column, Binding_Value const& value,
                            Binding_Value_Converter const* converter) {
  return store(column, column_value::convert(value, converter));
}

Update_SQL& Update_SQL::set(std::string const& column, Binding_Value&& value,
                            Binding_Value_Converter const* converter) {
  return store(column, column_value::convert(std::move(value), converter));
}

Update_SQL& Update_SQL::set(std::string const& column, json_spirit::Object const& object, std::string const& key,
                            Binding_Value_Converter const* converter) {
  std::optional<Binding_Value> value = column_value::from_json(reporter(), object, key, converter);
  return value ? store(column, *std::move(value)) : *this;
}

Update_SQL& Update_SQL::set(json_spirit::Object const& object, std::string const& key,
                            Binding_Value_Converter const* converter) {
  return set(key, object, key, converter);
}

Update_SQL& Update_SQL::set_uuid(std::string const& column, char const* uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Update_SQL& Update_SQL::set_uuid(std::string const& column, std::string const& uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Update_SQL& Update_SQL::set_uuid(std::string const& column, Secure_String const& uuid) {
  return store(column, column_value::from_uuid(uuid));
}

Update_SQL& Update_SQL::set_uuid(std::string const& column, json_spirit::Object const& object, std::string const& key) {
  std::optional<Binding_Value> value = column_value::from_json_text(reporter(), object, key, column_value::from_uuid);
  return value ? store(column, *std::move(value)) : *this;
}

Update_SQL& Update_SQL::set_uuid(json_spirit::Object const& object, std::string const& key) {
  return set_uuid(key, object, key);
}

Update_SQL& Update_SQL::set_new_uuid(std::string const& column) {
  std::optional<Binding_Value> uuid = column_value::new_uuid(reporter(), column);
  return uuid ? store(column, *std::move(uuid)) : *this;
}

Update_SQL& Update_SQL::set_time(std::string const& column, long long const& seconds) {
  return store(column, column_value::from_time(seconds));
}

// Stores a new statement as the column's value. When memory is short, null with errno ENOMEM, and nothing is stored.
template <class T, class... Arguments>
T* Update_SQL::store_new(std::string const& column, Arguments... arguments) {
  return add_new<T>([&](ACE_Intrusive_Auto_Ptr<SQL> const& statement) { store(column, SQL_Value(statement)); },
                    arguments...);
}

SQL* Update_SQL::set_sql(std::string const& column) { return store_new<SQL>(column, nullptr, TYPE_RAW, true); }

Select_SQL* Update_SQL::set_select_sql(std::string const& column) {
  return store_new<Select_SQL>(column, nullptr, nullptr);
}

void Update_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Update_SQL::is_own_class() const { return backup::is_exactly<Update_SQL>(*this); }

// UPDATE `table` SET `column`=<:n | (statement)>,...[ WHERE ...]
void Update_SQL::write_sql(SQL_Writer& out) const {
  out << "UPDATE ";
  out.name(table_);
  out << " SET ";
  out.list(assignments_, [&](auto const& assignment) {
    out.name(assignment.first);
    out << '=';
    out.value(assignment.second);
  });
  write_where(out);
}
