// Condition items and filters.
#include <gtest/gtest.h>

#include <functional>
#include <locale>
#include <utility>

#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/union_sql.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Values = std::vector<json_spirit::Value>;
using Lines = std::vector<std::string>;

constexpr char const* op_report =
    "EMERGENCY item_sql -1: Unexpected error in src/backup/utils/sql/item_sql:N, op_sql is NULL or \"\":\nSTACK";

}  // namespace

TEST(Item_SQL, operator_names_are_exact) {
  std::pair<char const*, unsigned long long> const unknown[] = {{"eq", 2}, {"XX", 2}, {"EQ", 3},   {"E", 1},
                                                                {"", 0},   {"EQ", 0}, {nullptr, 2}};
  for (auto const& [name, length] : unknown) EXPECT_EQ(Item_SQL::op_name_to_value(name, length), Item_SQL::OP_NONE);
  EXPECT_EQ(Item_SQL::op_name_to_value("EQ_x", 2), Item_SQL::OP_EQ);
  EXPECT_STREQ(Item_SQL::op_value_to_name(Item_SQL::OP_NK), "NK");
  EXPECT_EQ(Item_SQL::op_value_to_name(Item_SQL::OP_DEC), nullptr);
}

TEST(Key_Item_SQL, quote_key_wraps_each_part_exactly_once) {
  std::pair<char const*, char const*> const cases[] = {{"name", "`name`"},
                                                       {"t.name", "`t`.`name`"},
                                                       {"`t`.name", "`t`.`name`"},
                                                       {"`t.name`", "`t`.`name`"},
                                                       {"t..name", "`t`.`name`"},
                                                       {".t.", "`t`"},
                                                       {"`", "`"},
                                                       {"..", ""},
                                                       {"", ""}};
  for (auto const& [key, quoted] : cases) EXPECT_EQ(Key_Item_SQL::quote_key(key), quoted) << key;
}

