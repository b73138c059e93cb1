#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/union_sql.h"
#include "support/databases.h"
#include "support/render.h"

namespace {

using backup::MySQL_Store;
using backup::SQLite_Store;
using backup::Store;
using backup::Store_Error;
using backup::Transaction;

using json_spirit::Array;
using json_spirit::Object;

struct Raw : SQL {
  explicit Raw(char const* text) : SQL(text, TYPE_RAW, true) {}
};

// JSON cells, x"0A" for bytes: "1,\"a\" 2,null"
std::string rows_text(Store& store, SQL const& statement, Store::Binding_Mode mode = Store::BY_NAME) {
  std::string text;
  for (Store::Row const& row : store.rows(statement, mode)) {
    char const* separator = text.empty() ? "" : " ";
    for (Binding_Value const& value : row) text += std::exchange(separator, ",") + value_text(value);
  }
  return text;
}

template <class Use>
std::string error_of(Use const& use) {
  try {
    use();
  } catch (Store_Error const& error) {
    return error.what();
  }
  return "no error";
}

class Store_Rows : public testing::TestWithParam<std::tuple<Database, Store::Binding_Mode>> {
protected:
  Store_Rows() {
    create("v(a {integer} UNIQUE, b {text})");
    create("item(id {id}, name {text}, size {integer}, flag {integer}, parent {integer}, note {text})");
    store_.run(
        "INSERT INTO item VALUES (1,'alpha',10,1,NULL,NULL),(2,'O''Neil',20,0,1,'{\"a\":1}'),"
        "(3,'100%',30,1,1,'[1,\"x\"]'),(4,'a_b|c',40,0,2,NULL),(5,'ALPHA',10,1,2,'1000'),(6,'axb',60,0,NULL,'')");
  }

  void create(char const* table) { store_.run("CREATE TABLE " + with_types(table, db_)); }

  std::string rows(SQL const& statement) { return rows_text(store_, statement, mode_); }
  unsigned long long run(SQL const& statement) { return store_.run(statement, mode_); }

  // The items that pass the filter; the count query counts them too.
  template <class Fill>
  std::string ids(Fill const& fill) {
    Select_SQL select("item");
    select.add_key("id", nullptr).order_by("id");
    fill(*select.and_filter());
    EXPECT_EQ(store_.count(select, mode_), store_.rows(select, mode_).size());
    return rows(select);
  }

