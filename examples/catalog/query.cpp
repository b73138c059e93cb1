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

// Prints `shown(row)` for each row.
template <class Shown>
void print(Store& store, SQL const& statement, Columns const& columns, Format format, unsigned long long total,
           unsigned long long offset, Shown shown) {
  auto const page = page_writer(format, std::cout, is_output_terminal(), columns, total, offset);
  store.query(statement, [&](Store::Row const& row) {
    page->row(shown(row));
    return std::cout.good();  // what cannot be written need not be read
  });
  page->end();
}

void print(Store& store, Select_SQL const& select, Columns const& columns, Format format) {
  auto const offset = static_cast<unsigned long long>(std::max(select.offset(), 0LL));
  print(store, select, columns, format, store.count(select), offset, as_it_is);
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
  Select_SQL const select = find_files(options.query, request, outcomes);
  for (std::string const& line : complaints(outcomes)) std::cerr << "catalog: " << line << '\n';
  if (!options.lenient && is_useless(outcomes)) {
    throw Misuse("nothing listed: no part of the request can be used; known keys are " + request_keys() +
                 "; --lenient lists without it");
  }
  auto const store = open_store(options.read.store, Access::read);
  print(*store, select, file_columns(), options.read.format);
}

void explain_find(Find_Options const& options) {
  Request const request = read_request(options.request);
  Key_Outcomes outcomes;
  Select_SQL const select = find_files(options.query, request, outcomes);
  explain(outcomes, select, std::cout);
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
  unsigned long long const total = store->count(added) + store->count(removed);
  removed.sort_by("path", false);  // the order of the last SELECT is the union's
  print(*store, both, change_columns(), options.read.format, total, 0, as_it_is);
}

void stats(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  Select_SQL const totals = file_totals();
  print(*store, totals, total_columns(), options.format, store->count(totals), 0, with_whole_sum);
}

void runs(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print(*store, list_runs(), run_columns(), options.format);
}
