#include "schema.h"

#include <stdexcept>

#include "backup/runtime/string_template.h"
#include "backup/store/store.h"
#include "backup/utils/sql/select_sql.h"

using backup::Store;

namespace {

// The database's type names. MySQL needs a length for a column with a key, and collates all texts, so most columns are
// bytes. Host names are texts: they are compared in lower case, and only texts can be lower-cased.
struct Words {
  char const* uuid;
  char const* host;
  char const* name;
  char const* path;
  char const* integer;
  char const* boolean;
  char const* time;
  char const* indexes;  ///< of files, where the table's statement has them
  char const* engine;
};

constexpr Words sqlite_words{"BLOB", "TEXT", "TEXT", "TEXT", "INTEGER", "INTEGER", "TEXT", "", ""};
constexpr Words mysql_words{"BINARY(16)",
                            "VARCHAR(255) CHARACTER SET utf8mb4 COLLATE utf8mb4_bin",
                            "VARBINARY(4096)",
                            "MEDIUMBLOB",
                            "BIGINT",
                            "BOOLEAN",
                            "VARBINARY(32)",
                            ", INDEX files_by_run (run_uuid), INDEX files_by_name (name(255)),"
                            " INDEX files_by_retired (retired)",
                            " ENGINE=InnoDB"};

constexpr char const* statements[] = {
    "CREATE TABLE IF NOT EXISTS hosts (id {uuid} NOT NULL PRIMARY KEY, name {host} NOT NULL UNIQUE){engine}",

    "CREATE TABLE IF NOT EXISTS runs (id {uuid} NOT NULL PRIMARY KEY, host_uuid {uuid} NOT NULL,"
    " directory {path} NOT NULL, started {integer} NOT NULL, ended {integer}, complete {boolean} NOT NULL,"
    " left_out {integer} NOT NULL DEFAULT 0, FOREIGN KEY (host_uuid) REFERENCES hosts (id)){engine}",

    "CREATE TABLE IF NOT EXISTS files (id {uuid} NOT NULL PRIMARY KEY, run_uuid {uuid} NOT NULL, path {path} NOT NULL,"
    " name {name} NOT NULL, kind {integer} NOT NULL, size {integer} NOT NULL, modified {integer} NOT NULL,"
    " owner {name} NOT NULL, retired {time}{indexes}, FOREIGN KEY (run_uuid) REFERENCES runs (id)){engine}",
};

constexpr char const* sqlite_indexes[] = {
    "CREATE INDEX IF NOT EXISTS files_by_run ON files (run_uuid)",
    "CREATE INDEX IF NOT EXISTS files_by_name ON files (name)",
    "CREATE INDEX IF NOT EXISTS files_by_retired ON files (retired) WHERE retired IS NOT NULL",
};

// From version 3, without an index by name. On MySQL its index by run held paths, so files were read all over the
// table.
constexpr char const* mysql_indexes =
    "ALTER TABLE files DROP INDEX files_by_run, ADD INDEX files_by_run (run_uuid),"
    " ADD INDEX files_by_name (name(255)), ADD INDEX files_by_retired (retired)";

// From version 2, which did not count what was left out and had no room for long paths and names on MySQL.
constexpr char const* longer_texts[] = {
    "ALTER TABLE files MODIFY path {path} NOT NULL, MODIFY name {name} NOT NULL, MODIFY owner {name} NOT NULL",
    "ALTER TABLE runs MODIFY directory {path} NOT NULL",
};
constexpr char const* left_out_column = "ALTER TABLE runs ADD COLUMN left_out {integer} NOT NULL DEFAULT 0";

bool is_mysql(Store const& store) { return store.dialect() == SQL::DB_MYSQL; }

void run(Store& store, char const* statement) {
  Words const& words = is_mysql(store) ? mysql_words : sqlite_words;
  String_Template text(statement, "{", "}");
  text.set("uuid", words.uuid);
  text.set("host", words.host);
  text.set("name", words.name);
  text.set("path", words.path);
  text.set("integer", words.integer);
  text.set("boolean", words.boolean);
  text.set("time", words.time);
  text.set("indexes", words.indexes);
  text.set("engine", words.engine);
  store.run(text.str());
}

// An upgrade looks at the database for the steps already done: on MySQL a schema change stays done, even when a later
// step fails.
bool has(Store& store, char const* what, char const* condition) {
  Select_SQL there;
  return store.count(there.from(what).count("*").where(condition, false)) > 0;
}

bool counts_left_out(Store& store) {
  return is_mysql(store) ? has(store, "information_schema.columns",
                               "table_schema=DATABASE() AND table_name='runs' AND column_name='left_out'")
                         : has(store, "pragma_table_info('runs')", "name='left_out'");
}

bool is_indexed(Store& store) {
  return has(store, "information_schema.statistics", "table_schema=DATABASE() AND index_name='files_by_name'");
}

void create_sqlite_indexes(Store& store) {
  for (char const* const statement : sqlite_indexes) run(store, statement);
}

}  // namespace

bool is_older(long long version) { return version == 2 || version == 3; }

void check_version(long long version, std::string const& address) {
  if (version == schema_version) return;
  throw std::runtime_error(
      address + " is a catalogue of schema version " + std::to_string(version) + ", this program reads version " +
      std::to_string(schema_version) +
      (is_older(version) ? ": 'catalog index' and the commands that change it bring it forward" : ""));
}

void upgrade_schema(Store& store) {
  bool const mysql = is_mysql(store);
  if (!counts_left_out(store)) {
    for (char const* const statement : longer_texts) {
      if (mysql) run(store, statement);
    }
    run(store, left_out_column);
  }
  if (!mysql) return create_sqlite_indexes(store);
  if (!is_indexed(store)) run(store, mysql_indexes);
}

void create_schema(Store& store) {
  for (char const* const statement : statements) run(store, statement);
  if (!is_mysql(store)) create_sqlite_indexes(store);
}
