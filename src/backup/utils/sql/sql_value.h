#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <memory>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"

/// The value of one column in INSERT and UPDATE: a bound value, or a shared statement that is written inline.
class BACKUP_SQL_API SQL_Value {
public:
  /// Without statement; the value is null.
  SQL_Value();
  // NOLINTBEGIN(google-explicit-constructor): either stands wherever a column's value is taken
  SQL_Value(ACE_Intrusive_Auto_Ptr<SQL> const& sql);
  SQL_Value(Binding_Value const& value);
  SQL_Value(Binding_Value&& value) noexcept;
  // NOLINTEND(google-explicit-constructor)
  SQL_Value(SQL_Value const& other);
  SQL_Value(SQL_Value&& other) noexcept = default;
  SQL_Value& operator=(SQL_Value const& other);
  SQL_Value& operator=(SQL_Value&& other) noexcept = default;
  ~SQL_Value() = default;

  /// Null when the column holds a value. Owned by this object and its copies.
  SQL* sql() const { return sql_.get(); }
  Binding_Value const& val() const { return val_; }

private:
  struct Release {
    void operator()(SQL* sql) const noexcept { SQL::intrusive_remove_ref(sql); }
  };

  std::unique_ptr<SQL, Release> sql_;  // a reference of its own
  Binding_Value val_;
};
