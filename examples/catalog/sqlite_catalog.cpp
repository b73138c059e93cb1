#include "sqlite_catalog.h"

#include <filesystem>
#include <system_error>

#include "backup/store/sqlite_store.h"
#include "backup/utils/sql/select_sql.h"
#include "open_store.h"
#include "schema.h"

using backup::SQLite_Store;
using backup::Store;
using backup::Store_Error;

namespace {

// SQLite keeps this number in the file's header, to mark whose file it is, next to the version of the schema.
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

bool is_catalog(Store& store) { return pragma(store, "application_id") == application_id; }

void create_if_empty(Store& store) {
  if (is_catalog(store)) return;
  store.transact([&] {
    if (has_tables(store)) return;
    create_schema(store);
    set_pragma(store, "application_id", application_id);
    set_pragma(store, "user_version", schema_version);
  });
}

bool is_older_catalog(Store& store) { return is_catalog(store) && is_older(pragma(store, "user_version")); }

void upgrade_if_older(Store& store) {
  if (!is_older_catalog(store)) return;
  store.transact([&] {
    if (!is_older_catalog(store)) return;
    upgrade_schema(store);
    set_pragma(store, "user_version", schema_version);
  });
}

void check_catalog(Store& store, std::string const& file) {
  if (!is_catalog(store)) refuse_store(file, " is no catalogue");
  check_version(pragma(store, "user_version"), file);
}

// SQLite opens the first of them as a database in memory; a user may expect the same of the others.
bool names_memory(std::string const& file) {
  bool const is_uri = file.compare(0, 5, "file:") == 0;
  return file == ":memory:" || (is_uri && file.find("memory") != std::string::npos);
}

// Reading needs no right to write, except after a writer was killed: its unfinished changes must be rolled back first.
std::unique_ptr<Store> open_for_reading(std::string const& file) {
  try {
    return std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_READ_ONLY);
  } catch (Store_Error const&) {
    return std::make_unique<SQLite_Store>(file, SQLite_Store::OPEN_READ_WRITE);
  }
}

std::unique_ptr<Store> open_for_writing(std::string const& file, Access access) {
  bool const creates = access == Access::create;
  auto store =
      std::make_unique<SQLite_Store>(file, creates ? SQLite_Store::OPEN_OR_CREATE : SQLite_Store::OPEN_READ_WRITE);
  if (creates) create_if_empty(*store);
  upgrade_if_older(*store);
  return store;
}

}  // namespace

std::unique_ptr<Store> open_sqlite_catalog(std::string const& file, Access access) {
  if (names_memory(file)) throw std::runtime_error(file + ": a catalogue in memory would be lost at once, name a file");
  std::error_code ignored;
  if (access != Access::create && !std::filesystem::exists(file, ignored)) {
    refuse_store(file, ": no such store file");
  }
  std::unique_ptr<Store> store = access == Access::read ? open_for_reading(file) : open_for_writing(file, access);
  check_catalog(*store, file);
  store->run("PRAGMA case_sensitive_like=ON");  // as on the other databases
  return store;
}
