#include "mysql_catalog.h"

#include <cstdlib>
#include <optional>

#include "backup/store/mysql_store.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "made.h"
#include "open_store.h"
#include "schema.h"

using backup::MySQL_Store;
using backup::Store;

namespace {

// The table that marks a catalogue. It is made first, and gets the schema's version once the schema is whole.
constexpr char const* mark = "catalog_schema";

// The number of the database's tables, or of those with the name.
unsigned long long count_tables(Store& store, char const* name = nullptr) {
  Select_SQL tables;
  tables.from("information_schema.tables").count("*");
  Filter_SQL& filter = made(tables.and_filter());
  filter.add_sql("table_schema=DATABASE()", false);
  if (name != nullptr) filter.add_kv_eq_item("table_name", name);
  return store.count(tables);
}

// None when the database is no catalogue, or its schema is not whole.
std::optional<long long> version_of(Store& store) {
  if (count_tables(store, mark) == 0) return std::nullopt;
  Select_SQL version(mark);
  auto const rows = store.rows(version.add_key("version", nullptr));
  if (rows.empty()) return std::nullopt;
  return rows.front().front().val().get_int64();
}

// Schema changes are no transaction: this process completes what a dead one left half made. The lock ends with the
// connection at the latest.
void lock_schema(Store& store, std::string const& url) {
  constexpr char const* statement = "SELECT GET_LOCK(CONCAT('catalog ',MD5(DATABASE())),600)";
  long long is_locked = 0;
  store.query(statement, [&](Store::Row const& row) {
    if (row.front().type() == Binding_Value::int_type) is_locked = row.front().val().get_int64();
    return true;
  });
  if (is_locked != 1) throw std::runtime_error(url + ": another process has been making the schema for 10 minutes");
}

void unlock_schema(Store& store) { store.run("DO RELEASE_LOCK(CONCAT('catalog ',MD5(DATABASE())))"); }

void create_if_empty(Store& store, std::string const& url) {
  if (version_of(store)) return;
  lock_schema(store, url);
  if (version_of(store) || (count_tables(store, mark) == 0 && count_tables(store) > 0)) return unlock_schema(store);
  store.run(std::string("CREATE TABLE IF NOT EXISTS ") + mark + " (version BIGINT NOT NULL) ENGINE=InnoDB");
  create_schema(store);
  store.run(Insert_SQL(mark).value("version", schema_version));
  unlock_schema(store);
}

bool is_older_catalog(Store& store) {
  std::optional<long long> const version = version_of(store);
  return version && is_older(*version);
}

void upgrade_if_older(Store& store, std::string const& url) {
  if (!is_older_catalog(store)) return;
  lock_schema(store, url);
  if (is_older_catalog(store)) {
    upgrade_schema(store);
    store.run(Update_SQL(mark).set("version", schema_version));
  }
  unlock_schema(store);
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
  // MySQL sorts by the first bytes of a text only, by default by fewer than a path can have. The buffer must hold 15
  // texts of that length.
  store->run("SET @@SESSION.max_sort_length=1048576,@@SESSION.sort_buffer_size=33554432");
  if (store->rows(Select_SQL().select("DATABASE()")).at(0).at(0).type() == Binding_Value::null_type) {
    throw std::runtime_error(url + " names no database: mysql://host/DATABASE");
  }
  if (access == Access::create) create_if_empty(*store, url);
  if (access == Access::read) {
    store->run("SET SESSION TRANSACTION READ ONLY");
  } else {
    // At the default level, reading files to change some locks the gaps between all of them, and no other run can grow.
    store->run("SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED");
    upgrade_if_older(*store, url);
  }
  check_catalog(*store, url);
  return store;
}
