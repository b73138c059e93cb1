#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <string>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"

/// Base of the statements with a WHERE clause: a raw text, or one top-level filter.
///
/// A raw text that is not empty wins over the filter; the filter's values are not bound then. A filter without
/// conditions renders as " WHERE 1" (AND) or " WHERE 0" (OR). Without text and filter there is no clause.
class BACKUP_SQL_API Where_SQL : public SQL {
public:
  /// `text` is kept by pointer.
  Where_SQL(char const* text, Type type);
  /// Copies share the filter: a condition added through one shows in both.
  Where_SQL(Where_SQL const& other);
  ~Where_SQL() override;
  Where_SQL& operator=(Where_SQL const& other);

  void clear() override;

  /// With `copy` keeps a copy of the text, otherwise the pointer.
  Where_SQL& where(char const* text, bool copy);

  /// The top-level filter, owned by this statement and its copies, or null.
  Filter_SQL* filter() const;
  /// The top-level filter, if it is of this kind. Otherwise a new one replaces it, and its conditions are dropped. When
  /// memory is short, null with errno ENOMEM, and nothing changes.
  Filter_SQL* and_filter();
  Filter_SQL* or_filter();

  /// Replaces `sql` by the clause with its leading " WHERE ", or by nothing. Returns `sql`.
  std::string& get_where_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;

protected:
  /// As `SQL::take`.
  void take(Where_SQL& copied);
  void write_where(backup::SQL_Writer& out) const;

private:
  template <class T>
  Filter_SQL* filter_of_type(Filter_SQL::Filter_Type type);

  backup::SQL_Text where_;
  ACE_Intrusive_Auto_Ptr<SQL> filter_;
};
