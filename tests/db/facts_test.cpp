// What the documents say of the databases themselves, whoever makes the statement.
#include <gtest/gtest.h>

#include <csignal>
#include <iterator>
#include <utility>

#include "backup/utils/sql/select_sql.h"
#include "support/databases.h"
#include "support/render.h"

namespace {

// The cells of all rows one after another, or "refused".
std::string answer(Store& store, std::string const& text, Binding_Value const& value = Binding_Value()) try {
  SQL statement(text.c_str(), SQL::TYPE_RAW, true);
  if (text.find(":v") != std::string::npos) statement.bind(":v", value);
  std::string cells;
  for (Store::Row const& row : store.rows(statement)) {
    for (Binding_Value const& cell : row) cells += value_text(cell);
  }
  return cells;
} catch (Store_Error const&) {
  return "refused";
}

std::string times(std::size_t count, std::string const& text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

}  // namespace

TEST(Column, compares_by_its_kind) {
  std::pair<Database, std::string> const kinds[] = {{Database::sqlite, "TEXT"},
                                                    {Database::sqlite, "BLOB"},  // with texts in it
                                                    {Database::mariadb, "TEXT COLLATE utf8mb4_general_ci"},
                                                    {Database::mariadb, "VARCHAR(9) COLLATE utf8mb4_bin"},
                                                    {Database::mariadb, "VARCHAR(9) CHARACTER SET latin1"},
                                                    {Database::mariadb, "VARBINARY(9)"},
                                                    {Database::mariadb, "LONGBLOB"}};
  struct {
    std::string condition;
    Binding_Value value;
    char const* ids[std::size(kinds)];  // 0 is "\xFF", where the column takes it
  } const cases[] = {
      {"c LIKE :v", "a\\_b", {"3", "3", "14", "1", "3", "3", "3"}},  // a backslash escapes, or not
      {"c LIKE 'a\\_b'", {}, {"3", "3", "14", "1", "3", "3", "3"}},
      {"c LIKE :v ESCAPE '|'", "a\\_b", {"3", "3", "3", "3", "3", "3", "3"}},
      {"c LIKE :v", "_", {"067", "067", "67", "67", "67", "07", "07"}},  // characters, or bytes
      {"c=:v", "a_b", {"1", "1", "145", "15", "145", "1", "1"}},
      {"c=:v", "a", {"", "", "6", "", "", "", ""}},
      {"LOWER(c)=:v", "a_b", {"14", "14", "145", "145", "145", "1", "1"}},
      {"LOWER(c)=:v", "ä", {"", "", "6", "6", "6", "", ""}},
      {"c=:v", 0, {"7", "", "12345679", "12345679", "12345679", "012345679", "012345679"}},
      {"c IN ('A_B',1)", {}, {"4", "4", "1458", "48", "1458", "48", "48"}},
      {"id=:v", "1x", {"", "", "1", "1", "1", "1", "1"}},
      {"c=:v", "α", {"", "", "", "", "refused", "", ""}},
      {"c IN ('\xFF')", {}, {"0", "0", "", "", "refused", "0", "0"}},
      {"c=:v", "\xFF", {"0", "0", "", "", "refused", "0", "0"}},
      {"c!=:v", "\xFF", {"123456789", "123456789", "123456789", "123456789", "refused", "123456789", "123456789"}},
      {"c LIKE :v ESCAPE '|'", "%\xFE%", {"0", "0", "", "", "refused", "", ""}},
  };
  for (std::size_t kind = 0; kind < std::size(kinds); ++kind) {
    auto const& [db, type] = kinds[kind];
    auto const store = open_empty(db);
    store->run("CREATE TABLE t(id INTEGER, c " + type + ')');
    store->run(
        "INSERT INTO t VALUES (1,'a_b'),(2,'axb'),(3,'a\\xb'),(4,'A_B'),(5,'a_b '),(6,'Ä'),(7,'0'),(8,'1x'),(9,'')");
    answer(*store, "INSERT INTO t VALUES (0,:v)", "\xFF");
    for (auto const& c : cases) {
      std::string const text = "SELECT id FROM t WHERE " + c.condition + " ORDER BY id";
      EXPECT_EQ(answer(*store, text, c.value), c.ids[kind]) << type << text << value_text(c.value);
    }
  }
}

TEST(Statement, without_an_operand_runs_nowhere) {
  for (Database const db : {Database::sqlite, Database::mariadb}) {
    auto const store = open_empty(db);
    store->run("CREATE TABLE t(a INTEGER, b INTEGER)");
    for (char const* const text : {"SELECT 1 FROM t WHERE ()", "UPDATE t SET ", "SELECT COUNT(*) FROM () AS sum",
                                   "SELECT a FROM t ORDER BY  ASC", "SELECT a FROM t ORDER BY a ASC, ASC,b ASC",
                                   "SELECT 1 FROM t WHERE a IN (inf)", "SELECT 1 FROM t WHERE a IN (nan)",
                                   "SELECT x'5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60'"}) {
      EXPECT_EQ(answer(*store, text), "refused") << text;
    }
  }
}

TEST(Statement, is_read_and_limited_by_its_database) {
  auto const group = [](std::size_t conditions) { return "SELECT " + times(conditions - 1, "(:v=1) AND ") + "(:v=1)"; };
  auto const groups = [](std::size_t levels) {
    return "SELECT " + times(levels / 2, "(:v=1) AND ((:v=2) OR (") + '1' + times(levels, ")");
  };
  auto const list = [](std::size_t values) { return "SELECT 1 IN (0" + times(values, ",:v") + ')'; };
  std::string const like = "SELECT CONCAT(REPEAT('a',2048),'b') LIKE :v";
  std::string const join = "WITH t AS (SELECT 1 a), u AS (SELECT 2 a) SELECT u.a FROM t FULL JOIN u ON u.a=0";
  struct {
    Database db;
    std::string text;
    Binding_Value value;
    char const* answer;
  } const cases[] = {
      {Database::sqlite, group(999), 1, "1"},
      {Database::sqlite, group(1000), 1, "refused"},
      {Database::sqlite, groups(30), 1, "1"},
      {Database::sqlite, groups(1000), 1, "refused"},
      {Database::sqlite, "SELECT 'a' LIKE :v", std::string(4096, '%'), "1"},
      {Database::sqlite, join, {}, "null2"},
      {Database::mariadb, join, {}, ""},  // FULL is an alias there
      {Database::mariadb, group(65535), 1, "1"},
      {Database::mariadb, groups(1000), 1, "1"},
      {Database::mariadb, groups(10000), 1, "refused"},
      {Database::mariadb, list(65535), 1, "1"},
      {Database::mariadb, list(65536), 1, "refused"},
      {Database::mariadb, like, times(100, "%a"), "0"},
      {Database::mariadb, like, times(2048, "%a"), "refused"},
      {Database::mariadb, "SELECT LENGTH(:v)", std::string(63U << 20U, 'a'), "66060288"},
  };
  for (auto const& c : cases) EXPECT_EQ(answer(*open_empty(c.db), c.text, c.value), c.answer) << c.text.substr(0, 80);
  auto const store = open_empty(Database::mariadb);  // of scripts/with-mariadb, which takes 64 MiB
  EXPECT_EQ(answer(*store, "SELECT LENGTH(:v)", std::string(65U << 20U, 'a')), "refused");
  EXPECT_EQ(answer(*store, "SELECT 1"), "refused");
}

TEST(MySQL_Store, has_a_session_of_its_own_modes) {
  auto const store = open_empty(Database::mariadb);
  store->run("SET GLOBAL sql_mode=CONCAT(@@GLOBAL.sql_mode,',EMPTY_STRING_IS_NULL')");
  MySQL_Store strict(mariadb_url(own_database()));
  store->run("SET GLOBAL sql_mode=DEFAULT");
  strict.run("CREATE TABLE t(a DECIMAL(5,2), b INT, c VARCHAR(3), d FLOAT, e DATE)");
  std::pair<char const*, char const*> const cases[] = {
      {" INTO t VALUES (1.239,1.6,'abc  ',16777217,'2026-01-02 03:04:05')", R"("1.24"2"abc"16777216.0"2026-01-02")"},
      {" INTO t VALUES (0,0,'',0,'0000-00-00')", R"("0.00"0""0.0"0000-00-00")"},
      {" INTO t(a) VALUES (1000)", "refused"},
      {" INTO t(b) VALUES (2147483648)", "refused"},
      {" INTO t(c) VALUES ('abcd')", "refused"},
      {" INTO t(e) VALUES ('2026-02-30')", "refused"},
      {" IGNORE INTO t VALUES (1000,2147483648,'abcd',0,'2026-02-30')", R"("999.99"2147483647"abc"0.0"0000-00-00")"},
  };
  for (auto const& [text, row] : cases) EXPECT_EQ(answer(strict, std::string("INSERT") + text + " RETURNING *"), row);
  EXPECT_EQ(answer(strict, "UPDATE t SET d=1 WHERE c=0"), "refused");
  EXPECT_EQ(answer(strict, "DELETE FROM t WHERE c=0 RETURNING b"), "202147483647");
  struct sigaction action {};
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST(Transaction, of_mariadb_does_not_keep_others_from_what_it_read) {
  auto const store = open_empty(Database::mariadb);
  MySQL_Store other(mariadb_url(own_database()));
  store->run("CREATE TABLE t(a INT)");
  store->run("INSERT INTO t VALUES (1)");
  {
    Transaction const transaction(*store);
    EXPECT_EQ(answer(*store, "SELECT a FROM t"), "1");
    other.run("UPDATE t SET a=10");
    store->run("UPDATE t SET a=a+1");
    store->run("COMMIT AND CHAIN");  // not noticed
    store->run("UPDATE t SET a=0");
  }
  EXPECT_EQ(answer(other, "SELECT a FROM t"), "11");
}
