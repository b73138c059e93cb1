#include "questions.h"

#include <algorithm>
#include <cstddef>

#include "exact_sum.h"
#include "made.h"
#include "misuse.h"
#include "option_values.h"

namespace {

constexpr long long files_per_page = 20;
constexpr std::size_t total_bytes = 3;  // its place in total_columns()

constexpr char const* run_state =
    "CASE WHEN r.ended IS NULL THEN 'running' WHEN r.complete THEN 'complete' ELSE 'interrupted' END";

// A column without an expression is the number of files of the run `r`.
void add_keys(Select_SQL& select, Columns const& columns) {
  for (Column const& column : columns) {
    if (column.expression != nullptr) {
      select.add_key(column.expression, column.name);
    } else {
      made(select.add_sql_key(column.name)).select("COUNT(*)").table("files", "f").where("f.run_uuid=r.id", false);
    }
  }
}

// Each file has a run and each run a host, so inner joins would give the same rows. With them, however, MariaDB would
// begin with the hosts, and sort the files of a run in a temporary table.
void join_run_and_host(Select_SQL& files) {
  files.left_join("runs", "r", "r.id=f.run_uuid").left_join("hosts", "h", "h.id=r.host_uuid");
}

// The same rows. With a condition on a run or a host MariaDB makes the joins inner ones: this sets their order.
void join_run_and_host(Select_SQL& files, SQL::Database_Type db, bool asks_of_runs) {
  if (db != SQL::DB_MYSQL || !asks_of_runs) return join_run_and_host(files);
  files.from(
      "`files` `f` STRAIGHT_JOIN `runs` `r` FORCE INDEX (PRIMARY) ON r.id=f.run_uuid"
      " STRAIGHT_JOIN `hosts` `h` FORCE INDEX (PRIMARY) ON h.id=r.host_uuid");
}

bool asks_of_runs(Key_Outcomes const& outcomes) {
  return std::any_of(outcomes.begin(), outcomes.end(), [](Key_Outcome const& o) { return o.asks_of_runs; });
}

// The expression of the column `name`, which exists.
char const* expression_of(std::string const& name, Columns const& columns) {
  return std::find_if(columns.begin(), columns.end(), [&](Column const& c) { return name == c.name; })->expression;
}

// Keys and orders of `query` win over the request's. A sort key is SQL text, not a value, so only the program's own
// expressions reach the statement.
void sort_files(Select_SQL& select, File_Query const& query, SQL_Filter_Parser const& request) {
  std::string keys = request.controls().sort() == nullptr ? "f.path" : *request.controls().sort();
  select.sort_by("f.path", false);
  request.control(select);
  if (!query.sort.empty()) {
    Words expressions;
    for (std::string const& name : query.sort) expressions.emplace_back(expression_of(name, file_columns()));
    keys = joined(expressions);
    select.sort_keys(keys.c_str());
  }
  auto const key_count = static_cast<std::size_t>(std::count(keys.begin(), keys.end(), ',')) + 1;
  if (query.order.size() > key_count) throw Misuse("--order: more orders than sort keys");
  if (!query.order.empty()) select.sort_orders(joined(query.order).c_str());
  if (keys.find("f.path") == std::string::npos) select.sort_by("f.path", false);
  select.sort_by("f.id", false);
}

}  // namespace

Columns const& file_columns() {
  static Columns const columns{{"f.name", "name", Cell::text},       {"f.kind", "kind", Cell::kind},
                               {"f.size", "size", Cell::number},     {"f.modified", "modified", Cell::time},
                               {"f.retired", "retired", Cell::text}, {"f.owner", "owner", Cell::text},
                               {"h.name", "host", Cell::text},       {"f.path", "path", Cell::text}};
  return columns;
}

Columns const& run_columns() {
  static Columns const columns{
      {"r.id", "id", Cell::uuid},       {"h.name", "host", Cell::text},           {run_state, "state", Cell::text},
      {nullptr, "files", Cell::number}, {"r.left_out", "left_out", Cell::number}, {"r.started", "started", Cell::time},
      {"r.ended", "ended", Cell::time}, {"r.directory", "directory", Cell::text}};
  return columns;
}

