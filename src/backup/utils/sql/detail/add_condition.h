#pragma once

#include <new>
#include <string>

#include "backup/utils/sql/filter_sql.h"
#include "json_spirit/json_spirit.h"

namespace backup {

/// Throws std::bad_alloc for null, an adder's sign of short memory. Without that condition a filter would choose more
/// rows.
inline void require_added(SQL const* condition) {
  if (condition == nullptr) throw std::bad_alloc();
}

/// Adds IN or NOT IN with a list to `filter`. With `is_uuid` its texts are uuids.
inline void add_set_condition(Filter_SQL& filter, std::string const& column, json_spirit::Array const& list, bool in,
                              bool is_uuid) {
  if (is_uuid) {
    require_added(in ? filter.add_in_uuid_item(column, list) : filter.add_not_in_uuid_item(column, list));
  } else {
    require_added(in ? filter.add_in_item(column, list, Filter_SQL::no_flags)
                     : filter.add_not_in_item(column, list, Filter_SQL::no_flags));
  }
}

}  // namespace backup
