#include "mysql_catalog.h"

#include <cstdlib>
#include <optional>

#include "backup/store/mysql_store.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "made.h"
#include "open_store.h"
#include "schema.h"

namespace {

// The table that tells whose database it is. It is made first, and has the schema's version once the schema is whole.
constexpr char const* mark = "catalog_schema";

// Tables of the database, or of them the one with the name.
unsigned long long count_tables(Store& store, char const* name = nullptr) {
  Select_SQL tables;
  tables.from("information_schema.tables").count("*");
  Filter_SQL& filter = made(tables.and_filter());
  filter.add_sql("table_schema=DATABASE()", false);
  if (name != nullptr) filter.add_kv_eq_item("table_name", name);
  return store.count(tables);
}

// None when the database is no catalogue, or one that is not whole.
std::optional<long long> version_of(Store& store) {
  if (count_tables(store, mark) == 0) return std::nullopt;
  Select_SQL version(mark);
  auto const rows = store.rows(version.add_key("version", nullptr));
  if (rows.empty()) return std::nullopt;
  return rows.front().front().val().get_int64();
}

// Statements that change a schema are no transaction: what a dead process left half made is completed. The lock goes
// with the connection at the latest.
void create_if_empty(Store& store) {
  if (version_of(store)) return;
  store.run("DO GET_LOCK(CONCAT('catalog ',MD5(DATABASE())),60)");
  if (version_of(store) || (count_tables(store, mark) == 0 && count_tables(store) > 0)) return;
  store.run(std::string("CREATE TABLE IF NOT EXISTS ") + mark + " (version BIGINT NOT NULL) ENGINE=InnoDB");
  create_schema(store);
  store.run(Insert_SQL(mark).value("version", schema_version));
  store.run("DO RELEASE_LOCK(CONCAT('catalog ',MD5(DATABASE())))");
}

void check_catalog(Store& store, std::string const& url) {
  std::optional<long long> const version = version_of(store);
  if (!version) refuse_store(url, " is no catalogue");
  check_version(*version, url);
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
