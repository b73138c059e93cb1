#pragma once

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "backup/store/mysql_store.h"
#include "backup/store/sqlite_store.h"

enum class Database { sqlite, mariadb };

inline void PrintTo(Database db, std::ostream* out) { *out << (db == Database::sqlite ? "sqlite" : "mariadb"); }

/// The differences between the databases, and their reasons.
namespace differs {
inline bool has_unsigned_64(Database db) { return db == Database::mariadb; }       // SQLite's integers are signed
inline bool has_full_join(Database db) { return db == Database::sqlite; }          // MySQL's grammar has none
inline bool counts_replaced_rows(Database db) { return db == Database::mariadb; }  // twice: deleted and inserted
inline bool counts_copied_rows(Database db) { return db == Database::mariadb; }    // of CREATE TABLE AS SELECT
inline bool like_ignores_case(Database db) { return db == Database::sqlite; }      // of ASCII, whatever the collation
inline bool lowers_beyond_ascii(Database db) { return db == Database::mariadb; }   // SQLite knows 26 letters
// MariaDB does in columns of utf8mb4, also under NO_BACKSLASH_ESCAPES, unless ESCAPE names another character.
inline bool like_escapes_by_backslash(Database db) { return db == Database::mariadb; }
}  // namespace differs

/// The address of the server, or of a database on it.
inline std::string mariadb_url(std::string const& database = "") {
  char const* const url = std::getenv("BACKUP_TEST_MYSQL");
  if (url == nullptr) throw std::runtime_error("BACKUP_TEST_MYSQL is not set: scripts/with-mariadb starts a server");
  return std::string(url).insert(std::string(url).find("/?") + 1, database);
}

/// The database of this process.
inline std::string own_database() { return "test_" + std::to_string(getpid()); }

/// A store without tables, this process's own.
inline std::unique_ptr<backup::Store> open_empty(Database db) {
  if (db == Database::sqlite) return std::make_unique<backup::SQLite_Store>(":memory:");
  auto store = std::make_unique<backup::MySQL_Store>(mariadb_url());
  store->run("DROP DATABASE IF EXISTS " + own_database());
  store->run("CREATE DATABASE " + own_database() + " COLLATE utf8mb4_nopad_bin");
  store->run("USE " + own_database());
  return store;
}

/// Replaces {id}, {integer}, {real}, {text} and {bytes} in `text` by the database's own column types.
inline std::string with_types(std::string text, Database db) {
  bool const lite = db == Database::sqlite;
  std::pair<char const*, char const*> const types[] = {{"{id}", lite ? "INTEGER PRIMARY KEY" : "BIGINT PRIMARY KEY"},
                                                       {"{integer}", lite ? "INTEGER" : "BIGINT"},
                                                       {"{real}", lite ? "REAL" : "DOUBLE"},
                                                       {"{text}", lite ? "TEXT" : "LONGTEXT"},
                                                       {"{bytes}", lite ? "BLOB" : "LONGBLOB"}};
  for (auto const& [word, type] : types) {
    for (std::size_t at = 0; (at = text.find(word)) != std::string::npos;)
      text.replace(at, std::string(word).size(), type);
  }
  return text;
}
