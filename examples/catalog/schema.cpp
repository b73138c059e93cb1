#include "schema.h"

#include "backup/runtime/string_template.h"
#include "backup/store/store.h"

namespace {

// The database's words for the kinds of columns. MySQL needs a length where a column has a key.
struct Column_Types {
  char const* uuid;
  char const* name;
  char const* path;
  char const* integer;
  char const* boolean;
  char const* time;
};

constexpr Column_Types sqlite_types{"BLOB", "TEXT", "TEXT", "INTEGER", "INTEGER", "TEXT"};
constexpr Column_Types mysql_types{"BINARY(16)", "VARBINARY(255)", "BLOB", "BIGINT", "BOOLEAN", "DATETIME"};

constexpr char const* statements[] = {
    "CREATE TABLE hosts (id {uuid} NOT NULL PRIMARY KEY, name {name} NOT NULL UNIQUE)",

    "CREATE TABLE runs (id {uuid} NOT NULL PRIMARY KEY, host_uuid {uuid} NOT NULL, directory {path} NOT NULL,"
    " started {integer} NOT NULL, ended {integer}, complete {boolean} NOT NULL,"
    " FOREIGN KEY (host_uuid) REFERENCES hosts (id))",

    "CREATE TABLE files (id {uuid} NOT NULL PRIMARY KEY, run_uuid {uuid} NOT NULL, path {path} NOT NULL,"
    " name {name} NOT NULL, kind {integer} NOT NULL, size {integer} NOT NULL, modified {integer} NOT NULL,"
    " owner {name} NOT NULL, retired {time}, FOREIGN KEY (run_uuid) REFERENCES runs (id))",

    "CREATE INDEX files_by_run ON files (run_uuid)",
};

}  // namespace

void create_schema(Store& store) {
  Column_Types const& types = store.dialect() == SQL::DB_MYSQL ? mysql_types : sqlite_types;
  for (char const* const statement : statements) {
    String_Template text(statement, "{", "}");
    text.set("uuid", types.uuid);
    text.set("name", types.name);
    text.set("path", types.path);
    text.set("integer", types.integer);
    text.set("boolean", types.boolean);
    text.set("time", types.time);
    store.run(text.str());
  }
}
