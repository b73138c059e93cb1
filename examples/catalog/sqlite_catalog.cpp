#include "sqlite_catalog.h"

#include <filesystem>
#include <system_error>

#include "backup/store/sqlite_store.h"
#include "backup/utils/sql/select_sql.h"
#include "open_store.h"
#include "schema.h"

namespace {

// SQLite keeps this number in the file's header, whose file it is, and beside it the version of the schema.
constexpr long long application_id = 0x43544C47;

long long pragma(Store& store, std::string const& name) {
  long long number = 0;
  store.query("PRAGMA " + name, [&](Store::Row const& row) {
    number = row.front().val().get_int64();
    return false;
  });
  return number;
}

void set_pragma(Store& store, std::string const& name, long long number) {
  store.run("PRAGMA " + name + " = " + std::to_string(number));
}

bool has_tables(Store& store) {
  Select_SQL tables("sqlite_master");
  tables.count("*");
  return store.count(tables) > 0;
}

void create_if_empty(Store& store) {
  Transaction transaction(store);
  if (has_tables(store)) return;
  create_schema(store);
  set_pragma(store, "application_id", application_id);
  set_pragma(store, "user_version", schema_version);
  transaction.commit();
}

void check_catalog(Store& store, std::string const& file) {
  if (pragma(store, "application_id") != application_id) refuse_store(file, " is no catalogue");
  check_version(pragma(store, "user_version"), file);
}

// Reading needs no right to write, unless a writer was killed and what it left half done must be rolled back first.
std::unique_ptr<Store> open_for_reading(std::string const& file) {
  try {
    return std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_READ_ONLY);
  } catch (Store_Error const&) {
    return std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_READ_WRITE);
  }
}

std::unique_ptr<Store> open_or_create(std::string const& file) {
  auto store = std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_OR_CREATE);
  create_if_empty(*store);
  return store;
}

std::unique_ptr<Store> open(std::string const& file, Access access) {
  switch (access) {
    case Access::read: return open_for_reading(file);
    case Access::create: return open_or_create(file);
    case Access::change: break;
  }
  return std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_READ_WRITE);
}

}  // namespace

std::unique_ptr<Store> open_sqlite_catalog(std::string const& file, Access access) {
  std::error_code ignored;
  if (access != Access::create && !std::filesystem::exists(file, ignored)) {
    refuse_store(file, ": no such store file");
  }
  std::unique_ptr<Store> store = open(file, access);
  check_catalog(*store, file);
  store->run("PRAGMA case_sensitive_like=ON");  // as on the other databases
  return store;
}
