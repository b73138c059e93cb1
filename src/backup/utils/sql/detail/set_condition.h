#pragma once

#include <string>

#include "backup/utils/sql/filter_sql.h"
#include "json_spirit/json_spirit.h"

namespace backup {

/// Adds IN or NOT IN with a list to `filter`. With `is_uuid` its texts are uuids.
inline void add_set_condition(Filter_SQL& filter, std::string const& column, json_spirit::Array const& list, bool in,
                              bool is_uuid) {
  if (is_uuid) {
    in ? filter.add_in_uuid_item(column, list) : filter.add_not_in_uuid_item(column, list);
  } else {
    in ? filter.add_in_item(column, list, Filter_SQL::no_flags)
       : filter.add_not_in_item(column, list, Filter_SQL::no_flags);
  }
}

}  // namespace backup
