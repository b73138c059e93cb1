// Checks what the documents say about the databases themselves.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <utility>

#include "support/databases.h"
#include "support/render.h"

// This program's own classes, with the names of the library's. All tests here run beside them; using one in place of
// the other ends the program.
struct __attribute__((visibility("default"))) Store {
  Store();
  virtual ~Store();
};
struct __attribute__((visibility("default"))) Transaction {
  explicit Transaction(Store& store);
  ~Transaction();
};
struct __attribute__((visibility("default"))) Store_Error {
  Store_Error(std::string const& message, int code, std::string const& statement);
  virtual ~Store_Error();
};
Store::Store() { std::abort(); }
Store::~Store() { std::abort(); }
Transaction::Transaction(Store& /*store*/) { std::abort(); }
Transaction::~Transaction() { std::abort(); }
Store_Error::Store_Error(std::string const&, int, std::string const&) { std::abort(); }
Store_Error::~Store_Error() { std::abort(); }

namespace {

// All cells of all rows in order, or "refused".
std::string answer(backup::Store& store, std::string const& text, Binding_Value const& value = Binding_Value()) try {
  SQL statement(text.c_str(), SQL::TYPE_RAW, true);
  if (text.find(":v") != std::string::npos) statement.bind(":v", value);
  std::string cells;
  for (backup::Store::Row const& row : store.rows(statement)) {
    for (Binding_Value const& cell : row) cells += value_text(cell);
  }
  return cells;
} catch (backup::Store_Error const&) {
  return "refused";
}

std::string times(std::size_t count, std::string const& text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

}  // namespace

TEST(Condition, chooses_rows_by_the_kind_of_its_column) {
  // Those of SQLite, the second one holding texts, and those of MariaDB.
  static std::string const kinds[] = {"TEXT",
                                      "BLOB",
                                      "TEXT COLLATE utf8mb4_general_ci",
                                      "VARCHAR(9) COLLATE utf8mb4_bin",
                                      "VARCHAR(9) CHARACTER SET latin1",
                                      "VARBINARY(9)",
                                      "LONGBLOB"};
  struct {
    std::string text;
    Binding_Value value;
    char const* ids[std::size(kinds)];  // a single one is for all kinds; 0 is "\xFF" if the column takes it
  } const conditions[] = {
      {"c LIKE :v", "a\\_b", {"3", "3", "14", "1", "3", "3", "3"}},  // a backslash escapes, or not
      {"c LIKE 'a\\_b'", {}, {"3", "3", "14", "1", "3", "3", "3"}},
      {"c LIKE :v ESCAPE '|'", "a\\_b", {"3"}},
      {"c LIKE :v", "_", {"670", "670", "67", "67", "67", "70", "70"}},  // characters, or bytes
      {"c=:v", "a_b", {"1", "1", "145", "15", "145", "1", "1"}},
      {"c=:v", "a", {"", "", "6", "", "", "", ""}},
      {"LOWER(c)=:v", "a_b", {"14", "14", "145", "145", "145", "1", "1"}},
      {"LOWER(c)=:v", "ä", {"", "", "6", "6", "6", "", ""}},
      {"c=:v", 0, {"7", "", "12345679", "12345679", "12345679", "123456790", "123456790"}},
      {"c IN ('A_B',1)", {}, {"4", "4", "1458", "48", "1458", "48", "48"}},
      {"id=:v", "1x", {"", "", "1", "1", "1", "1", "1"}},
      {"c=:v", "α", {"", "", "", "", "refused", "", ""}},
      {"c=:v", "\xFF", {"0", "0", "", "", "refused", "0", "0"}},
      {"c IN ('\xFF')", {}, {"0", "0", "", "", "refused", "0", "0"}},
      {"c!=:v", "\xFF", {"123456789", "123456789", "123456789", "123456789", "refused", "123456789", "123456789"}},
      {"c LIKE :v ESCAPE '|'", "%\xFE%", {"0", "0", "", "", "refused", "", ""}},
      {"()", {}, {"refused"}},
      {"c IN (inf)", {}, {"refused"}},
      {"c=x'5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60'", {}, {"refused"}},
      {"id=(SELECT COUNT(*) FROM () AS sum)", {}, {"refused"}},
      {"1 ORDER BY c ASC, ASC,id ASC", {}, {"refused"}},
  };
  for (std::size_t kind = 0; kind < std::size(kinds); ++kind) {
    auto const store = open_empty(kind < 2 ? Database::sqlite : Database::mariadb);
    store->run("CREATE TABLE t(id INTEGER, c " + kinds[kind] + ')');
    store->run(
        "INSERT INTO t VALUES (1,'a_b'),(2,'axb'),(3,'a\\xb'),(4,'A_B'),(5,'a_b '),(6,'Ä'),(7,'0'),(8,'1x'),(9,'')");
    answer(*store, "INSERT INTO t VALUES (0,:v)", "\xFF");
    for (auto const& c : conditions) {
      std::string const ids = answer(*store, "SELECT id FROM t WHERE " + c.text, c.value);
      EXPECT_EQ(ids, c.ids[c.ids[1] == nullptr ? 0 : kind]) << kinds[kind] << c.text << value_text(c.value);
    }
  }
}

TEST(Statement, is_read_and_limited_by_its_database) {
  auto const group = [](std::size_t size) { return "SELECT " + times(size - 1, "(:v=1) AND ") + "(:v=1)"; };
  auto const groups = [](std::size_t pairs) {
    return "SELECT " + times(pairs, "(:v=1) AND ((:v=2) OR (") + '1' + times(pairs, "))");
  };
  std::string const join = "WITH t AS (SELECT 1 a), u AS (SELECT 2 a) SELECT u.a FROM t FULL JOIN u ON u.a=0";
  struct {
    Database db;
    std::string text;
    Binding_Value value;
    char const* answer;
  } const cases[] = {
      {Database::sqlite, join, {}, "null2"},
      {Database::mariadb, join, {}, ""},  // FULL is an alias there
      {Database::sqlite, group(999), 1, "1"},
      {Database::sqlite, group(1000), 1, "refused"},
      {Database::mariadb, group(65535), 1, "1"},
      {Database::mariadb, group(65536), 1, "refused"},
      {Database::sqlite, groups(15), 1, "1"},
      {Database::mariadb, groups(650), 1, "1"},
      {Database::sqlite, "SELECT 'a' LIKE :v", times(4096, "%"), "1"},
      {Database::mariadb, "SELECT CONCAT(REPEAT('a',2048),'b') LIKE :v", times(2048, "%a"), "refused"},
  };
  for (auto const& c : cases) EXPECT_EQ(answer(*open_empty(c.db), c.text, c.value), c.answer) << c.text.substr(0, 80);
  auto const store = open_empty(Database::mariadb);
  EXPECT_EQ(answer(*store, "SELECT LENGTH(:v)", times(65U << 20U, "a")), "refused");  // scripts/with-mariadb: 64 MiB
  EXPECT_EQ(answer(*store, "SELECT 1"), "refused");
}

TEST(MySQL_Store, has_a_session_of_its_own_modes) {
  auto const store = open_empty(Database::mariadb);
  store->run("SET GLOBAL sql_mode=CONCAT(@@GLOBAL.sql_mode,',EMPTY_STRING_IS_NULL')");
  backup::MySQL_Store strict(mariadb_url(own_database()));
  store->run("SET GLOBAL sql_mode=DEFAULT");
  strict.run("CREATE TABLE t(a DECIMAL(5,2), b INT, c VARCHAR(3), d FLOAT, e DATE)");
  std::pair<char const*, char const*> const cases[] = {
      {"INSERT INTO t VALUES (1.239,1.6,'abc  ',16777217,'2026-01-02 03:04:05') RETURNING *",
       R"("1.24"2"abc"16777216.0"2026-01-02")"},
      {"INSERT INTO t VALUES (0,0,'',0,'0000-00-00') RETURNING *", R"("0.00"0""0.0"0000-00-00")"},
      {"INSERT INTO t(a) VALUES (1000)", "refused"},
      {"INSERT INTO t(b) VALUES (2147483648)", "refused"},
      {"INSERT INTO t(c) VALUES ('abcd')", "refused"},
      {"INSERT INTO t(e) VALUES ('2026-02-30')", "refused"},
      {"INSERT IGNORE INTO t VALUES (1000,2147483648,'abcd',0,'2026-02-30') RETURNING *",
       R"("999.99"2147483647"abc"0.0"0000-00-00")"},
      {"UPDATE t SET d=1 WHERE c=0", "refused"},
      {"DELETE FROM t WHERE c=0 RETURNING b", "202147483647"},
  };
  for (auto const& [text, row] : cases) EXPECT_EQ(answer(strict, text), row) << text;
}

TEST(Transaction, of_mariadb_does_not_keep_others_from_what_it_read) {
  auto const store = open_empty(Database::mariadb);
  backup::MySQL_Store other(mariadb_url(own_database()));
  store->run("CREATE TABLE t AS SELECT 1 a");
  {
    backup::Transaction const transaction(*store);
    EXPECT_EQ(answer(*store, "SELECT a FROM t"), "1");
    other.run("UPDATE t SET a=10");
    store->run("UPDATE t SET a=a+1");
    store->run("COMMIT AND CHAIN");  // not noticed
    store->run("UPDATE t SET a=0");
  }
  EXPECT_EQ(answer(other, "SELECT a FROM t"), "11");
}
