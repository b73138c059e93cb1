#include "backup/utils/sql/insert_sql.h"

#include <gtest/gtest.h>

#include <tuple>

#include "backup/utils/sql/select_sql.h"
#include "support/log_capture.h"
#include "support/random_source.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char const* uuid_text = "00112233-4455-6677-8899-aabbccddeeff";

}  // namespace

TEST(Insert_SQL, the_verb_is_the_dialects) {
  std::tuple<Insert_SQL::Or_Expr, std::string, std::string> const cases[] = {
      {Insert_SQL::OR_NONE, "INSERT", "INSERT"},
      {Insert_SQL::OR_IGNORE, "INSERT IGNORE", "INSERT OR IGNORE"},
      {Insert_SQL::OR_REPLACE, "REPLACE", "INSERT OR REPLACE"},
      {static_cast<Insert_SQL::Or_Expr>(9), "INSERT", "INSERT"},
  };
  for (auto const& [expression, mysql, sqlite] : cases) {
    Insert_SQL insert("t");
    insert.or_expr(expression).value("a", 1);
    EXPECT_EQ(render(insert, SQL::DB_MYSQL), mysql + " INTO `t`(`a`) VALUES(:1) {:1=1}");
    EXPECT_EQ(render(insert, SQL::DB_SQLITE), sqlite + " INTO `t`(`a`) VALUES(:1) {:1=1}");
    std::string text = "kept";
    Bindings bindings;
    EXPECT_EQ(insert.get_sql(SQL::DB_NONE, text, bindings), "kept INTO `t`(`a`) VALUES(:1)");
  }
}

TEST(Insert_SQL, rows_share_the_columns_in_order_of_first_use) {
  Insert_SQL insert(nullptr);
  EXPECT_EQ(render(insert), "INSERT INTO `` VALUES()");
  insert.table("t").value("a", 1).value("b", 2).value("a", "last wins").new_entry();
  insert.value_null("c").value("b", 3).new_entry().value_key("d");
  EXPECT_EQ(render(insert),
            "INSERT INTO `t`(`a`,`b`,`c`,`d`) VALUES(:1,:2,NULL,NULL),(NULL,:3,:4,NULL),(NULL,NULL,NULL,NULL) "
            "{:1=\"last wins\" :2=2 :3=3 :4=null}");
  EXPECT_FALSE(insert.empty());
  Insert_SQL copy(insert);
  EXPECT_EQ(render(copy.clear_entries().value("d", 1)),
            "INSERT INTO `t`(`a`,`b`,`c`,`d`) VALUES(NULL,NULL,NULL,:1) {:1=1}");
  insert.clear();
  EXPECT_EQ(render(insert.value("x", 1)), "INSERT INTO ``(`x`) VALUES(:1) {:1=1}");
}

TEST(Insert_SQL, converters_that_refuse_leave_the_value_as_it_came) {
  Binding_Value_UUID_Converter const uuid;
  json_spirit::Object const object{
      {"uuid", uuid_text}, {"secret", Secure_String(uuid_text)}, {"text", "no uuid"}, {"null", {}}, {"number", 5}};
  Insert_SQL insert("t");
  insert.value("a", uuid_text, &uuid).value("b", "no uuid", &uuid).value("c", 5, &uuid);
  insert.value("d", object, "uuid", &uuid).value(object, "number").value("e", object, "null", &uuid);
  insert.value_uuid("f", uuid_text).value_uuid("g", std::string("no uuid")).value_uuid("h", Secure_String(uuid_text));
  insert.value_uuid("i", object, "secret").value_uuid("j", object, "null").value_uuid(object, "text");
  insert.value_hex("k", std::string("00112233445566778899aabbccddeeff")).value_hex("l", Secure_String("0a"));
  insert.value_hex("m", object, "text").value_hex(object, "null").value_time("n", 86399);
  std::string const bytes = "x\"00112233445566778899AABBCCDDEEFF\"";
  EXPECT_EQ(render_positional(insert),
            "INSERT INTO `t`(`a`,`b`,`c`,`d`,`number`,`e`,`f`,`g`,`h`,`i`,`j`,`text`,`k`,`l`,`m`,`null`,`n`) "
            "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?) [" +
                bytes + ",\"no uuid\",5," + bytes + ",5,null," + bytes + ",\"no uuid\"," + bytes + ',' + bytes +
                ",null,\"no uuid\"," + bytes + ",\"0a\",\"no uuid\",null,\"1970-01-01 23:59:59\"]");
  EXPECT_EQ(insert.entries()[0].at("l").val().type(), Binding_Value::secure_str_type);
  EXPECT_EQ(insert.entries()[0].at("i").val().type(), Binding_Value::secure_bin_type);
}

TEST(Insert_SQL, missing_input_changes_nothing_and_warns_in_debug_runs_only) {
  json_spirit::Object const object{{"number", 5}};
  Insert_SQL insert("t");
  auto const warning = [](char const* key, char const* what) {
    return std::string("WARNING insert_sql 0: Failed to add '") + key + "' to insert statement: no such " + what +
           " in input.\n";
  };
  for (bool const debug : {false, true}) {
    Log_Capture log(debug);
    insert.value("a", object, "k").value(object, "l").value_uuid("b", object, "number").value_hex(object, "m");
    Lines const warnings{warning("k", "value"), warning("l", "value"), warning("number", "string"),
                         warning("m", "string")};
    EXPECT_EQ(log.take(), debug ? warnings : Lines{});
  }
  EXPECT_TRUE(insert.empty());
}

TEST(Insert_SQL, statements_stand_for_values_and_for_rows) {
  Insert_SQL insert("t");
  insert.value("a", 1);
  insert.value_sql("b")->sql("NOW()+:n", true).bind(":n", 2);
  insert.value_select_sql("c")->table("u", nullptr).and_filter()->add_kv_eq_item("x", "in");
  insert.value("d", 4);
  EXPECT_EQ(render(insert),
            "INSERT INTO `t`(`a`,`b`,`c`,`d`) VALUES(:1,(NOW()+:n),(SELECT * FROM `u` WHERE (`x`=:2)),:3) "
            "{:1=1 :2=\"in\" :3=4 :n=2}");
  Select_SQL* const rows = insert.values_sql();
  EXPECT_EQ(insert.values_sql(), rows);
  rows->table("v", nullptr).and_filter()->add_kv_eq_item("y", 1);
  EXPECT_EQ(render(insert), "INSERT INTO `t`(`a`,`b`,`c`,`d`) SELECT * FROM `v` WHERE (`y`=:1) {:1=1}");
  insert.clear();
  Random_Source const zeros(0);
  EXPECT_EQ(render(insert.value_new_uuid("u")),
            "INSERT INTO ``(`u`) VALUES(:1) {:1=x\"00000000000040008000000000000000\"}");
}
