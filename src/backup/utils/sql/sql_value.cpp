#include "backup/utils/sql/sql_value.h"

#include <utility>

SQL_Value::SQL_Value() = default;
SQL_Value::SQL_Value(ACE_Intrusive_Auto_Ptr<SQL> const& sql) : sql_(sql) {}
SQL_Value::SQL_Value(Binding_Value const& value) : val_(value) {}
SQL_Value::SQL_Value(Binding_Value&& value) noexcept : val_(std::move(value)) {}

SQL* SQL_Value::sql() const { return sql_.get(); }
Binding_Value const& SQL_Value::val() const { return val_; }
