#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <cstdint>
#include <string>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"

/// SELECTs joined by UNION or UNION ALL, in order of addition, without parentheses. The union has no ORDER BY or LIMIT.
/// Shape: "SELECT * FROM `a` UNION ALL SELECT * FROM `b`". Parameter names stay unique across the members.
///
/// `empty()` is the base's: always true. The count query is the base's too and ignores the members.
class BACKUP_SQL_API Union_SQL : public SQL {
public:
  enum Flags : std::uint32_t {
    distinct = 0,  ///< UNION
    all = 1        ///< UNION ALL
  };

  /// Other bits are not used.
  explicit Union_SQL(unsigned int flags);
  /// Copies share the members.
  Union_SQL(Union_SQL const& other);
  ~Union_SQL() override;
  Union_SQL& operator=(Union_SQL const& other);

  /// Drops the members; the flags stay.
  void clear() override;
  /// Deliberately appends to what `sql` holds. Only this and INSERT's for an unknown dialect do not replace it.
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  /// Adds an empty member, which the caller fills and the union owns. When memory is short, null with errno ENOMEM; the
  /// union is unchanged, and nothing is logged.
  Select_SQL* add_select_sql();

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  unsigned int flags_;
  std::vector<ACE_Intrusive_Auto_Ptr<SQL>> selects_;
};
