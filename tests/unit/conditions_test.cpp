// Condition items, filters, the WHERE clause and DELETE.
#include <gtest/gtest.h>

#include <functional>

#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/union_sql.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Values = std::vector<json_spirit::Value>;
using Lines = std::vector<std::string>;

constexpr char const* uuid_text = "5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60";
constexpr char const* op_report =
    "EMERGENCY item_sql -1: Unexpected error in src/backup/utils/sql/item_sql:N, op_sql is NULL or \"\":\nSTACK";

}  // namespace

TEST(Item_SQL, operator_names_are_exact) {
  struct {
    char const* name;
    unsigned long long length;
    unsigned int op;
  } const cases[] = {{"EQ", 2, 1},  {"NE", 2, 2},  {"LT", 2, 3},    {"LE", 2, 4},  {"GT", 2, 5},
                     {"GE", 2, 6},  {"NL", 2, 8},  {"NN", 2, 9},    {"IN", 2, 10}, {"NI", 2, 11},
                     {"LK", 2, 12}, {"NK", 2, 13}, {"eq", 2, 0},    {"XX", 2, 0},  {"EQ", 3, 0},
                     {"E", 1, 0},   {"", 0, 0},    {nullptr, 2, 0}, {"EQ", 0, 0},  {"EQ_x", 2, 1}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name != nullptr ? c.name : "null");
    EXPECT_EQ(Item_SQL::op_name_to_value(c.name, c.length), c.op);
    if (c.op == 0) continue;
    EXPECT_EQ(Item_SQL::op_value_to_name(static_cast<Item_SQL::Item_Op>(c.op)), std::string(c.name, 2));
  }
  EXPECT_EQ(Item_SQL::op_value_to_name(Item_SQL::OP_NONE), nullptr);
  EXPECT_EQ(Item_SQL::op_value_to_name(Item_SQL::OP_DEC), nullptr);
}

TEST(Key_Item_SQL, quote_key_wraps_each_part_exactly_once) {
  struct {
    char const* behaviour;
    char const* key;
    char const* quoted;
  } const cases[] = {
      {"a plain key", "name", "`name`"},
      {"each part of a dotted key", "t.name", "`t`.`name`"},
      {"quoted parts stay", "`t`.name", "`t`.`name`"},
      {"half-quoted parts are completed", "`t.name`", "`t`.`name`"},
      {"a part of one backtick", "`", "`"},
      {"an empty part goes with its point", "t..name", "`t`.`name`"},
      {"points at both ends go", ".t.", "`t`"},
      {"only points", "..", ""},
      {"an empty key stays empty", "", ""},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.behaviour);
    EXPECT_EQ(Key_Item_SQL::quote_key(c.key), c.quoted);
  }
}

