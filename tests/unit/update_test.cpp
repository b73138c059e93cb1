#include "backup/utils/sql/update_sql.h"

#include <gtest/gtest.h>

#include "backup/utils/sql/select_sql.h"
#include "support/log_capture.h"
#include "support/random_source.h"
#include "support/render.h"

TEST(Update_SQL, assignments_are_written_in_byte_order_before_the_where_clause) {
  Update_SQL update("t");
  EXPECT_EQ(render(update.where("x=1")), "UPDATE `t` SET  WHERE x=1");
  EXPECT_TRUE(update.empty()) << "conditions are not looked at";
  update.where(nullptr).and_filter()->add_kv_eq_item("id", 7);
  update.set("b", 1).set("a", "first").set("B", 2.5).set("a", "last");
  update.set_sql("c")->sql("NOW()+:n", true).bind(":n", 9);
  update.set_select_sql("d")->table("u", nullptr).and_filter()->add_kv_eq_item("y", "sub");
  EXPECT_EQ(render(update),
            "UPDATE `t` SET `B`=:1,`a`=:2,`b`=:3,`c`=(NOW()+:n),`d`=(SELECT * FROM `u` WHERE (`y`=:4)) WHERE (`id`=:5) "
            "{:1=2.5 :2=\"last\" :3=1 :4=\"sub\" :5=7 :n=9}");
  EXPECT_EQ(render(Update_SQL(update), SQL::DB_NONE), render(update, SQL::DB_MYSQL));
  update.clear();
  EXPECT_EQ(render(update), "UPDATE `` SET ");
  EXPECT_EQ(render(update.table("v").set("a", 1)), "UPDATE `v` SET `a`=:1 {:1=1}");
}

TEST(Update_SQL, values_come_from_objects_uuids_and_times) {
  constexpr char const* uuid = "00112233-4455-6677-8899-aabbccddeeff";
  std::string const bytes = "x\"00112233445566778899AABBCCDDEEFF\"";
  json_spirit::Object const object{{"id", uuid}, {"secret", Secure_String(uuid)}, {"null", {}}, {"number", 5}};
  Binding_Value_Hex_Converter const hex;
  Update_SQL update("t");
  update.set("a", object, "number").set(object, "id").set("b", "0a", &hex).set_uuid("c", uuid);
  update.set_uuid("d", std::string("no uuid")).set_uuid("e", Secure_String(uuid)).set_uuid("f", object, "secret");
  update.set_uuid(object, "null").set_time("g", -1);
  Random_Source const zeros(0);
  update.set_new_uuid("h");
  Log_Capture log(true);
  update.set("x", object, "absent").set(object, "gone").set_uuid("y", object, "number").set_uuid(object, "lost");
  auto const warning = [](char const* key, char const* what) {
    return std::string("WARNING update_sql 0: Failed to add '") + key + "' to update statement: no such " + what +
           " in input.\n";
  };
  EXPECT_EQ(log.take(), (std::vector<std::string>{warning("absent", "value"), warning("gone", "value"),
                                                  warning("number", "string"), warning("lost", "string")}));
  EXPECT_EQ(render_positional(update, SQL::DB_MYSQL),
            "UPDATE `t` SET `a`=?,`b`=?,`c`=?,`d`=?,`e`=?,`f`=?,`g`=?,`h`=?,`id`=?,`null`=? [5,\"0a\"," + bytes +
                ",\"no uuid\"," + bytes + ',' + bytes +
                ",\"1969-12-31 23:59:59\",x\"00000000000040008000000000000000\",\"" + uuid + "\",null]");
}
