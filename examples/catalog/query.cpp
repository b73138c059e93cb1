#include "query.h"

#include <iostream>

#include "explain.h"
#include "store_file.h"

namespace {

void print(Store& store, Select_SQL const& select, Columns const& columns, Format format) {
  unsigned long long const total = store.count(select);
  auto const offset = static_cast<unsigned long long>(select.offset());
  auto const page = page_writer(format, std::cout, columns, total, offset);
  store.query(select, [&](Store::Row const& row) {
    page->row(row);
    return true;
  });
  page->end();
}

}  // namespace

void find(Find_Options const& options) {
  auto const store = open_store(options.read.store, Access::read);
  Select_SQL const select = find_files(options.query);
  if (options.explain) {
    explain(select, std::cout);
  } else {
    print(*store, select, file_columns(), options.read.format);
  }
}

void stats(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print(*store, file_totals(), total_columns(), options.format);
}

void runs(Read_Options const& options) {
  auto const store = open_store(options.store, Access::read);
  print(*store, list_runs(), run_columns(), options.format);
}
