#include "query.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>

#include "backup/utils/sql/union_sql.h"
#include "explain.h"
#include "made.h"
#include "misuse.h"
#include "open_store.h"
#include "standard_output.h"

using backup::Store;

namespace {

Store::Row const& as_it_is(Store::Row const& row) { return row; }

// Prints `shown(row)` for each row of `statement`; a negative `limit` means none. A page that ends before its limit
// gives the number of all rows; otherwise `all` counts them. JSON begins with that number and holds back only so many
// rows: for a longer page it is counted first, because a store cannot count while it gives rows.
template <class Shown>
void print(Store& store, SQL const& statement, Total const& all, Columns const& columns, Format format, long long limit,
           unsigned long long offset, Shown shown) {
  Total total = [&](unsigned long long rows) {
    bool const is_last = limit < 0 || rows < static_cast<unsigned long long>(limit);
    return is_last && (rows > 0 || offset == 0) ? offset + rows : all(rows);
  };
  bool const holds_all = limit >= 0 && static_cast<unsigned long long>(limit) <= most_held_rows;
  if (format == Format::json && !holds_all) total = [number = all(0)](unsigned long long) { return number; };
  auto const page = page_writer(format, std::cout, is_output_terminal(), columns, total, offset);
  store.query(statement, [&](Store::Row const& row) {
    page->row(shown(row));
    return std::cout.good();  // after a failed write the other rows need not be read
  });
  page->end();
}

// Prints all rows of `select`.
template <class Shown>
void print_all(Store& store, Select_SQL const& select, Columns const& columns, Format format, Shown shown) {
  auto const all = [&](unsigned long long) { return store.count(select); };
  print(store, select, all, columns, format, -1, 0, shown);
}

void require_run(Store& store, Read_Options const& options, std::string const& run) {
  Select_SQL runs("runs");
  made(runs.and_filter()).add_key_uuid_eq_item("id", run);
  if (store.count(runs) == 0) throw std::runtime_error("no run " + run + " in " + options.store);
}

}  // namespace

void find(Find_Options const& options) {
  if (options.explain) return explain_find(options);
  Request const request = read_request(options.request);
  Key_Outcomes outcomes;
  File_Statements const files = find_files(options.query, request, dialect_of(options.read.store), outcomes);
  for (std::string const& line : complaints(outcomes)) std::cerr << "catalog: " << line << '\n';
  if (!options.lenient && is_useless(outcomes)) {
    throw Misuse("nothing listed: no part of the request can be used; known keys are " + request_keys() +
                 "; --lenient lists without it");
  }
  auto const store = open_store(options.read.store, Access::read);
  auto const all = [&](unsigned long long) { return store->count(files.all); };
  auto const offset = static_cast<unsigned long long>(std::max(files.page.offset(), 0LL));
  print(*store, files.page, all, file_columns(), options.read.format, files.page.limit(), offset, as_it_is);
}

void explain_find(Find_Options const& options) {
  Request const request = read_request(options.request);
  for (SQL::Database_Type const db : {SQL::DB_MYSQL, SQL::DB_SQLITE}) {
    Key_Outcomes outcomes;
    File_Statements const files = find_files(options.query, request, db, outcomes);
    if (db == SQL::DB_MYSQL) explain(outcomes, std::cout);
    explain(files, db, std::cout);
  }
}

void changes(Changes_Options const& options) {
  auto const store = open_store(options.read.store, Access::read);
  require_run(*store, options.read, options.from);
  require_run(*store, options.read, options.to);
  Union_SQL both(Union_SQL::all);
  Select_SQL& added = made(both.add_select_sql());
  find_added(added, store->dialect(), "'added'", options.from, options.to);
  Select_SQL& removed = made(both.add_select_sql());
  find_added(removed, store->dialect(), "'removed'", options.to, options.from);
  removed.sort_by("path", false);  // the order of the last SELECT is the union's
  auto const all = [&](unsigned long long) { return store->count(added) + store->count(removed); };
  print(*store, both, all, change_columns(), options.read.format, -1, 0, as_it_is);
}

void stats(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print_all(*store, file_totals(), total_columns(), options.format, with_whole_sum);
}

void runs(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print_all(*store, list_runs(), run_columns(), options.format, as_it_is);
}