  Database const db_ = std::get<0>(GetParam());
  Store::Binding_Mode const mode_ = std::get<1>(GetParam());
  std::unique_ptr<Store> const owner_ = open_empty(db_);
  Store& store_ = *owner_;
};

struct Temporary_Directory {
  Temporary_Directory() { std::filesystem::create_directories(path); }
  ~Temporary_Directory() { std::filesystem::remove_all(path); }
  std::string file(char const* name) const { return (path / name).string(); }
  std::filesystem::path const path =
      std::filesystem::path(testing::TempDir()) / testing::UnitTest::GetInstance()->current_test_info()->name();
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Stores, Store_Rows,
                         testing::Combine(testing::Values(Database::sqlite, Database::mariadb),
                                          testing::Values(Store::BY_NAME, Store::BY_POSITION)));

TEST_P(Store_Rows, every_kind_of_value_comes_back) {
  create("k(i {integer}, r {real}, t {text}, b {bytes})");
  struct {
    char const* column;
    Binding_Value value;
    char const* row;
  } const cases[] = {
      {"i", {}, "null"},
      {"i", true, "1"},
      {"i", false, "0"},
      {"i", std::numeric_limits<long long>::min(), "-9223372036854775808"},
      {"i", 9223372036854775807ULL, "9223372036854775807"},
      {"r", 0.1, "0.1"},
      {"r", 3.0, "3.0"},
      {"r", -5e-324, "-5e-324"},
      {"r", 1.7976931348623157e308, "1.7976931348623157e+308"},
      {"t", "it's ? :1 \\", R"("it's ? :1 \\")"},
      {"t", "", R"("")"},
      {"t", "2026-11-23 01:02:03", R"("2026-11-23 01:02:03")"},
      {"t", std::string("\0a\0", 3), R"("\u0000a\u0000")"},
      {"t", Secure_String("too long for the string object"), R"("too long for the string object")"},
      {"b", Byte_String{0, 255, 0}, R"(x"00FF00")"},
      {"b", Byte_String(), R"(x"")"},
      {"b", Secure_Byte_String{1, 0}, R"(x"0100")"},
      {"b", Secure_Byte_String(), R"(x"")"},
      {"t", Object{{"b", 1}, {"a", Array{false, 0.5}}}, R"("{\"a\":[false,0.5],\"b\":1}")"},
      {"t", Array{"x", true}, R"("[\"x\",true]")"},
  };
  for (auto const& c : cases) {  // one statement for each column, kept and run again with other values
    EXPECT_EQ(run(Insert_SQL("k").value(c.column, c.value)), 1U);
    EXPECT_EQ(rows(Select_SQL("k").add_key(c.column, nullptr)), c.row);
    EXPECT_EQ(rows(Raw("SELECT :v").bind(":v", c.value)), c.row);
    store_.run("DELETE FROM k");
  }
  std::string const large = std::string(10'000'000, 'x') + '\0';
  run(Insert_SQL("k").value("t", large).value("b", Secure_Byte_String(70'000, 0xFF)));
  auto const all = store_.rows(Raw("SELECT t,b FROM k"));
  EXPECT_EQ(all.at(0).at(0).val().get_str(), large);
  EXPECT_EQ(all.at(0).at(1).val().get_str(), std::string(70'000, '\xFF'));
  SQL const natural = Raw("SELECT :v").bind(":v", 18446744073709551615ULL);
  if (differs::has_unsigned_64(db_)) {
    EXPECT_EQ(rows(natural), "18446744073709551615");
  } else {
    EXPECT_THAT(error_of([&] { rows(natural); }), testing::HasSubstr("unsigned integer above 9223372036854775807"));
  }
}

TEST_P(Store_Rows, statements_and_objects_in_conditions_choose_rows) {
  using Item = Item_SQL;
  Object const document = {{"a", 1}};
  Array const documents = {document, Array{1, "x"}};
  Select_SQL parents("item");
  parents.select("parent").and_filter()->add_kv_item(Item::OP_GT, "parent", 0, Filter_SQL::no_flags);
  EXPECT_EQ(ids([&](auto& f) { f.add_kv_eq_item("note", document); }), "2");
  EXPECT_EQ(ids([&](auto& f) { f.add_in_item("note", documents, Filter_SQL::no_flags); }), "2 3");
  EXPECT_EQ(ids([](auto& f) { f.add_not_in_item("name", Object{{"O'Neil", 1}, {"axb", 2}}); }), "1 3 4 5");
  EXPECT_EQ(ids([](auto& f) { f.add_kv_item(Item::OP_EQ, "name", Secure_String("AlphA"), Filter_SQL::lower_case); }),
            "1 5");
  EXPECT_EQ(ids([&](auto& f) { f.add_in_item("id", parents); }), "1 2");
  EXPECT_EQ(ids([&](auto& f) { f.add_not_in_item("id", parents); }), "3 4 5 6");
  EXPECT_EQ(ids([](auto& f) { f.add_key_select_sql_not_in_item("id")->from("item").select("id-1"); }), "6");
  EXPECT_EQ(ids([](auto& f) { f.add_key_sql_eq_item("size")->sql("SELECT MAX(size) FROM item", true); }), "6");
  EXPECT_EQ(ids([](auto& f) { f.add_val_sql_item(Item::OP_IN, 2)->sql("SELECT item.parent", true); }), "4 5");
  EXPECT_EQ(ids([](auto& f) {
              f.add_kv_item(Item::OP_NE, "id", 1, Filter_SQL::no_flags);
              Select_SQL* const small = f.add_key_select_sql_in_item("size");
              small->table("item", "i")
                  .select("size")
                  .and_filter()
                  ->add_kv_item(Item::OP_LT, "i.size", 40, Filter_SQL::no_flags);
              Union_SQL* const either = f.add_key_union_sql_in_item("id");
              either->add_select_sql()->select("2");
              either->add_select_sql()->table("item", nullptr).select("id").and_filter()->add_kv_eq_item("flag", true);
              f.add_sql_ex("name>:low AND name<:high", true)->bind(":low", "1").bind(":high", "B");
            }),
            "3 5");
  EXPECT_EQ(ids([](auto& f) { f.add_sql_val_item(Item::OP_LT, 45)->sql("SELECT size+:n", true).bind(":n", 25); }),
            "1 5");
}

TEST_P(Store_Rows, selects_give_rows_and_their_number) {
  SQL const big = Raw("SUM(size)>:sum").bind(":sum", 40);
  auto const check = [&](char const* expected, unsigned long long count, std::function<void(Select_SQL&)> const& fill) {
    SCOPED_TRACE(expected);
    Select_SQL select;
    fill(select);
    EXPECT_EQ(rows(select), expected);
    EXPECT_EQ(store_.count(select, mode_), count);
  };
  check("2 3 4 5", 4,
        [](auto& s) { s.from("item a, item b").select("a.id").where("a.parent=b.id", true).count("*").order_by("1"); });
  check(R"("key",1,null "key",3,30)", 2, [](auto& s) {  // values in every clause, in text order
    s.sql_table("i")->table("item", nullptr).and_filter()->add_kv_item(Item_SQL::OP_LT, "id", 5, Filter_SQL::no_flags);
    s.add_sql_key("k")->select(":k").bind(":k", "key");
    s.add_key("i.id", nullptr).add_key("j.size", "n").count("*").order_by("i.id");
    s.sql_left_join("j", "j.id=i.id")->table("item", nullptr).and_filter()->add_kv_eq_item("size", 30);
    s.and_filter()->add_kv_eq_item("i.flag", true);
  });
  check("5", 4, [](auto& s) {
    s.table("item", "a").join("item", "b", "a.parent=b.id").select("a.id").order_by("1").offset(3);
  });
  check("null,1 2,2 3,3", 6, [](auto& s) {
    s.table("item", "a").inner_join("item", "b", "a.parent=b.id AND b.id=1").right_join("item", "c", "c.id=a.id");
    s.select("a.id,c.id").count("c.id").order_by("c.id").limit(3);
  });
  check("0", 1, [](auto& s) { s.from("item").select("flag").group_by("flag", true).having("SUM(size)>50", true); });
  check("null 1 2", 3,
        [&](auto& s) { s.from("item").select("parent").group_by("parent", false).having(&big).order_by("1"); });
  check("60 40 30 20 10", 5,
        [](auto& s) { s.from("item").distinct(true).select("size").count("DISTINCT size").order_by("1").desc(true); });
  check("1 3 2", 6, [](auto& s) {
    s.table("item", nullptr).add_key("id", nullptr).sort_keys("flag, size ,id").sort_orders("desc,asc,desc");
    s.limit(3).offset(1);
  });
  if (differs::has_full_join(db_)) {
    store_.run("INSERT INTO v(a) VALUES (5)");
    check("null,5 1,null", 7, [](auto& s) {
      s.table("item", "a").join_i(Select_SQL::FULL_JOIN, "v", nullptr, "a.id>6").select("a.id,v.a").order_by("1");
      s.limit(2).count("*");
    });
  }
  SQL page = Raw("SELECT id FROM item WHERE size>:size LIMIT :limit").bind(":size", 10).bind(":limit", 2);
  EXPECT_EQ(store_.count(page, mode_), 2U);
  page.count_sql("SELECT COUNT(*) FROM item WHERE size>:size", true);
  EXPECT_EQ(store_.count(page, mode_), 4U);
}

TEST_P(Store_Rows, inserts_deletes_and_unions) {
  Insert_SQL insert("v");
  insert.value("a", 1).new_entry().value("b", "x").new_entry().value("a", 2).value_null("b");
  insert.new_entry().value_sql("a")->sql("SELECT MAX(id) FROM item WHERE id<:top", true).bind(":top", 6);
  EXPECT_EQ(run(insert.value("b", "0.5")), 4U);
  EXPECT_EQ(rows(Select_SQL("v")), R"(1,null null,"x" 2,null 5,"0.5")");
  Insert_SQL again("v");
  again.value("a", 1).value("b", "new").new_entry().value("a", 3).or_expr(Insert_SQL::OR_IGNORE);
  EXPECT_EQ(run(again), 1U);
  EXPECT_EQ(run(again), 0U);
  EXPECT_EQ(run(again.or_expr(Insert_SQL::OR_REPLACE)), differs::counts_replaced_rows(db_) ? 3U : 2U);
  Insert_SQL copy("v");
  Select_SQL* const names = copy.value_key("a").value_key("b").values_sql();
  names->table("item", nullptr)
      .select("id+10,name")
      .and_filter()
      ->add_kv_item(Item_SQL::OP_LE, "id", 2, Filter_SQL::no_flags);
  EXPECT_EQ(run(copy), 2U);
  EXPECT_EQ(rows(Select_SQL("v").order_by("a")), R"(null,"x" 1,"new" 2,null 3,null 5,"0.5" 11,"alpha" 12,"O'Neil")");
  Delete_SQL small("v");
  small.or_filter()->add_kv_item(Item_SQL::OP_LT, "a", 11, Filter_SQL::no_flags);
  small.or_filter()->add_null_item("a");
  EXPECT_EQ(run(small), 5U);
  for (unsigned int const flags : {Union_SQL::distinct, Union_SQL::all}) {
    Union_SQL both(flags);
    both.add_select_sql()->table("v", nullptr).add_key("a", nullptr);
    both.add_select_sql()->table("v", nullptr).add_key("a", nullptr).and_filter()->add_kv_eq_item("b", "alpha");
    EXPECT_EQ(rows(both), flags == Union_SQL::all ? "11 12 11" : "11 12");
  }
  EXPECT_EQ(run(Delete_SQL("v")), 2U);
}

TEST_P(Store_Rows, changed_ones_are_counted) {
  EXPECT_EQ(store_.run("INSERT INTO v(a) VALUES (1),(2),(3)"), 3U);
  EXPECT_EQ(store_.run("CREATE TABLE u AS SELECT a FROM v"), differs::counts_copied_rows(db_) ? 3U : 0U);
  EXPECT_EQ(store_.run("UPDATE v SET b='x' WHERE a>1"), 2U);
  EXPECT_EQ(store_.run("UPDATE v SET b='x' WHERE a>1"), 2U);
  EXPECT_EQ(store_.run("SELECT * FROM v"), 0U);
  EXPECT_EQ(store_.run("UPDATE v SET a=0 WHERE a=99"), 0U);
  EXPECT_EQ(store_.run("DELETE FROM v"), 3U);
  EXPECT_EQ(store_.run("DROP TABLE u"), 0U);
}

TEST(SQLite_Store, errors_name_place_and_reason_but_no_value) {
  SQLite_Store store(":memory:");
  store.run("CREATE TABLE t(a UNIQUE, b CHECK(b<5)); -- done\n /* and */ ; /* over");
  auto const by_name = [&](auto const& s) { return error_of([&] { store.run(s); }); };
  auto const by_position = [&](auto const& s) { return error_of([&] { store.run(s, Store::BY_POSITION); }); };
  auto const value = [](Binding_Value const& v) { return Raw("INSERT INTO t(b) VALUES (:v)").bind(":v", v); };
  Binding_Value apart("text");
  apart.type(Binding_Value::real_type);
  EXPECT_EQ(by_name(""), "empty statement");
  EXPECT_EQ(by_name(" -- nothing"), "empty statement in:  -- nothing");
  EXPECT_EQ(by_name("SELECT 1;PRAGMA foreign_keys=OFF"),
            "more than one statement in: SELECT 1;PRAGMA foreign_keys=OFF");
  EXPECT_EQ(by_name(std::string("DELETE FROM t\0 WHERE a=1", 24)), "zero byte at offset 13 in: DELETE FROM t");
  EXPECT_EQ(by_name("SELECT * FROM x"), "no such table: x (SQLite error 1) in: SELECT * FROM x");
  EXPECT_EQ(by_position(Raw("-").bind(":a", 1).bind(":b", 2)), "more names are bound than the text can hold in: -");
  EXPECT_EQ(by_name(value(9223372036854775808ULL)),
            "parameter :v: unsigned integer above 9223372036854775807 in: INSERT INTO t(b) VALUES (:v)");
  EXPECT_EQ(by_position(value(std::nan(""))),
            "parameter 1: not a number, which would be stored as NULL in: INSERT INTO t(b) VALUES (?)");
  EXPECT_EQ(by_name(value(apart)), "parameter :v: value is of type string, not real in: INSERT INTO t(b) VALUES (:v)");
  EXPECT_EQ(by_name(Raw("SELECT 'a' LIKE :p").bind(":p", std::string(4097, '%'))),
            "SQL logic error (SQLite error 1) in: SELECT 'a' LIKE :p");
  EXPECT_EQ(by_name(value(77)), "CHECK constraint failed: b<5 (SQLite error 275) in: INSERT INTO t(b) VALUES (:v)");
  EXPECT_EQ(by_name(Raw("SELECT json_extract('{}',:p)").bind(":p", Secure_String("pass"))),
            "SQL logic error (SQLite error 1) in: SELECT json_extract('{}',:p)");
  EXPECT_EQ(error_of([&] { store.count(Raw("").count_sql("SELECT -1", true)); }),
            "the count query does not give one number in: SELECT -1");
  EXPECT_EQ(rows_text(store, Raw("SELECT foreign_keys,(SELECT COUNT(*) FROM t) FROM pragma_foreign_keys")), "1,0");
  std::string const text = "INSERT INTO t(a) VALUES (1),(1) --" + std::string(465, ' ') + "\xC3\xBC and more";
  try {
    store.run(text);
    ADD_FAILURE() << "no error";
  } catch (Store_Error const& error) {
    EXPECT_EQ(error.code(), 2067);
    EXPECT_EQ(error.message(), "UNIQUE constraint failed: t.a (SQLite error 2067)");
    EXPECT_EQ(error.statement(), text);
    EXPECT_EQ(error.what(),
              "UNIQUE constraint failed: t.a (SQLite error 2067) in: " + text.substr(0, 499) + "... (510 bytes)");
  }
}

TEST_P(Store_Rows, need_a_value_for_each_parameter_and_a_parameter_for_each_value) {
  char const* const cases[][3] = {
      // text, and errors by name and by position
      {"SELECT :b", "no parameter :a for the value in: SELECT :b",
       "parameter :b has a name, but values come by position in: SELECT :b"},
      {"SELECT ?,:a", "a parameter has no name, but values come by name in: SELECT ?,:a",
       "1 values for 2 parameters in: SELECT ?,?"},
      {"SELECT :a,:b", "no value for the parameter :b in: SELECT :a,:b",
       "parameter :b has a name, but values come by position in: SELECT ?,:b"},
      {"SELECT ':a'", "no parameter :a for the value in: SELECT ':a'", "1 values for 0 parameters in: SELECT '?'"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(error_of([&] { run(Raw(c[0]).bind(":a", 1)); }), c[mode_ == Store::BY_NAME ? 1 : 2]);
}

TEST_P(Store_Rows, of_kept_statements_follow_the_schema) {
  Store& store = store_;
  create("t(a {integer})");
  store.run("INSERT INTO t VALUES (1)");
  SQL const select = Raw("SELECT * FROM t WHERE a=:a").bind(":a", 1);
  EXPECT_EQ(rows_text(store, select), "1");
  store.run("ALTER TABLE t ADD COLUMN b VARCHAR(9) DEFAULT 'x'");
  EXPECT_EQ(rows_text(store, select), R"(1,"x")");
  for (std::size_t i = 0; i < 200; ++i) {  // more than are kept
    std::string const text = "SELECT " + std::to_string(i % 150) + "+:n" + std::string(i % 3 * 10000, ' ');
    EXPECT_EQ(rows_text(store, Raw(text.c_str()).bind(":n", i)), std::to_string(i % 150 + i));
  }
  EXPECT_EQ(rows_text(store, select), R"(1,"x")");
  store.run("DROP TABLE t");
  EXPECT_THAT(error_of([&] { store.run(select); }), testing::EndsWith(" in: SELECT * FROM t WHERE a=:a"));
}

TEST_P(Store_Rows, stream_until_the_callback_has_enough) {
  std::string const text = "SELECT id FROM item";
  auto const use_itself = [&] { store_.query(text, [&](Store::Row const&) { return store_.run(text) == 0; }); };
  EXPECT_EQ(error_of(use_itself), "the store is used from its own row callback in: " + text);
  SQL const numbers =
      Raw("WITH RECURSIVE n(i) AS (SELECT :i UNION ALL SELECT i+1 FROM n WHERE i<900) SELECT i,i*i AS square FROM n")
          .bind(":i", 1);
  for (int run = 0; run < 2; ++run) {  // the statement is free again however it was left
    EXPECT_THROW(store_.query(
                     numbers, [](Store::Row const&) -> bool { throw std::out_of_range("enough"); }, mode_),
                 std::out_of_range);
    std::string seen;
    auto const columns = store_.query(numbers, [&](Store::Row const& row) {
      seen += value_text(row[1]) + ' ';
      return row[0].val().get_int64() < 3;
    });
    EXPECT_EQ(columns, (std::vector<std::string>{"i", "square"}));
    EXPECT_EQ(seen, "1 4 9 ");
  }
}

TEST(SQLite_Store, a_check_at_the_end_of_a_statement_is_its_error) {
  SQLite_Store store(":memory:");
  store.run("CREATE TABLE t(a PRIMARY KEY, p REFERENCES t(a) DEFERRABLE INITIALLY DEFERRED)");
  std::string const text = "INSERT INTO t VALUES (1,2) RETURNING a";  // checked when it ends
  EXPECT_EQ(error_of([&] { store.query(text, [](Store::Row const&) { return false; }); }),
            "FOREIGN KEY constraint failed (SQLite error 787) in: " + text);
}

TEST(Transaction, rolls_back_unless_committed) {
  SQLite_Store store(":memory:");
  store.run("CREATE TABLE t(a INTEGER PRIMARY KEY, p REFERENCES t(a) DEFERRABLE INITIALLY DEFERRED)");
  auto const insert = [&](int a) { store.run(Insert_SQL("t").value("a", a)); };
  Transaction first(store);
  EXPECT_EQ(error_of([&] { Transaction const nested(store); }), "a transaction is open already");
  insert(1);
  first.commit();
  auto const leave_by_error = [&] {
    Transaction const transaction(store);
    insert(2);
    insert(1);
  };
  EXPECT_EQ(error_of(leave_by_error),
            "UNIQUE constraint failed: t.a (SQLite error 1555) in: INSERT INTO `t`(`a`) VALUES(:1)");
  auto const fail_to_commit = [&] {
    Transaction transaction(store);
    store.run("INSERT INTO t VALUES (3,99)");
    transaction.commit();
  };
  EXPECT_EQ(error_of(fail_to_commit), "FOREIGN KEY constraint failed (SQLite error 787) in: COMMIT");
  EXPECT_EQ(rows_text(store, Select_SQL("t")), "1,null");
}

TEST(SQLite_Store, opening_fails_at_once_and_a_lock_is_waited_for) {
  Temporary_Directory const directory;
  std::string const good = directory.file("good");
  std::string const text = directory.file("text");
  std::ofstream(text) << "not a database";
  for (auto const mode : {SQLite_Store::OPEN_OR_CREATE, SQLite_Store::OPEN_READ_WRITE}) {
    EXPECT_EQ(SQLite_Store(good, mode).run("CREATE TABLE IF NOT EXISTS t(a)"), 0U);
  }
  EXPECT_EQ(error_of([&] { SQLite_Store(good, SQLite_Store::OPEN_READ_ONLY).run("DROP TABLE t"); }),
            "attempt to write a readonly database (SQLite error 8) in: DROP TABLE t");
  SQLite_Store holder(good);
  SQLite_Store waiting(good, SQLite_Store::OPEN_READ_WRITE, std::chrono::milliseconds(200));
  {
    Transaction const transaction(holder);
    EXPECT_EQ(error_of([&] { waiting.run("DELETE FROM t"); }),
              "database '" + good +
                  "' is locked by another connection, waited for 0.2 s (SQLite error 5) in: "
                  "DELETE FROM t");
  }
  std::string const none = "unable to open database file: No such file or directory (SQLite error 14)";
  std::tuple<std::string, SQLite_Store::Open_Mode, std::string> const cases[] = {
      {text, SQLite_Store::OPEN_OR_CREATE, "file is not a database (SQLite error 26)"},
      {text, SQLite_Store::OPEN_READ_ONLY, "file is not a database (SQLite error 26)"},
      {directory.file("none"), SQLite_Store::OPEN_READ_WRITE, none},
      {directory.file("none"), SQLite_Store::OPEN_READ_ONLY, none},
      {"file:" + good, SQLite_Store::OPEN_READ_WRITE, none},
      {directory.path, SQLite_Store::OPEN_OR_CREATE, "not a regular file"},
      {directory.path, SQLite_Store::OPEN_READ_ONLY, "not a regular file"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(error_of([&] { SQLite_Store(std::get<0>(c), std::get<1>(c)); }),
              "cannot open database '" + std::get<0>(c) + "': " + std::get<2>(c));
  }
  std::filesystem::permissions(directory.path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                                                   std::filesystem::perms::others_exec);
  ASSERT_EQ(seteuid(geteuid() == 0 ? 65534 : geteuid()), 0);  // the superuser may write everywhere
  std::string const error = error_of([&] { SQLite_Store{directory.file("new")}; });
  ASSERT_EQ(seteuid(getuid()), 0);
  EXPECT_THAT(error, testing::EndsWith("unable to open database file: Permission denied (SQLite error 14)"));
  for (std::string const& path : {std::string(), good + '\0'}) {
    EXPECT_EQ(error_of([&] { SQLite_Store{path}; }), "cannot open a database whose path is empty or holds a zero byte");
  }
}

TEST(MySQL_Store, columns_come_back_as_what_they_are) {
  auto const store = open_empty(Database::mariadb);
  store->run(
      "CREATE TABLE t(a BIGINT UNSIGNED, b FLOAT, c DECIMAL(30,2), d DATETIME(3), e TIME, f YEAR, g BIT(9),"
      " h VARBINARY(9), i ENUM('x','y'), j TINYINT, k DATE, l TIMESTAMP)");
  store->run(
      "INSERT INTO t VALUES (18446744073709551615,0.5,-12345678901234567890.50,'2026-01-02 03:04:05.678',"
      "'-100:00:00',2026,b'101010101',x'00ff','y',-128,'0001-01-01',FROM_UNIXTIME(1))");
  EXPECT_EQ(
      rows_text(*store, Select_SQL("t")),
      R"(18446744073709551615,0.5,"-12345678901234567890.50","2026-01-02 03:04:05.678","-100:00:00",2026,x"0155",)"
      R"(x"00FF","y",-128,"0001-01-01","1970-01-01 00:00:01")");
  EXPECT_EQ(rows_text(*store, Raw("SELECT SUM(j),SUM(a),SUM(a)*10,AVG(j),SUM(b),NULL,1=1,LOWER('Ä') FROM t")),
            R"(-128,18446744073709551615,"184467440737095516150","-128.0000",0.5,null,1,"ä")");
  store->run("CREATE PROCEDURE p() BEGIN SELECT 1; SELECT 2; END");
  EXPECT_EQ(rows_text(*store, Raw("CALL p()")), "1");
  EXPECT_EQ(rows_text(*store, Raw("INSERT INTO t(j) VALUES (:j) RETURNING j").bind(":j", 5)), "5");
}

TEST(MySQL_Store, cancels_a_select_that_a_callback_leaves_and_nothing_else) {
  auto const store = open_empty(Database::mariadb);
  store->run("CREATE TABLE t(a INT)");
  store->run("INSERT INTO t SELECT seq FROM seq_1_to_30000");
  store->run("CREATE TABLE log(a INT)");
  store->run("CREATE OR REPLACE USER one WITH MAX_USER_CONNECTIONS 1");
  store->run("GRANT ALL ON " + own_database() + ".* TO one");
  std::string url = mariadb_url(own_database());
  MySQL_Store lone(url.replace(url.find("root"), 4, "one"));
  struct {
    Store& store;
    SQL statement;
    long long kills;
  } const cases[] = {
      {*store, Raw("SELECT 1"), 0},
      {*store, Raw("SELECT a.seq FROM seq_1_to_1000000 a,seq_1_to_1000000 b"), 1},
      {*store, Raw("\n(select a.seq+:n FROM seq_1_to_1000000 a,seq_1_to_1000000 b)").bind(":n", 1), 1},
      {*store, Raw("DELETE FROM t RETURNING a"), 0},
      {lone, Raw("SELECT seq FROM seq_1_to_200000"), 0},
  };
  auto const kills = [&] {
    return std::stoll(store->rows(Raw("SHOW GLOBAL STATUS LIKE 'Com_kill'"))[0][1].val().get_str());
  };
  for (auto const& c : cases) {
    for (bool const throws : {false, true}) {
      SCOPED_TRACE(render(c.statement));
      long long const before = kills();
      Transaction transaction(c.store);
      c.store.run("INSERT INTO log VALUES (1)");
      bool has_thrown = false;
      try {
        c.store.query(c.statement,
                      [&](Store::Row const&) { return throws ? throw std::out_of_range("enough") : false; });
      } catch (std::out_of_range const&) {
        has_thrown = true;
      }
      EXPECT_EQ(has_thrown, throws);
      c.store.run("INSERT INTO log SELECT COUNT(*) FROM t");
      transaction.commit();
      EXPECT_EQ(kills() - before, c.kills);
      store->run("INSERT INTO t SELECT seq FROM seq_1_to_30000 WHERE NOT EXISTS (SELECT 1 FROM t)");
    }
  }
  EXPECT_EQ(rows_text(*store, Raw("SELECT a,COUNT(*) FROM log GROUP BY a ORDER BY a")), "0,2 1,10 30000,8");
}

TEST(MySQL_Store, names_in_literals_and_comments_are_none) {
  auto const store = open_empty(Database::mariadb);
  SQL const tricky =
      Raw("SELECT ':a', ':a''s', \":a\" AS `:a`, @x:=:a /* :a */ + /*! :a */ -- :b\n , 1--:a # :a").bind(":a", 2);
  EXPECT_EQ(rows_text(*store, tricky), R"(":a",":a's",":a",4,3)");
}

TEST(MySQL_Store, without_its_mode_a_backslash_would_end_a_literal_early) {
  auto const store = open_empty(Database::mariadb);
  store->run("CREATE TABLE t(a TEXT)");
  store->run("INSERT INTO t VALUES ('row')");
  Select_SQL select("t");
  select.and_filter()->add_in_item("a", Array{"\\') OR 1 -- "}, 0);
  std::string text;
  std::vector<Binding_Value> none;
  select.get_sql(SQL::DB_MYSQL, text, none);
  EXPECT_EQ(text, R"(SELECT * FROM `t` WHERE (`a` IN ('\'') OR 1 -- ')))");
  EXPECT_EQ(rows_text(*store, select), "");
  store->run(
      "CREATE PROCEDURE run_without_mode(text TEXT) BEGIN SET @modes=@@sql_mode; SET sql_mode='';"
      " EXECUTE IMMEDIATE text; SET sql_mode=@modes; END");
  EXPECT_EQ(rows_text(*store, Raw("CALL run_without_mode(:text)").bind(":text", text + "\n)")), R"("row")");
}

TEST(MySQL_Store, errors_name_place_and_reason_but_no_value) {
  auto const store = open_empty(Database::mariadb);
  store->run("CREATE TABLE t(a VARCHAR(9) UNIQUE, b INT CHECK (b<5))");
  auto const insert = [&](char const* column, Binding_Value const& value) {
    return error_of([&] { store->run(Insert_SQL("t").value(column, value)); });
  };
  std::string const place = " in: INSERT INTO `t`(`a`) VALUES(:1)";
  EXPECT_EQ(insert("a", "secret"), "no error");
  EXPECT_EQ(insert("a", "secret"), "duplicate entry for a unique key (MySQL error 1062)" + place);
  EXPECT_EQ(insert("a", "secret secret"), "Data too long for column 'a' at row 1 (MySQL error 1406)" + place);
  EXPECT_EQ(insert("a", std::string("\xFF")), "a value or its use is refused (MySQL error 1366)" + place);
  EXPECT_EQ(insert("a", std::nan("")), "parameter :1: not a number, which would be stored as NULL" + place);
  EXPECT_THAT(insert("b", 7), testing::StartsWith("CONSTRAINT `t.b` failed for `test_"));
  auto const error = [&](SQL const& s) { return error_of([&] { store->run(s); }); };
  EXPECT_THAT(error(Raw("SELECT 1;SELECT 2")), testing::HasSubstr("near 'SELECT 2' at line 1 (MySQL error 1064) in: "));
  EXPECT_EQ(error_of([&] { store->rows(Raw("SELECT IF(a='secret',(SELECT 1 UNION SELECT 2),1) FROM t")); }),
            "Subquery returns more than 1 row (MySQL error 1242) in: SELECT IF(a='secret',(SELECT 1 UNION SELECT 2),1)"
            " FROM t");
  EXPECT_EQ(rows_text(*store, Select_SQL("t")), R"("secret",null)");
  store->run("SET SESSION sql_mode='STRICT_ALL_TABLES'");
  EXPECT_EQ(error(Raw("SELECT 1")), "the session has lost the SQL mode NO_BACKSLASH_ESCAPES in: SELECT 1");
}

TEST(MySQL_Store, opening_fails_with_the_reason_and_without_the_password) {
  std::string const refused = "cannot read the URL of the database: ";
  std::pair<char const*, std::string> const cases[] = {
      {"mysql://u:pass:@word@h/x", refused + "a password does not belong into it"},
      {"MariaDB://u%3Apass@h/x", refused + "a password does not belong into it"},
      {"http://h/x", refused + "it does not begin with mysql:// or mariadb://"},
      {"mysql:/u:pass@h//x", refused + "it does not begin with mysql:// or mariadb://"},
      {"mysql://h", refused + "no '/' before the database"},
      {"mysql://u/pass@h/x", refused + "'/' or '@' in the database's name"},
      {"mysql:///x", refused + "neither a host nor a socket"},
      {"mysql://h/x?password=pass", refused + "after '?' only socket=path is known"},
      {"mysql://h/?socket=/s", refused + "a socket is on this machine, not on another host"},
      {"mysql://h/%0", refused + "a percent sign without the two digits of a byte"},
      {"mysql://h:65536/", refused + "the port is no number from 1 to 65535"},
      {"mysql://h;user=u/", refused + "no name or address of a host"},
      {"mysql://[::1/", refused + "a bracket that is not closed"},
      {"MYSQL://[::1]:1/", "cannot open 'MYSQL://[::1]:1/': Can't connect to server on '::1' (115) (MySQL error 2002)"},
  };
  for (auto const& [url, message] : cases) {
    EXPECT_EQ(error_of([&, text = url] { MySQL_Store{text}; }), message);
  }
  auto const store = open_empty(Database::mariadb);
  store->run("CREATE OR REPLACE USER 'a@b c' IDENTIFIED BY 'pass'");
  std::string url = mariadb_url();
  url.replace(url.find("root"), 4, "a%40b%20c");
  EXPECT_EQ(rows_text(*std::make_unique<MySQL_Store>(url, "pass"), Raw("SELECT USER()")), R"("a@b c@localhost")");
  EXPECT_THAT(error_of([&] { MySQL_Store(url, "word"); }), testing::HasSubstr("Access denied for user 'a@b c'@"));
}

TEST(Transaction, ends_with_what_ends_it_on_mariadb) {
  auto const store = open_empty(Database::mariadb);
  MySQL_Store other(mariadb_url(own_database()));
  store->run("CREATE TABLE t(a INT PRIMARY KEY, b INT)");
  store->run("INSERT INTO t VALUES (1,0),(2,0)");
  std::string const over =
      "the transaction is over: rolled back by the database, or committed by a statement in it in: ";
  auto const change_schema = [&] {
    Transaction const transaction(*store);
    store->run("CREATE TABLE u(a INT)");
    store->run("DELETE FROM t");
  };
  EXPECT_EQ(error_of(change_schema), over + "DELETE FROM t");

  auto const drop_rows = [&] {  // the error after the first row is found although nobody reads the rows
    Transaction transaction(*store);
    store->run("INSERT INTO t VALUES (3,0),(1,0) RETURNING a");
    transaction.commit();
  };
  EXPECT_THAT(error_of(drop_rows), testing::StartsWith("Duplicate entry '1' for key 'PRIMARY' (MySQL error 1062)"));

  // A deadlock ends a transaction while its rows are read: nothing after it is committed alone.
  auto const change_both = [](Store& s, int first, int second, bool locks, std::atomic<int>& ready,
                              std::string& error) {
    Transaction transaction(s);
    auto const change = [&](int a) { s.run("UPDATE t SET b=b+1 WHERE a=" + std::to_string(a)); };
    change(first);
    for (++ready; ready < 2;) std::this_thread::yield();
    std::string const lock = "SELECT a FROM t WHERE a IN (0," + std::to_string(second) + ") FOR UPDATE";
    error = error_of([&] { locks ? (void)s.run(lock) : change(second); });
    error += error_of([&] { change(first); });
    error_of([&] { transaction.commit(); });
  };
  for (bool const locks : {true, false}) {
    std::string errors[2];
    std::atomic<int> ready = 0;
    std::thread thread([&] { change_both(other, 2, 1, locks, ready, errors[1]); });
    change_both(*store, 1, 2, locks, ready, errors[0]);
    thread.join();
    EXPECT_THAT(errors, testing::UnorderedElementsAre(
                            "no errorno error",
                            testing::AllOf(testing::StartsWith("Deadlock found when trying to get lock; try restarting "
                                                               "transaction (MySQL error 1213) in: "),
                                           testing::HasSubstr(over))));
  }

  // `transact` runs it again from the start.
  std::atomic<int> ready = 0;
  auto const add_to_both = [&ready](Store& s, int first, int second) {
    s.transact([&, attempt = 0]() mutable {
      s.run("UPDATE t SET b=b+10 WHERE a=" + std::to_string(first));
      if (++attempt == 1) {
        for (++ready; ready < 2;) std::this_thread::yield();
      }
      s.run("UPDATE t SET b=b+10 WHERE a=" + std::to_string(second));
    });
  };
  std::thread thread([&] { add_to_both(other, 2, 1); });
  add_to_both(*store, 1, 2);
  thread.join();

  auto const lose_connection = [&] {
    Transaction const transaction(other);
    other.run("DELETE FROM t");
    store->run("KILL CONNECTION " + rows_text(other, Raw("SELECT CONNECTION_ID()")));
    other.run("DELETE FROM t");
  };
  EXPECT_THAT(error_of(lose_connection), testing::HasSubstr("(MySQL error "));
  EXPECT_THAT(error_of([&] { other.run("SELECT 1"); }), testing::HasSubstr("(MySQL error 2006) in: SELECT 1"));
  EXPECT_EQ(rows_text(*store, Raw("SELECT COUNT(*),SUM(b) FROM t")), "2,45");
}
