// Whole ways through the library. Each of their allocations fails once, alone and together with all later ones: only
// std::bad_alloc is thrown, nothing leaks, and the caller's objects can still be used.
#include <gtest/gtest.h>

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
std::string const uuid_text = "00112233445566778899aabbccddeeff";
Secure_Byte_String const key(16, 'k');
std::map<std::string, std::string> const request{
    {"AND", "OR=name%3Da+text+that+is+long%26size%3D5"}, {"IN_name", "a text that is long,b"}, {"sort", "name,size"}};
SQL_Filter_Parser::Filters const filters[] = {
    {"name", 4, {"file", 3, 2, 2}}, {"size", 4, {nullptr, 2, 0, 0}}, {nullptr, 0, {nullptr, 0, 0, 0}}};

// The caller's objects. It must be able to use and clear them after any failure.
struct Held {
  Select_SQL select{"t", nullptr};
  Insert_SQL insert{"t"};
  Update_SQL update{"t"};
  Union_SQL both{Union_SQL::all};
  And_Filter_SQL filter;
  SQL_Filter_Parser parser{select, filters};
  Value json;
  Binding_Value value;
};

std::pair<char const*, void (*)(Held&)> const scenarios[] = {
    {"build, copy and render SELECT",
     [](Held& held) {
       Select_SQL& select = held.select;
       select.add_key(long_text, nullptr).left_join("u", nullptr, long_text).sort_keys("a,b").bind(":x", long_text);
       if (Filter_SQL* filter = select.and_filter()) {
         filter->add_kv_item(Item_SQL::OP_LK, long_text, Secure_String(long_text.c_str()), 1);
         if (Select_SQL* sub = filter->add_key_select_sql_in_item("k")) sub->group_by(long_text.c_str(), true);
       }
       select = Select_SQL(select);
       render_positional(select) += render_count(select);
     }},
    {"build, copy and render INSERT, UPDATE and UNION",
     [](Held& held) {
       held.insert.value(long_text, long_text).new_entry().value_uuid("u", long_text).value_time("t", 0);
       held.insert.value_select_sql("s");
       held.update.set(long_text, long_text).set_uuid("u", long_text).set_select_sql("s");
       held.both.add_select_sql();
       held.insert = Insert_SQL(held.insert);
       held.update = Update_SQL(held.update);
       held.both = Union_SQL(held.both);
       render(held.insert) += render_positional(held.update) + render(held.both);
     }},
    {"convert values",
     [](Held& held) {
       Binding_Value_AES_Converter const aes(key, "text");
       for (Binding_Value const& value : {Binding_Value(uuid_text), Binding_Value(Secure_String(uuid_text.c_str()))}) {
         EXPECT_TRUE(Binding_Value_UUID_Converter().convert(value, held.value));
         EXPECT_TRUE(Binding_Value_Hex_Converter().convert(value, held.value));
         EXPECT_TRUE(aes.convert(value, held.value));
         held.insert.value("a", value, &aes).value_hex("h", uuid_text);
         held.update.set_uuid("a", uuid_text);
       }
     }},
    {"read, copy, edit and convert a document",
     [](Held& held) {
       json_spirit::read_string_or_throw(json, held.json);
       Object edited = held.json.get_obj();
       std::vector<Value> const members{"op", "v"};
       std::string op;
       EXPECT_NO_THROW({  // even without memory
         item_get_op(edited, op);
         filter_add_eq_item(edited, long_text.c_str(), held.json);
         filter_add_eq_item(edited, long_text.c_str(), members, long_text.c_str());
         filter_add_eq_item(edited, long_text.c_str(), edited, true);
         generate_eq_item(long_text.c_str(), edited, long_text.c_str(), edited);
         item_set_key(edited, long_text.c_str());
         filter_remove_item(edited, "none");
         generate_eq_and_filter(edited, held.json.get_obj(), members);
         generate_filter_from_obj(held.json.get_obj(), held.filter);
       });
       render(held.filter);
     }},
    {"parse and convert a request",
     [](Held& held) {
       held.parser.parse(request, SQL_Filter_Parser::afresh);
       held.parser.parse(held.parser.convert_qs_to_params(request), SQL_Filter_Parser::accumulate);
       held.parser.control(held.select);
       render_positional(held.select);
     }},
};

// Copies and clears them. Gives the texts that are left.
template <class... Statements>
std::vector<std::string> cleared(Statements&... statements) {
  auto const clear = [](auto& statement) {
    auto const copy(statement);
    EXPECT_EQ(render(copy), render(statement));
    statement.clear();
    return render(statement);
  };
  return {clear(statements)...};
}

// Runs a scenario in which the nth allocation fails. True when it has fewer than n.
bool survives(void (*run)(Held&), long nth, heap::Shortage shortage) {
  Log_Capture const log;
  Held held;
  bool passed = false;
  try {
    heap::Failing_Allocation const no_memory(nth, shortage);
    run(held);
    passed = !no_memory.failed();
  } catch (std::bad_alloc const&) {  // `held` is checked below
  }
  EXPECT_EQ(cleared(held.select, held.insert, held.update, held.both, held.filter),
            (std::vector<std::string>{"SELECT *", "INSERT INTO `` VALUES()", "UPDATE `` SET ", "", "1"}));
  EXPECT_EQ(Value(held.json), held.json);
  EXPECT_EQ(value_text(Binding_Value(held.value)), value_text(held.value));
  return passed;
}

}  // namespace

TEST(Scenarios, survive_every_failing_allocation) {
  for (auto const shortage : {heap::Shortage::once, heap::Shortage::lasting}) {
    for (auto const& [name, run] : scenarios) {
      SCOPED_TRACE(name);
      long nth = -1;
      for (bool passed = false; !passed;) {
        ASSERT_LT(++nth, 5000);
        long const live_before = heap::live_blocks();
        passed = survives(run, nth, shortage) && nth > 0;
        // In the first run nothing fails: it sets up what is kept to the end.
        EXPECT_TRUE(nth == 0 || heap::live_blocks() == live_before) << "after allocation " << nth;
      }
      EXPECT_GT(nth, 50) << "too few allocations were made to fail";
      std::cout << name << ": " << nth - 1 << " allocations failed\n";
    }
  }
}
