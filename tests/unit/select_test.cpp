#include "backup/utils/sql/select_sql.h"

#include <gtest/gtest.h>

#include <functional>

#include "backup/utils/sql/union_sql.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;

struct Case {
  char const* text;
  std::function<void(Select_SQL&)> build;
};

template <std::size_t count>
void expect_texts(Case const (&cases)[count], std::string (*rendered)(SQL const&, SQL::Database_Type)) {
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    Select_SQL select;
    c.build(select);
    EXPECT_EQ(rendered(select, SQL::DB_SQLITE), c.text);
  }
}

}  // namespace

TEST(Select_SQL, each_clause_is_written_as_set) {
  static SQL const raw_having("SUM(x)>:h", SQL::TYPE_RAW, true);
  static SQL const empty_having(nullptr, SQL::TYPE_RAW, true);
  static Union_SQL const empty_union(Union_SQL::distinct);
  Case const cases[] = {
      {"SELECT * FROM `t` `x`,`u`", [](Select_SQL& s) { s.table("t", "x").table("u", ""); }},
      {"SELECT * FROM  `x`", [](Select_SQL& s) { s.table(nullptr, "x"); }},
      {"SELECT a+1 FROM f, g",
       [](Select_SQL& s) { s.add_key("b", nullptr).select("a+1").table("t", "").from("f, g"); }},
      {"SELECT b FROM `t`", [](Select_SQL& s) { s.add_key("b", nullptr).select("").table("t", "").from(""); }},
      {"SELECT DISTINCT t.a `n`,b, `e`",
       [](Select_SQL& s) { s.distinct(true).add_key("t.a", "n").add_key("b", "").add_key("", "e"); }},
      {"SELECT * JOIN `a` ON 1 LEFT JOIN `b` `c` RIGHT JOIN `d` INNER JOIN `e` FULL JOIN `f` JOIN `g`",
       [](Select_SQL& s) {
         s.join("a", nullptr, "1").left_join("b", "c", "").right_join("d", "", "").inner_join("e", "", "");
         s.join_i(Select_SQL::FULL_JOIN, "f", "", "").join_i(static_cast<Select_SQL::Join_Mode>(9), "g", "", "");
       }},
      {"SELECT *", [](Select_SQL& s) { s.join(nullptr, "a", "on").left_join("", "a", "on"); }},
      {"SELECT * JOIN (SELECT *) `a` ON x LEFT JOIN (SELECT *) RIGHT JOIN (SELECT *) INNER JOIN (SELECT *)",
       [](Select_SQL& s) {
         s.sql_join("a", "x");
         s.sql_left_join("", "");
         s.sql_right_join(nullptr, "");
         s.sql_inner_join(nullptr, "");
       }},
      {"SELECT * WHERE w GROUP BY g HAVING h",
       [](Select_SQL& s) { s.where("w", true).group_by("g", true).having("h", true).having(&raw_having); }},
      {"SELECT * WHERE w", [](Select_SQL& s) { s.where("w", false).group_by("", true).having("", false); }},
      {"SELECT * HAVING SUM(x)>:h", [](Select_SQL& s) { s.having("", false).having(&raw_having); }},
      {"SELECT * WHERE w", [](Select_SQL& s) { s.where("w", false).having(&empty_having); }},
      {"SELECT * WHERE w HAVING  WHERE w", [](Select_SQL& s) { s.where("w", false).having(&empty_union); }},
      {"SELECT * ORDER BY x DESC", [](Select_SQL& s) { s.sort_by("a", false).order_by("x").desc(true); }},
      {"SELECT * ORDER BY a ASC,b DESC", [](Select_SQL& s) { s.order_by("").sort_by("a", false).sort_by("b", true); }},
      {"SELECT * ORDER BY a ASC,b ASC, ASC,c ASC", [](Select_SQL& s) { s.sort_by("z", true).sort_keys("a, b,\t,c "); }},
      {"SELECT * ORDER BY a DESC", [](Select_SQL& s) { s.sort_by("z", false).desc(true).sort_keys("a"); }},
      {"SELECT * ORDER BY a DESC,b ASC", [](Select_SQL& s) { s.sort_keys("a,b").sort_orders("desc,DESC,desc"); }},
      {"SELECT * ORDER BY a ASC,b DESC",
       [](Select_SQL& s) { s.sort_by("a", true).sort_by("b", true).sort_orders(" asc "); }},
      {"SELECT * ORDER BY  ASC", [](Select_SQL& s) { s.sort_keys(""); }},
      {"SELECT * LIMIT 9223372036854775807 OFFSET 3", [](Select_SQL& s) { s.limit(-1).offset(3); }},
      {"SELECT *", [](Select_SQL& s) { s.add_key("a", nullptr).join("b", nullptr, "c").clear_key().clear_join(); }},
  };
  expect_texts(cases, render);
}

