#include "backup/utils/sql/sql_value.h"

#include <utility>

SQL_Value::SQL_Value() = default;
SQL_Value::SQL_Value(ACE_Intrusive_Auto_Ptr<SQL> const& sql) : sql_(sql.get()) { SQL::intrusive_add_ref(sql_.get()); }
SQL_Value::SQL_Value(Binding_Value const& value) : val_(value) {}
SQL_Value::SQL_Value(Binding_Value&& value) noexcept : val_(std::move(value)) {}
SQL_Value::SQL_Value(SQL_Value const& other) : val_(other.val_) {
  SQL::intrusive_add_ref(other.sql());
  sql_.reset(other.sql());
}

SQL_Value& SQL_Value::operator=(SQL_Value const& other) { return *this = SQL_Value(other); }
