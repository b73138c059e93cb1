#include "backup/utils/sql/union_sql.h"

#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"

using backup::SQL_Writer;

Union_SQL::Union_SQL(unsigned int flags) : SQL(nullptr, TYPE_UNION, true), flags_(flags) {}

Union_SQL::Union_SQL(Union_SQL const& other) = default;
Union_SQL::~Union_SQL() = default;

Union_SQL& Union_SQL::operator=(Union_SQL const& other) {
  if (this == &other) return *this;
  Union_SQL copied(other);
  take(copied);
  flags_ = copied.flags_;
  selects_.swap(copied.selects_);
  return *this;
}

void Union_SQL::clear() {
  selects_.clear();
  SQL::clear();
}

Select_SQL* Union_SQL::add_select_sql() {
  return add_new<Select_SQL>([this](ACE_Intrusive_Auto_Ptr<SQL> const& select) { selects_.push_back(select); });
}

void Union_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::append(*this, db, sql, bindings, index);
}

bool Union_SQL::is_own_class() const { return backup::is_exactly<Union_SQL>(*this); }

// select[ UNION[ ALL] select]...
void Union_SQL::write_sql(SQL_Writer& out) const {
  char const* const keyword = (flags_ & all) != 0 ? " UNION ALL " : " UNION ";
  char const* separator = "";
  for (ACE_Intrusive_Auto_Ptr<SQL> const& select : selects_) {
    out << separator;
    out.part(*select);
    separator = keyword;
  }
}