TEST(Select_SQL, nested_statements_share_one_numbering) {
  SQL having("COUNT(*)>:min", SQL::TYPE_RAW, true);
  having.bind(":min", 3);
  Select_SQL select("t", "x");
  select.add_key("x.a", nullptr);
  select.add_sql_key("n")->table("k", nullptr).and_filter()->add_kv_eq_item("k", "key");
  select.sql_table("s")->and_filter()->add_kv_eq_item("s", "table");
  select.sql_left_join("j", "j.id=x.id")->and_filter()->add_kv_eq_item("j", "join");
  select.and_filter()->add_kv_eq_item("w", "where");
  select.group_by("x.a", false).having(&having).sort_by("x.a", true).limit(10).bind(":own", 1);
  char const* const text =
      "SELECT x.a,(SELECT * FROM `k` WHERE (`k`=:1)) `n` FROM `t` `x`,(SELECT * WHERE (`s`=:2)) `s` "
      "LEFT JOIN (SELECT * WHERE (`j`=:3)) `j` ON j.id=x.id WHERE (`w`=:4) GROUP BY x.a HAVING COUNT(*)>:min "
      "ORDER BY x.a DESC LIMIT 10 {:1=\"key\" :2=\"table\" :3=\"join\" :4=\"where\" :min=3 :own=1}";
  EXPECT_EQ(render(select, SQL::DB_MYSQL), text);
  EXPECT_EQ(render(Select_SQL(select), SQL::DB_SQLITE), text) << "a copy, and rendering again, give the same";
}

TEST(Select_SQL, count_query_has_three_forms) {
  Case const cases[] = {
      {"SELECT COUNT(`t`.id) FROM `t`", [](Select_SQL& s) { s.table("t", nullptr).limit(5).sort_by("a", true); }},
      {"SELECT COUNT(``.id) FROM `t`", [](Select_SQL& s) { s.table("t", ""); }},
      {"SELECT COUNT(id) FROM (SELECT *) `s`", [](Select_SQL& s) { s.sql_table("s"); }},
      {"SELECT COUNT(`t`.uid) FROM `t` WHERE (`a`=:1) {:1=1}",
       [](Select_SQL& s) {
         s.table("t", nullptr).distinct(true).count("`t`.uid").and_filter()->add_kv_eq_item("a", 1);
       }},
      {"SELECT COUNT(id)", [](Select_SQL& s) { s.count(""); }},
      {"SELECT COUNT(dummy) FROM (SELECT 1 dummy FROM `t` GROUP BY a)",
       [](Select_SQL& s) { s.table("t", nullptr).group_by("a", true).count("c").distinct(true); }},
      {"SELECT COUNT(dummy) FROM (SELECT 1 dummy)", [](Select_SQL& s) { s.group_by("", true); }},
      {"SELECT COUNT(id) {:x=1}",
       [](Select_SQL& s) { s.bind(":limit", 1).bind(":x", 1).count_sql("not looked at", true); }},
  };
  Log_Capture log;
  expect_texts(cases, render_count);
  EXPECT_EQ(log.take(), Lines{});
  Select_SQL select("t", nullptr);
  EXPECT_EQ(render_count(select.group_by("a", false), SQL::DB_MYSQL),
            "SELECT COUNT(dummy) FROM (SELECT 1 dummy FROM `t` GROUP BY a) AS sum");
  select.clear();
  EXPECT_EQ(render_count(select.table("t", nullptr).distinct(true)), "SELECT COUNT(DISTINCT `t`.id) FROM `t`");
  EXPECT_EQ(log.take(),
            Lines{"WARNING select_sql 0: Please use Select_SQL::count(val) to set up the key of count query "
                  "SQL: SELECT COUNT(DISTINCT `t`.id) FROM `t`\n"});
}

TEST(Select_SQL, clear_resets_all_but_the_count_key) {
  SQL const having("h", SQL::TYPE_RAW, true);
  Select_SQL select("t", "x");
  select.select("s").add_key("k", "a").count("c").from("f").join("j", "", "").where("w", true).group_by("g", true);
  select.having("h", true).having(&having).order_by("o").sort_by("s", true).limit(1).offset(2).desc(true);
  select.distinct(true);
  EXPECT_FALSE(select.empty());
  Select_SQL const copy(select);
  select.bind(":b", 1).clear();
  EXPECT_TRUE(select.empty());
  EXPECT_EQ(render(select.sort_keys("a")), "SELECT * ORDER BY a ASC");
  EXPECT_EQ(render_count(select), "SELECT COUNT(c)");
  EXPECT_EQ(render(copy),
            "SELECT DISTINCT s FROM f JOIN `j` WHERE w GROUP BY g HAVING h ORDER BY o DESC LIMIT 1 OFFSET 2");
}

TEST(Select_SQL, may_be_assigned_from_a_part_of_itself) {
  Select_SQL select("t", nullptr);
  Select_SQL* const inner = select.sql_table("x");
  inner->table("inner", nullptr).and_filter()->add_kv_eq_item("a", 1);
  select = *inner;
  EXPECT_EQ(render(select), "SELECT * FROM `inner` WHERE (`a`=:1) {:1=1}");
  Select_SQL* const condition = select.and_filter()->add_key_select_sql_in_item("k");
  condition->table("condition", nullptr).add_key("c", nullptr);
  select = *condition;
  EXPECT_EQ(render(select), "SELECT c FROM `condition`");
}
