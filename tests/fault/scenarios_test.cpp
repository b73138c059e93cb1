// Whole ways through the library, with each of their allocations failing in turn: nothing but std::bad_alloc comes out,
// nothing leaks, and what the caller holds can still be used.
#include <gtest/gtest.h>

#include <functional>
#include <iostream>

#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "backup/utils/sql/union_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "support/heap.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

std::string const long_text(40, 'k');
std::string const json = R"({"op":"AND","v":[{"op":"EQ","k":"a_long_key_of_a_column","v":["a text that is long",2]},
  {"op":"OR","v":[{"op":"GE","k":"size","v":18446744073709551615},"raw sql of some length"]}]})";
std::map<std::string, std::string> const request{{"AND", "OR=name%3Da+text+that+is+long%26size%3D5"},
                                                 {"IN_name", "a text that is long,b"},
                                                 {"sort", "name,size"},
                                                 {"limit", "5"}};
SQL_Filter_Parser::Filters const filters[] = {
    {"name", 4, {"file", 3, 2, 2}}, {"size", 4, {nullptr, 2, 0, 0}}, {nullptr, 0, {nullptr, 0, 0, 0}}};

Value document() {
  Value value;
  json_spirit::read_string_or_throw(json, value);
  return value;
}

struct Scenario {
  char const* name;
  std::function<void()> run;
};

Scenario const scenarios[] = {
    {"build, copy, render and clear a SELECT",
     [] {
       Select_SQL select("t", nullptr);
       select.add_key(long_text, nullptr).left_join("u", nullptr, long_text).sort_keys("a,b").bind(":x", long_text);
       if (Filter_SQL* filter = select.and_filter()) {
         filter->add_kv_item(Item_SQL::OP_LK, long_text, Secure_String(long_text.c_str()), 1);
         if (Select_SQL* sub = filter->add_key_select_sql_in_item("k")) sub->group_by(long_text.c_str(), true);
       }
       Select_SQL copy(select);
       copy = Select_SQL(select);
       std::string sql;
       std::vector<Binding_Value> values;
       copy.get_sql(SQL::DB_MYSQL, sql, values);
       copy.get_count_sql(SQL::DB_SQLITE, sql, values);
       select.clear();
       render(select);
     }},
    {"build and render INSERT, UPDATE and UNION",
     [] {
       Insert_SQL insert("t");
       insert.value(long_text, long_text).new_entry().value_uuid("u", long_text).value_time("t", 0);
       insert.value_select_sql("s");
       Update_SQL update("t");
       update.set(long_text, long_text).set_uuid("u", long_text);
       Union_SQL both(1);
       both.add_select_sql();
       render(Insert_SQL(insert)) += render(Update_SQL(update)) + render(both);
     }},
    {"read, copy, edit and convert a document",
     [] {
       Value const original = document();
       Object edited = original.get_obj();
       filter_add_eq_item(edited, long_text.c_str(), original);
       filter_remove_item(edited, "none");
       generate_eq_and_filter(edited, original.get_obj(), {"op", "v"});
       And_Filter_SQL filter;
       generate_filter_from_obj(original.get_obj(), filter);
       render(filter);
     }},
    {"parse and convert a request",
     [] {
       Select_SQL select("file", nullptr);
       SQL_Filter_Parser parser(select, filters);
       parser.parse(request, 0);
       parser.parse(parser.convert_qs_to_params(request), 1);
       parser.control(select);
       render_positional(select);
     }},
};

}  // namespace

TEST(Scenarios, survive_every_failing_allocation) {
  Log_Capture log;
  for (Scenario const& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    scenario.run();  // what is set up once and kept is set up here
    log.take();
    long failures = 0;
    for (bool passed = false; !passed; ++failures) {
      ASSERT_LT(failures, 5000);
      long const live_before = heap::live_blocks();
      {
        heap::Failing_Allocation const no_memory(failures + 1);
        try {
          scenario.run();
        } catch (std::bad_alloc const&) {
          EXPECT_TRUE(no_memory.failed());
        }
        passed = !no_memory.failed();
      }
      log.take();
      EXPECT_EQ(heap::live_blocks(), live_before) << "after allocation " << failures + 1;
    }
    std::cout << scenario.name << ": " << failures - 1 << " allocations failed\n";
  }
}
