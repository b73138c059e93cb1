#include "query.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>

#include "backup/utils/sql/union_sql.h"
#include "explain.h"
#include "made.h"
#include "open_store.h"

namespace {

void print(Store& store, SQL const& statement, Page_Writer& page) {
  store.query(statement, [&](Store::Row const& row) {
    page.row(row);
    return true;
  });
  page.end();
}

void print(Store& store, Select_SQL const& select, Columns const& columns, Format format) {
  auto const offset = static_cast<unsigned long long>(std::max(select.offset(), 0LL));
  print(store, select, *page_writer(format, std::cout, columns, store.count(select), offset));
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
  auto const store = open_store(options.read.store, Access::read);
  for (std::string const& line : complaints(outcomes)) std::cerr << "catalog: " << line << '\n';
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
  Union_SQL both(1);
  Select_SQL& added = made(both.add_select_sql());
  find_added(added, "'added'", options.from, options.to);
  Select_SQL& removed = made(both.add_select_sql());
  find_added(removed, "'removed'", options.to, options.from);
  unsigned long long const total = store->count(added) + store->count(removed);
  removed.sort_by("path", false);  // the order of the last SELECT is the union's
  print(*store, both, *page_writer(options.read.format, std::cout, change_columns(), total, 0));
}

void stats(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  Select_SQL const totals = file_totals();
  auto const page = page_writer(options.format, std::cout, total_columns(), store->count(totals), 0);
  store->query(totals, [&](Store::Row const& row) {
    page->row(with_whole_sum(row));
    return true;
  });
  page->end();
}

void runs(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print(*store, list_runs(), run_columns(), options.format);
}