TEST(Filter_SQL, each_adder_writes_its_condition) {
  Delete_SQL sub("s");
  sub.and_filter()->add_kv_eq_item("x", 9);
  Values const mixed{1, -2, 18446744073709551615ULL, 0.5, true, false, {}, "it's", json_spirit::Array{1}};
  Values const uuids{"0a1b", 5};
  json_spirit::Object const names{{"k2", 1}, {"k1", 2}};
  std::pair<char const*, std::function<void(Filter_SQL&)>> const cases[] = {
      {"(`t`.`a`!=:1) {:1=\"x\"}", [](Filter_SQL& f) { f.add_kv_ne_item("t.a", "x"); }},
      {"(`a` IN :1) {:1=1}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_IN, "a", 1, Filter_SQL::no_flags); }},
      {"(`n`=`n`-:1) {:1=3}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_DEC, "n", 3, Filter_SQL::no_flags); }},
      {"(LOWER(`n`)=`n`-:1) {:1=\"a\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_DEC, "n", "A", Filter_SQL::lower_case); }},
      {"(LOWER(`n`) LIKE :1) {:1=\"ab%\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_LK, "n", "aB%", Filter_SQL::lower_case); }},
      {"(LOWER(`n`)=:1) {:1=\"ab\"}",
       [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", Secure_String("AB"), 3); }},
      {"(`n`=:1) {:1=5}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", 5, Filter_SQL::lower_case); }},
      {"(`n`=:1) {:1=\"AB\"}", [](Filter_SQL& f) { f.add_kv_item(Item_SQL::OP_EQ, "n", "AB", 2); }},
      {"(`a`=:1) {:1=\"new\"}", [](Filter_SQL& f) { f.add_kv_eq_item("a", 1)->value("new"); }},
      {"(`a` IN (1,-2,18446744073709551615,0.5,1,0,NULL,'it''s','[1]'))",
       [&](Filter_SQL& f) { f.add_in_item("a", mixed, Filter_SQL::lower_case); }},
      {"(0)", [](Filter_SQL& f) { f.add_in_item("a", Values(), Filter_SQL::no_flags); }},
      {"(1)", [](Filter_SQL& f) { f.add_not_in_item("a", Values(), Filter_SQL::no_flags); }},
      {"(`a` NOT IN ('k1','k2'))", [&](Filter_SQL& f) { f.add_not_in_item("a", names); }},
      {"(`u` IN (x'0a1b',5))", [&](Filter_SQL& f) { f.add_in_uuid_item("u", uuids); }},
      {"(`a` IN (DELETE FROM `s` WHERE (`x`=:1))) {:1=9}", [&](Filter_SQL& f) { f.add_in_item("a", sub); }},
      {"(`u`=:1) {:1=x\"\"}", [](Filter_SQL& f) { f.add_key_uuid_eq_item("u", ""); }},
      {"(`u`!=:1) {:1=x\"\"}", [](Filter_SQL& f) { f.add_key_uuid_ne_item("u", "none"); }},
      {"(`a`>:1) {:1=-12}", [](Filter_SQL& f) { f.add_key_int_item(Item_SQL::OP_GT, "a", " -12x"); }},
      {"(`a`=:1) {:1=true}", [](Filter_SQL& f) { f.add_key_bool_item(Item_SQL::OP_EQ, "a", ""); }},
      {"(`a`=(MAX(:m))) {:m=1}", [](Filter_SQL& f) { f.add_key_sql_eq_item("a")->sql("MAX(:m)", true).bind(":m", 1); }},
      {"(`a`=`a`-(1))", [](Filter_SQL& f) { f.add_key_sql_item(Item_SQL::OP_DEC, "a")->sql("1", true); }},
      {"(`a` NOT IN (SELECT *))", [](Filter_SQL& f) { f.add_key_select_sql_not_in_item("a"); }},
      {"(`a` IN (SELECT * UNION SELECT *))",
       [](Filter_SQL& f) {
         Union_SQL* both = f.add_key_union_sql_in_item("a");
         both->add_select_sql();
         both->add_select_sql();
       }},
      {"(:1=:1-(1)) {:1=5}", [](Filter_SQL& f) { f.add_val_sql_item(Item_SQL::OP_DEC, 5)->sql("1", true); }},
      {"((1)=(1)-:1) {:1=5}", [](Filter_SQL& f) { f.add_sql_val_item(Item_SQL::OP_DEC, 5)->sql("1", true); }},
      {"()", [](Filter_SQL& f) { f.add_item(Item_SQL::OP_EQ, "a", "b"); }},
      {"()", [](Filter_SQL& f) { f.add_kv_eq_item("", 2); }},
      {"(k LIKE :__search_0 ESCAPE '|') AND (k LIKE :__search_1 ESCAPE '|') {:__search_0=\"%a%\" :__search_1=\"%|%%\"}",
       [](Filter_SQL& f) { f.add_substr_matching("k", "a").add_substr_matching({"k\0z", 3}, "%"); }},
  };
  for (auto const& [text, add] : cases) {
    SCOPED_TRACE(text);
    And_Filter_SQL filter;
    add(filter);
    EXPECT_EQ(render(filter), text);
  }
}

TEST(Filter_SQL, numbers_follow_text_order_through_nested_statements) {
  And_Filter_SQL filter;
  filter.add_kv_eq_item("a", 1);
  Filter_SQL* const either = filter.add_or_filter();
  either->add_null_item("b");
  either->add_in_item("c", Values{1, 2}, Filter_SQL::no_flags);
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
  filter.add_kv_item(Item_SQL::OP_NL, "a", 1, Filter_SQL::lower_case);
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
  filter.add_in_item("a", Values{Secure_String("s"), "x", Secure_String("t"), 2}, Filter_SQL::no_flags);
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
  EXPECT_TRUE(filter.remove_item(null));
  EXPECT_FALSE(filter.remove_item(nullptr));
  EXPECT_NE(filter.find_kv_item("a"), nullptr);
  EXPECT_EQ(render(filter), "(raw) AND ((`deep`=:1)) AND (`t`.`a`=:2) AND (`a`=:3) {:1=1 :2=1 :3=2}");
}

TEST(KV_Item_SQL, lower_case_follows_a_facet_of_the_program) {
  struct One_Letter : std::ctype<char> {
    char do_tolower(char c) const override { return c == '\xC4' ? '\xE4' : c; }
  };
  std::locale const before = std::locale::global(std::locale(std::locale::classic(), new One_Letter));
  std::string const text = render(KV_Item_SQL(Item_SQL::OP_EQ, "n", "\xC4X", Filter_SQL::lower_case));
  std::locale::global(before);
  EXPECT_EQ(text, "LOWER(`n`)=:1 {:1=\"\xE4X\"}");
}

TEST(Filter_SQL, clear_makes_an_and_filter_and_copies_share_entries) {
  Or_Filter_SQL filter;
  EXPECT_EQ(filter.add_sql_ex(nullptr, false), nullptr);
  std::string text = "copied";
  filter.add_sql(text.c_str(), false).add_sql("static", true);
  text = "gone!!";
  filter.bind(":b", 1);
  EXPECT_TRUE(filter.empty()) << "looks at the statement's own text only";
  Filter_SQL const copy(filter);
  filter.clear();
  EXPECT_EQ(render(copy), "(copied) OR (static) {:b=1}");
  EXPECT_EQ(render(filter), "1");
  Filter_SQL& assigned = filter;
  assigned = copy;
  assigned = static_cast<Filter_SQL const&>(assigned);
  EXPECT_EQ(render(filter), "(copied) OR (static) {:b=1}");
}
