#include "schema.h"

#include <stdexcept>

#include "backup/runtime/string_template.h"
#include "backup/store/store.h"
#include "backup/utils/sql/select_sql.h"

using backup::Store;

namespace {

// The database's words. MySQL needs a length where a column has a key, and collates what is no bytes; but lower-casing,
// which the names of hosts are compared by, works on texts only.
struct Words {
  char const* uuid;
  char const* host;
  char const* name;
  char const* path;
  char const* integer;
  char const* boolean;
  char const* time;
  char const* index;  ///< of the files of a run
  char const* engine;
};

constexpr Words sqlite_words{"BLOB", "TEXT", "TEXT", "TEXT", "INTEGER", "INTEGER", "TEXT", "", ""};
// The index also finds the path of a file in another run.
constexpr Words mysql_words{"BINARY(16)",      "VARCHAR(255) CHARACTER SET utf8mb4 COLLATE utf8mb4_bin",
                            "VARBINARY(4096)", "MEDIUMBLOB",
                            "BIGINT",          "BOOLEAN",
                            "VARBINARY(32)",   ", INDEX files_by_run (run_uuid, path(255))",
                            " ENGINE=InnoDB"};

constexpr char const* statements[] = {
    "CREATE TABLE IF NOT EXISTS hosts (id {uuid} NOT NULL PRIMARY KEY, name {host} NOT NULL UNIQUE){engine}",

    "CREATE TABLE IF NOT EXISTS runs (id {uuid} NOT NULL PRIMARY KEY, host_uuid {uuid} NOT NULL,"
    " directory {path} NOT NULL, started {integer} NOT NULL, ended {integer}, complete {boolean} NOT NULL,"
    " left_out {integer} NOT NULL DEFAULT 0, FOREIGN KEY (host_uuid) REFERENCES hosts (id)){engine}",

    "CREATE TABLE IF NOT EXISTS files (id {uuid} NOT NULL PRIMARY KEY, run_uuid {uuid} NOT NULL, path {path} NOT NULL,"
    " name {name} NOT NULL, kind {integer} NOT NULL, size {integer} NOT NULL, modified {integer} NOT NULL,"
    " owner {name} NOT NULL, retired {time}{index}, FOREIGN KEY (run_uuid) REFERENCES runs (id)){engine}",
};

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
  text.set("index", words.index);
  text.set("engine", words.engine);
  store.run(text.str());
}

bool counts_left_out(Store& store) {
  Select_SQL columns;
  columns.from("information_schema.columns").count("*");
  columns.where("table_schema=DATABASE() AND table_name='runs' AND column_name='left_out'", false);
  return store.count(columns) > 0;
}

}  // namespace

bool is_older(long long version) { return version == 2; }

void check_version(long long version, std::string const& address) {
  if (version == schema_version) return;
  throw std::runtime_error(
      address + " is a catalogue of schema version " + std::to_string(version) + ", this program reads version " +
      std::to_string(schema_version) +
      (is_older(version) ? ": 'catalog index' and the commands that change it bring it forward" : ""));
}

void upgrade_schema(Store& store) {
  if (is_mysql(store)) {
    for (char const* const statement : longer_texts) run(store, statement);
    if (counts_left_out(store)) return;  // a statement of this kind stays done, whatever follows
  }
  run(store, left_out_column);
}

void create_schema(Store& store) {
  for (char const* const statement : statements) run(store, statement);
  if (!is_mysql(store)) store.run("CREATE INDEX files_by_run ON files (run_uuid)");
}
