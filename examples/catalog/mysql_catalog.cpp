#include "mysql_catalog.h"

#include <cstdlib>
#include <stdexcept>

#include "backup/store/mysql_store.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "made.h"
#include "schema.h"

namespace {

using json_spirit::Array;

// The table with the schema's version. It is made last, so a database that has it has the whole schema.
constexpr char const* mark = "catalog_schema";

// Of the database's tables, those in the list or those that are not.
unsigned long long count_tables(Store& store, Item_SQL::Item_Op in_or_not, Array const& names) {
  Select_SQL tables;
  tables.from("information_schema.tables").count("*");
  Filter_SQL& filter = made(tables.and_filter());
  filter.add_sql("table_schema=DATABASE()", false);
  in_or_not == Item_SQL::OP_IN ? filter.add_in_item("table_name", names, 0)
                               : filter.add_not_in_item("table_name", names, 0);
  return store.count(tables);
}

bool is_marked(Store& store) { return count_tables(store, Item_SQL::OP_IN, {mark}) > 0; }

// Statements that change a schema are no transaction: what a dead process left half made is completed.
void create_if_empty(Store& store) {
  if (is_marked(store)) return;
  store.run("DO GET_LOCK(CONCAT('catalog ',DATABASE()),60)");  // until this connection ends
  if (is_marked(store) || count_tables(store, Item_SQL::OP_NI, {"hosts", "runs", "files"}) > 0) return;
  create_schema(store);
  store.run(std::string("CREATE TABLE ") + mark + " AS SELECT " + std::to_string(schema_version) + " AS version");
}

void check_catalog(Store& store, std::string const& url) {
  if (!is_marked(store)) throw std::runtime_error(url + " is no catalogue");
  Select_SQL version(mark);
  version.add_key("version", nullptr);
  check_version(store.rows(version).at(0).at(0).val().get_int64(), url);
}

}  // namespace

std::unique_ptr<Store> open_mysql_catalog(std::string const& url, Access access) {
  char const* const password = std::getenv("MYSQL_PWD");
  auto store = std::make_unique<MySQL_Store>(url, password == nullptr ? "" : password);
  // Of each text only so much is sorted by; paths are longer than what a server begins with.
  store->run("SET SESSION max_sort_length=65535");
  if (access == Access::create) create_if_empty(*store);
  if (access == Access::read) store->run("SET SESSION TRANSACTION READ ONLY");
  check_catalog(*store, url);
  return store;
}