Columns const& total_columns() {
  static Columns const columns{{"h.name", "host", Cell::text},
                               {"f.kind", "kind", Cell::kind},
                               {"COUNT(*)", "files", Cell::number},
                               {"SUM(f.size>>32)", "bytes", Cell::number},
                               {"COUNT(f.retired)", "retired", Cell::number}};
  return columns;
}

Columns const& change_columns() {
  static Columns const columns{{nullptr, "change", Cell::text},
                               {"f.path", "path", Cell::text},
                               {"f.kind", "kind", Cell::kind},
                               {"f.size", "size", Cell::number}};
  return columns;
}

File_Statements find_files(File_Query const& query, Request const& request, SQL::Database_Type db,
                           Key_Outcomes& outcomes) {
  Select_SQL select("files", "f");
  add_keys(select, file_columns());
  Filter_SQL& filter = made(select.and_filter());
  SQL_Filter_Parser const parser = add_request(request, filter, outcomes);
  if (query.name) filter.add_substr_matching("f.name", *query.name);
  if (query.min_size) filter.add_kv_item(Item_SQL::OP_GE, "f.size", *query.min_size, Filter_SQL::no_flags);
  if (query.kind) filter.add_kv_eq_item("f.kind", static_cast<int>(*query.kind));
  if (query.host) filter.add_kv_eq_item("h.name", *query.host);
  bool const is_of_runs = query.host || asks_of_runs(outcomes);
  Select_SQL all(select);  // the same conditions
  all.count("*");
  if (is_of_runs) join_run_and_host(all, db, true);
  join_run_and_host(select, db, is_of_runs);
  select.limit(files_per_page);
  sort_files(select, query, parser);
  if (query.limit) select.limit(*query.limit);
  if (query.offset) select.offset(*query.offset);
  return {select, all};
}

Select_SQL find_ids(Request const& request, SQL::Database_Type db, bool retired, Key_Outcomes& outcomes) {
  Select_SQL select("files", "f");
  select.add_key("f.id", nullptr);
  Filter_SQL& filter = made(select.and_filter());
  add_request(request, filter, outcomes);
  join_run_and_host(select, db, asks_of_runs(outcomes));
  retired ? filter.add_not_null_item("f.retired") : filter.add_null_item("f.retired");
  return select;
}

void find_added(Select_SQL& files, SQL::Database_Type db, char const* word, std::string const& from,
                std::string const& to) {
  // MySQL would look up each path by its first bytes, which are the same in a deep directory.
  char const* const identity = db == SQL::DB_MYSQL ? "SHA2(files.path,256)" : "files.path";
  for (Column const& column : change_columns()) {
    files.add_key(column.expression == nullptr ? word : column.expression, column.name);
  }
  files.count("*");
  Select_SQL& found = made(files.sql_table("f"));
  found.table("files", nullptr).add_key("path", nullptr).add_key("kind", nullptr).add_key("size", nullptr);
  found.add_key(identity, "identity");
  made(found.and_filter()).add_key_uuid_eq_item("run_uuid", to);
  Select_SQL& known = made(made(files.and_filter()).add_key_select_sql_not_in_item("f.identity"));
  known.table("files", nullptr).add_key(identity, nullptr);
  made(known.and_filter()).add_key_uuid_eq_item("run_uuid", from);
}

Select_SQL list_runs() {
  Select_SQL select("runs", "r");
  add_keys(select, run_columns());
  select.inner_join("hosts", "h", "h.id=r.host_uuid");
  select.sort_by("r.started", false).sort_by("r.directory", false).sort_by("r.id", false);
  return select;
}

Select_SQL file_totals() {
  Select_SQL select("files", "f");
  add_keys(select, total_columns());
  select.add_key("SUM(f.size&4294967295)", "low_bytes");
  join_run_and_host(select);
  select.group_by("h.name,f.kind", false).sort_by("h.name", false).sort_by("f.kind", false);
  return select;
}

backup::Store::Row with_whole_sum(backup::Store::Row row) {
  Exact_Sum bytes;
  bytes.add(row[total_bytes].val().get_uint64(), 32);
  bytes.add(row.back().val().get_uint64());
  row[total_bytes] = bytes.value();
  row.pop_back();
  return row;
}