TEST(Filter_SQL, each_adder_writes_its_condition) {
  Delete_SQL sub("s");
  sub.and_filter()->add_kv_eq_item("x", 9);
  struct {
    char const* text;
    std::function<void(Filter_SQL&)> add;
  } const cases[] = {
      {"`a`=:1 {:1=1}", [](Filter_SQL& f) { f.add_kv_eq_item("a", 1); }},
      {"`t`.`a`!=:1 {:1=\"x\"}", [](Filter_SQL& f) { f.add_kv_ne_item("t.a", "x"); }},
      {"`a`<:1 {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_LT, "a", 1, 0); }},
      {"`a`<=:1 {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_LE, "a", 1, 0); }},
      {"`a`>:1 {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_GT, "a", 1, 0); }},
      {"`a`>=:1 {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_GE, "a", 1, 0); }},
      {"`a` NOT LIKE :1 {:1=\"x%\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_NK, "a", "x%", 0); }},
      {"`a` IN :1 {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_IN, "a", 1, 0); }},
      {"`n`=`n`-:1 {:1=3}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_DEC, "n", 3, 0); }},
      {"LOWER(`n`)=`n`-:1 {:1=\"a\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_DEC, "n", "A", 1); }},
      {"LOWER(`n`) LIKE :1 {:1=\"ab%\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_LK, "n", "aB%", 1); }},
      {"LOWER(`n`)=:1 {:1=\"ab\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", Secure_String("AB"), 3); }},
      {"`n`=:1 {:1=5}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", 5, 1); }},
      {"`n`=:1 {:1=\"AB\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", "AB", 2); }},
      {"`a`=:1 {:1=\"new\"}", [](Filter_SQL& f) { f.add_kv_eq_item("a", 1)->value("new"); }},
      {"`a` IS NULL", [](Filter_SQL& f) { f.add_null_item("a"); }},
      {"`a` IS NOT NULL", [](Filter_SQL& f) { f.add_not_null_item("a"); }},
      {"`a` IN (1,-2,18446744073709551615,0.5,1,0,NULL,'it''s','[1]')",
       [](Filter_SQL& f) {
         f.add_in_item("a", Values{1, -2, 18446744073709551615ULL, 0.5, true, false, {}, "it's", json_spirit::Array{1}},
                       1);
       }},
      {"`a` NOT IN ('x')", [](Filter_SQL& f) { f.add_not_in_item("a", Values{"x"}, 0); }},
      {"0", [](Filter_SQL& f) { f.add_in_item("a", Values(), 0); }},
      {"1", [](Filter_SQL& f) { f.add_not_in_item("a", Values(), 0); }},
      {"`a` NOT IN ('k1','k2')",
       [](Filter_SQL& f) {
         f.add_not_in_item("a", json_spirit::Object{{"k2", 1}, {"k1", 2}});
       }},
      {"`u` IN (x'0a1b',5)",
       [](Filter_SQL& f) {
         f.add_in_uuid_item("u", Values{"0a1b", 5});
       }},
      {"`u` NOT IN (x'0a')", [](Filter_SQL& f) { f.add_not_in_uuid_item("u", Values{"0a"}); }},
      {"`a` IN (DELETE FROM `s` WHERE (`x`=:1)) {:1=9}", [&](Filter_SQL& f) { f.add_in_item("a", sub); }},
      {"`u`=:1 {:1=x\"5F0C2B9E3A414C1E9D7A1B2C3D4E5F60\"}",
       [](Filter_SQL& f) { f.add_key_uuid_eq_item("u", uuid_text); }},
      {"`u`!=:1 {:1=x\"\"}", [](Filter_SQL& f) { f.add_key_uuid_ne_item("u", "none"); }},
      {"`a`>:1 {:1=-12}", [](Filter_SQL& f) { f.add_key_int_item(Item_SQL::OP_GT, "a", " -12x"); }},
      {"`a`=:1 {:1=false}", [](Filter_SQL& f) { f.add_key_bool_item(Item_SQL::OP_EQ, "a", "0"); }},
      {"`a`=:1 {:1=true}", [](Filter_SQL& f) { f.add_key_bool_item(Item_SQL::OP_EQ, "a", "false"); }},
      {"`a`=:1 {:1=true}", [](Filter_SQL& f) { f.add_key_bool_item(Item_SQL::OP_EQ, "a", ""); }},
      {"`a`=(MAX(:m)) {:m=1}", [](Filter_SQL& f) { f.add_key_sql_eq_item("a")->sql("MAX(:m)", true).bind(":m", 1); }},
      {"`a`=`a`-(1)", [](Filter_SQL& f) { f.add_key_sql_item(Item_SQL::OP_DEC, "a")->sql("1", true); }},
      {"`a` IN (SELECT * FROM `t`)", [](Filter_SQL& f) { f.add_key_select_sql_in_item("a")->table("t", nullptr); }},
      {"`a` NOT IN (SELECT *)", [](Filter_SQL& f) { f.add_key_select_sql_not_in_item("a"); }},
      {"`a` IN (SELECT * UNION SELECT *)",
       [](Filter_SQL& f) {
         Union_SQL* both = f.add_key_union_sql_in_item("a");
         both->add_select_sql();
         both->add_select_sql();
       }},
      {":1 IN (SELECT 1) {:1=5}", [](Filter_SQL& f) { f.add_val_sql_item(Item_SQL::OP_IN, 5)->sql("SELECT 1", true); }},
      {":1=:1-(1) {:1=5}", [](Filter_SQL& f) { f.add_val_sql_item(Item_SQL::OP_DEC, 5)->sql("1", true); }},
      {"(1)=(1)-:1 {:1=5}", [](Filter_SQL& f) { f.add_sql_val_item(Item_SQL::OP_DEC, 5)->sql("1", true); }},
      {"(SELECT 1)>:1 {:1=5}", [](Filter_SQL& f) { f.add_sql_val_item(Item_SQL::OP_GT, 5)->sql("SELECT 1", true); }},
      {"", [](Filter_SQL& f) { f.add_item(Item_SQL::OP_EQ, "a", "b"); }},
      {"a=:b {:b=2}", [](Filter_SQL& f) { f.add_sql_ex("a=:b", true)->bind(":b", 2); }},
      {"", [](Filter_SQL& f) { f.add_kv_eq_item("", 2); }},
      {"name LIKE :__search_0 ESCAPE '|' {:__search_0=\"%50|%%\"}",
       [](Filter_SQL& f) { f.add_substr_matching("name", "50%"); }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    And_Filter_SQL filter;
    c.add(filter);
    std::string const text = c.text;
    std::size_t const bindings = std::min(text.find(" {:"), text.size());
    EXPECT_EQ(render(filter), '(' + text.substr(0, bindings) + ')' + text.substr(bindings));
  }
}

TEST(Filter_SQL, numbers_follow_text_order_through_nested_statements) {
  And_Filter_SQL filter;
  filter.add_kv_eq_item("a", 1);
  Select_SQL first("t", nullptr);
  Filter_SQL* const either = filter.add_or_filter();
  either->add_null_item("b");
  either->add_in_item("c", Values{1, 2}, 0);
  either->add_and_filter();
  either->add_or_filter()->bind(":own", "nested");
  ACE_Intrusive_Auto_Ptr<SQL> const inner(new Val_SQL_Item_SQL(SQL::TYPE_SELECT, Item_SQL::OP_LT, "last", true));
  auto* const select = static_cast<Select_SQL*>(static_cast<Val_SQL_Item_SQL*>(inner.get())->sql().get());
  select->and_filter()->add_kv_eq_item("d", "first");
  filter.add_in_item("e", *inner);
  filter.add_kv_eq_item("f", 4);
  EXPECT_EQ(render(filter),
            "(`a`=:1) AND ((`b` IS NULL) OR (`c` IN (1,2)) OR (1) OR (0)) AND (`e` IN ((SELECT * WHERE (`d`=:2))<:3)) "
            "AND (`f`=:4) {:1=1 :2=\"first\" :3=\"last\" :4=4 :own=\"nested\"}");
}

TEST(Filter_SQL, an_operator_without_text_renders_empty_and_is_reported) {
  Log_Capture log;
  And_Filter_SQL filter;
  filter.add_kv_item(Item_SQL::OP_NL, "a", 1, 1);
  filter.add_key_sql_item(Item_SQL::OP_NONE, "a");
  filter.add_val_sql_item(Item_SQL::OP_NN, "bound before the operator fails");
  filter.add_kv_eq_item("b", 2);
  EXPECT_EQ(render(filter), "() AND () AND () AND (`b`=:2) {:1=\"bound before the operator fails\" :2=2}");
  EXPECT_EQ(log.take(), (Lines{op_report, op_report, op_report}));
  EXPECT_EQ(filter.add_item(Item_SQL::OP_EQ, nullptr, "x"), nullptr);
  EXPECT_EQ(filter.add_item(Item_SQL::OP_EQ, "x", ""), nullptr);
  std::string const report = "EMERGENCY filter_sql -1: Unexpected error in src/backup/utils/sql/filter_sql:N, ";
  EXPECT_EQ(log.take(), (Lines{report + "left is NULL or \"\":\nSTACK", report + "right is NULL or \"\":\nSTACK"}));
  EXPECT_EQ(render(Filter_SQL(static_cast<Filter_SQL::Filter_Type>(7))), "");
  EXPECT_EQ(log.take(), Lines{"ERROR filter_sql 0: Unknown filter type: 7\n"});
}

TEST(In_Item_SQL, a_secret_in_a_list_is_refused_with_a_report_each_time) {
  Log_Capture log;
  And_Filter_SQL filter;
  filter.add_in_item("a", Values{Secure_String("s"), "x", Secure_String("t"), 2}, 0);
  EXPECT_EQ(render(filter), "(`a` IN (,'x','x',2))");
  std::string const report = "CRITICAL item_sql 0: String template not support secure string.\n";
  EXPECT_EQ(log.take(), (Lines{report, report}));
}

TEST(Filter_SQL, finds_and_removes_its_own_entries) {
  And_Filter_SQL filter;
  filter.add_sql("raw", true);
  filter.add_and_filter()->add_kv_eq_item("deep", 1);
  Null_Item_SQL* const null = filter.add_null_item("a");
  KV_Item_SQL* const value = filter.add_kv_eq_item("t.a", 1);
  filter.add_kv_eq_item("a", 2);
  EXPECT_EQ(filter.find_key_item("a"), null);
  EXPECT_EQ(filter.find_kv_item("a"), nullptr) << "the first condition on the key decides";
  EXPECT_EQ(filter.find_kv_item("`t`.a"), value);
  EXPECT_EQ(filter.find_key_item("deep"), nullptr);
  EXPECT_TRUE(filter.remove_item(null));
  EXPECT_FALSE(filter.remove_item(nullptr));
  EXPECT_NE(filter.find_kv_item("a"), nullptr);
  EXPECT_EQ(render(filter), "(raw) AND ((`deep`=:1)) AND (`t`.`a`=:2) AND (`a`=:3) {:1=1 :2=1 :3=2}");
}

TEST(Filter_SQL, clear_makes_an_and_filter_and_copies_share_entries) {
  Or_Filter_SQL filter;
  EXPECT_EQ(render(filter), "0");
  EXPECT_EQ(&filter.add_sql(nullptr, true), &filter);
  EXPECT_EQ(filter.add_sql_ex(nullptr, false), nullptr);
  std::string text = "copied";
  filter.add_sql(text.c_str(), false).add_sql("static", true);
  text = "gone!!";
  filter.bind(":b", 1);
  EXPECT_TRUE(filter.empty()) << "looks at the statement's own text only";
  Filter_SQL const copy(filter);
  filter.find_key_item("none");
  filter.clear();
  EXPECT_EQ(render(copy), "(copied) OR (static) {:b=1}");
  EXPECT_EQ(render(filter), "1");
  filter.add_substr_matching("k", "a").add_substr_matching("k", "b|_");
  EXPECT_EQ(render(filter),
            "(k LIKE :__search_0 ESCAPE '|') AND (k LIKE :__search_1 ESCAPE '|') "
            "{:__search_0=\"%a%\" :__search_1=\"%b|||_%\"}");
  Filter_SQL& assigned = filter;
  assigned = copy;
  assigned = static_cast<Filter_SQL const&>(assigned);
  EXPECT_EQ(render(filter), "(copied) OR (static) {:b=1}");
}

TEST(Where_SQL, raw_text_wins_over_the_filter) {
  Delete_SQL statement("t");
  EXPECT_EQ(render(statement), "DELETE FROM `t`");
  Filter_SQL* const filter = statement.and_filter();
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE 1");
  filter->add_kv_eq_item("a", 1);
  EXPECT_EQ(statement.and_filter(), filter);
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE (`a`=:1) {:1=1}");
  statement.where("b=2");
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE b=2");
  statement.where("");
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE (`a`=:1) {:1=1}");
  Delete_SQL const copy(statement);
  EXPECT_EQ(statement.or_filter()->filter_type(), Filter_SQL::FILTER_OR);
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE 0") << "the AND filter is gone with its conditions";
  EXPECT_EQ(render(copy), "DELETE FROM `t` WHERE (`a`=:1) {:1=1}");
  std::string own = "c=3";
  static_cast<Where_SQL&>(statement).where(own.c_str(), true);
  own = "x";
  EXPECT_EQ(render(Delete_SQL(statement)), "DELETE FROM `t` WHERE c=3");
  std::string where = "replaced";
  Bindings bindings;
  unsigned long long index = 6;
  EXPECT_EQ(copy.get_where_sql(SQL::DB_MYSQL, where, bindings, index), " WHERE (`a`=:7)");
  statement.clear();
  EXPECT_EQ(render(statement), "DELETE FROM `t`") << "a cleared DELETE keeps its target";
  EXPECT_EQ(statement.filter(), nullptr);
  EXPECT_TRUE(Delete_SQL(nullptr).empty());
  EXPECT_EQ(render(Delete_SQL(nullptr)), "DELETE FROM ``");
}
