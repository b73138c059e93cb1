#include "questions.h"

#include <algorithm>
#include <cstddef>

#include "made.h"

namespace {

// A column without an expression is the number of files of the run `r`.
void add_keys(Select_SQL& select, Columns const& columns) {
  for (Column const& column : columns) {
    if (column.expression != nullptr) {
      select.add_key(column.expression, column.name);
    } else {
      made(select.add_sql_key(column.name)).select("COUNT(*)").table("files", "f").where("f.run_id=r.id", false);
    }
  }
}

void join_run_and_host(Select_SQL& files) {
  files.inner_join("runs", "r", "r.id=f.run_id").inner_join("hosts", "h", "h.id=r.host_id");
}

// The expression of the column `name`; `name` is one of them.
char const* expression_of(std::string const& name, Columns const& columns) {
  return std::find_if(columns.begin(), columns.end(), [&](Column const& c) { return name == c.name; })->expression;
}

// Only expressions of the program's own reach the statement: a sort key is SQL text, not a value.
void sort_files(Select_SQL& select, File_Query const& query) {
  for (std::size_t i = 0; i < query.sort.size(); ++i) {
    bool const descending = i < query.order.size() && query.order[i] == "desc";
    select.sort_by(expression_of(query.sort[i], file_columns()), descending);
  }
  if (std::find(query.sort.begin(), query.sort.end(), "path") == query.sort.end()) select.sort_by("f.path", false);
  select.sort_by("f.id", false);
}

}  // namespace

Columns const& file_columns() {
  static Columns const columns{{"f.name", "name", Cell::text},   {"f.kind", "kind", Cell::kind},
                               {"f.size", "size", Cell::number}, {"f.modified", "modified", Cell::time},
                               {"f.owner", "owner", Cell::text}, {"h.name", "host", Cell::text},
                               {"f.path", "path", Cell::text}};
  return columns;
}

Columns const& run_columns() {
  static Columns const columns{{"r.id", "id", Cell::uuid},
                               {"h.name", "host", Cell::text},
                               {"COALESCE(e.state,1)", "state", Cell::state},  // 1: running
                               {nullptr, "files", Cell::number},
                               {"r.started", "started", Cell::time},
                               {"e.ended", "ended", Cell::time},
                               {"r.directory", "directory", Cell::text}};
  return columns;
}

Columns const& total_columns() {
  static Columns const columns{{"h.name", "host", Cell::text},
                               {"f.kind", "kind", Cell::kind},
                               {"COUNT(*)", "files", Cell::number},
                               {"SUM(f.size)", "bytes", Cell::number}};
  return columns;
}

Select_SQL find_files(File_Query const& query) {
  Select_SQL select("files", "f");
  add_keys(select, file_columns());
  join_run_and_host(select);
  Filter_SQL& filter = made(select.and_filter());
  if (query.name) filter.add_substr_matching("f.name", *query.name);
  if (query.min_size) filter.add_kv_item(Item_SQL::OP_GE, "f.size", *query.min_size, 0);
  if (query.kind) filter.add_kv_eq_item("f.kind", static_cast<int>(*query.kind));
  if (query.host) filter.add_kv_eq_item("h.name", *query.host);
  sort_files(select, query);
  select.limit(query.limit).offset(query.offset);
  return select;
}

Select_SQL list_runs() {
  Select_SQL select("runs", "r");
  add_keys(select, run_columns());
  select.inner_join("hosts", "h", "h.id=r.host_id").left_join("run_ends", "e", "e.run_id=r.id");
  select.sort_by("r.started", false).sort_by("r.directory", false).sort_by("r.id", false);
  return select;
}

Select_SQL file_totals() {
  Select_SQL select("files", "f");
  add_keys(select, total_columns());
  join_run_and_host(select);
  select.group_by("h.name,f.kind", false).sort_by("h.name", false).sort_by("f.kind", false);
  return select;
}
