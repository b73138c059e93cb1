#include <gtest/gtest.h>

#include <functional>

#include "backup/utils/sql/json_filter_helpers.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

Value read(std::string const& json) {
  Value value;
  json_spirit::read_string_or_throw(json, value);
  return value;
}

std::string dump(Value const& value) { return json_spirit::JSON_Dump(value, false).c_str(); }

std::string unexpected(char const* argument) {
  return std::string(
             "EMERGENCY json_filter_helpers -1: Unexpected error in "
             "src/backup/utils/sql/json_filter_helpers:N, ") +
         argument + " is NULL or \"\":\nSTACK";
}

std::string error(std::string const& text) { return "ERROR json_filter_helpers 0: " + text + "\n"; }

}  // namespace

TEST(json_filter_helpers, writers_change_the_document_as_told) {
  Array const objects = read(R"([{"id":1},{"id":2,"x":0},{"id":1}])").get_array();
  Array const bad_objects = read(R"([{"id":1},7])").get_array();
  Object const source = read(R"({"b":2,"a":[1]})").get_obj();
  std::string const not_object = "Failed to generate object array item: value is of type int, not object";
  struct {
    char const* behaviour;
    char const* before;
    std::function<bool(Object&)> change;
    bool result;
    char const* after;
    Lines log;
  } const cases[] = {
      {"item key", R"({"k":5})", [](Object& o) { return item_set_key(o, "x"); }, true, R"({"k":"x"})", {}},
      {"no item key",
       R"({"k":5})",
       [](Object& o) { return item_set_key(o, ""); },
       false,
       R"({"k":5})",
       {unexpected("key")}},
      {"item value", "{}", [](Object& o) { return item_set_value(o, Array{1}); }, true, R"({"v":[1]})", {}},
      {"equality",
       R"({"z":1,"v":0})",
       [](Object& o) { return generate_eq_item("k", 5, o); },
       true,
       R"({"k":"k","op":"EQ","v":5,"z":1})",
       {}},
      {"inequality",
       "{}",
       [](Object& o) { return generate_ne_item("k", "x", o); },
       true,
       R"({"k":"k","op":"NE","v":"x"})",
       {}},
      {"no key", "{}", [](Object& o) { return generate_ne_item(nullptr, 1, o); }, false, "{}", {unexpected("key")}},
      {"member",
       "{}",
       [&](Object& o) { return generate_eq_item("k", source, "a", o); },
       true,
       R"({"k":"k","op":"EQ","v":[1]})",
       {}},
      {"no such member",
       "{}",
       [&](Object& o) { return generate_eq_item("k", source, "c", o); },
       true,
       R"({"k":"k","op":"EQ","v":null})",
       {}},
      {"no member name",
       "{}",
       [&](Object& o) { return generate_eq_item("k", source, "", o); },
       false,
       "{}",
       {unexpected("obj_key")}},
      {"distinct members",
       "{}",
       [&](Object& o) { return generate_eq_item("k", objects, "id", o); },
       true,
       R"({"k":"k","op":"EQ","v":[1,2]})",
       {}},
      {"members of no object",
       "{}",
       [&](Object& o) { return generate_eq_item("k", bad_objects, "id", o); },
       false,
       "{}",
       {error(not_object)}},
      {"members that lack",
       "{}",
       [&](Object& o) { return generate_eq_item("k", objects, "x", o); },
       false,
       "{}",
       {error("Failed to generate object array item: map::at")}},
      {"null member to fill",
       "{}",
       [](Object& o) {
         *filter_add_item(o) = 3;
         return true;
       },
       true,
       R"({"v":[3]})",
       {}},
      {"any operator",
       "{}",
       [](Object& o) { return filter_add_item(o, "GT", "k", 1); },
       true,
       R"({"v":[{"k":"k","op":"GT","v":1}]})",
       {}},
      {"no operator", "{}", [](Object& o) { return filter_add_item(o, "", "", 1); }, false, "{}", {unexpected("op")}},
      {"no array", R"({"v":1})", [](Object& o) { return filter_add_eq_item(o, "k", 1); }, false, R"({"v":1})", {}},
      {"as it stands",
       R"({"v":[1]})",
       [](Object& o) { return filter_add_item(o, "raw"); },
       true,
       R"({"v":[1,"raw"]})",
       {}},
      {"each named operator",
       "{}",
       [](Object& o) {
         return filter_add_eq_item(o, "k", 1) && filter_add_ne_item(o, "k", 1) && filter_add_ge_item(o, "k", 1) &&
                filter_add_lt_item(o, "k", 1) && filter_add_le_item(o, "k", 1) && filter_add_br_item(o, "k", 1) &&
                filter_add_ba_item(o, "k", 1) && filter_add_lk_item(o, "k", 1);
       },
       true,
       R"({"v":[{"k":"k","op":"EQ","v":1},{"k":"k","op":"NE","v":1},{"k":"k","op":"GE","v":1},)"
       R"({"k":"k","op":"LT","v":1},{"k":"k","op":"LE","v":1},{"k":"k","op":"BR","v":1},{"k":"k","op":"BA","v":1},)"
       R"({"k":"k","op":"LK","v":1}]})",
       {}},
      {"all members",
       "{}",
       [&](Object& o) { return filter_add_eq_item(o, "k", objects, "id"); },
       true,
       R"({"v":[{"k":"k","op":"EQ","v":[1,2,1]}]})",
       {}},
      {"half done",
       "{}",
       [&](Object& o) { return filter_add_ne_item(o, "k", bad_objects, "id"); },
       false,
       R"({"v":[null]})",
       {error(not_object)}},
      {"no name of members",
       "{}",
       [&](Object& o) { return filter_add_ne_item(o, "k", objects, nullptr); },
       false,
       "{}",
       {unexpected("val_key")}},
      {"names",
       "{}",
       [&](Object& o) { return filter_add_eq_item(o, "k", source, true); },
       true,
       R"({"v":[{"k":"k","op":"EQ","v":["a","b"]}]})",
       {}},
      {"values",
       "{}",
       [&](Object& o) { return filter_add_ne_item(o, "k", source, false); },
       true,
       R"({"v":[{"k":"k","op":"NE","v":[[1],2]}]})",
       {}},
      {"remove the first",
       R"({"v":[1,{"k":"a"},{"k":"a"}]})",
       [](Object& o) { return filter_remove_item(o, "a"); },
       true,
       R"({"v":[1,{"k":"a"}]})",
       {}},
      {"remove none", R"({"v":[]})", [](Object& o) { return filter_remove_item(o, "a"); }, true, R"({"v":[]})", {}},
      {"remove behind an object without key",
       R"({"v":[{"op":"EQ"},{"k":"a"}]})",
       [](Object& o) { return filter_remove_item(o, "a"); },
       false,
       R"({"v":[{"op":"EQ"},{"k":"a"}]})",
       {error("Failed to remove item from filter: map::at")}},
      {"remove from nothing",
       "{}",
       [](Object& o) { return filter_remove_item(o, "a"); },
       false,
       "{}",
       {error("Failed to remove item from filter: map::at")}},
      {"remove no key", "{}", [](Object& o) { return filter_remove_item(o, ""); }, false, "{}", {unexpected("key")}},
      {"empty group",
       R"({"v":[1],"k":"old","z":1})",
       [](Object& o) { return generate_and_filter(o); },
       true,
       R"({"op":"AND","v":[],"z":1})",
       {}},
      {"group with a key",
       "{}",
       [](Object& o) { return generate_empty_filter(o, "OR", ""); },
       true,
       R"({"k":"","op":"OR","v":[]})",
       {}},
      {"group of its own words",
       R"({"v":["AND"]})",
       [](Object& o) { return generate_empty_filter(o, o["v"].get_array()[0].get_str().c_str(), nullptr); },
       true,
       R"({"op":"AND","v":[]})",
       {}},
      {"no group",
       "{}",
       [](Object& o) { return generate_empty_filter(o, nullptr, "k"); },
       false,
       "{}",
       {unexpected("op")}},
      {"equalities",
       R"({"v":[1]})",
       [&](Object& o) {
         return generate_eq_and_filter(o, source, Array{"b", "a"});
       },
       true,
       R"({"op":"AND","v":[{"k":"b","op":"EQ","v":2},{"k":"a","op":"EQ","v":[1]}]})",
       {}},
      {"equalities that lack",
       "{}",
       [&](Object& o) {
         return generate_eq_and_filter(o, source, Array{"b", "c", "a"});
       },
       false,
       R"({"op":"AND","v":[{"k":"b","op":"EQ","v":2}]})",
       {error("Failed to generate equal and filter: map::at")}},
      {"equalities of no names",
       "{}",
       [&](Object& o) { return generate_eq_and_filter(o, source, Array{1}); },
       false,
       R"({"op":"AND","v":[]})",
       {error("Failed to generate equal and filter: value is of type int, not string")}},
  };
  Log_Capture log;
  for (auto const& c : cases) {
    SCOPED_TRACE(c.behaviour);
    Object object = read(c.before).get_obj();
    EXPECT_EQ(c.change(object), c.result);
    EXPECT_EQ(dump(object), dump(read(c.after)));
    EXPECT_EQ(log.take(), c.log);
  }
}

TEST(json_filter_helpers, equalities_may_come_from_what_the_group_held) {
  Object filter = read(R"({"v":[{"b":2,"a":[1]},["a","b"]]})").get_obj();
  Array const& held = *filter_get_items(static_cast<Object const&>(filter));
  EXPECT_TRUE(generate_eq_and_filter(filter, held[0].get_obj(), held[1].get_array()));
  EXPECT_EQ(dump(filter), R"({"op":"AND","v":[{"k":"a","op":"EQ","v":[1]},{"k":"b","op":"EQ","v":2}]})");
}

TEST(json_filter_helpers, readers_point_into_the_document) {
  Object document = read(R"({"op":"AND","v":[1,{"k":5},{"op":"EQ","k":"a","v":2}],"k":7})").get_obj();
  Object empty;
  std::string op = "kept";
  EXPECT_FALSE(item_get_op(empty, op));
  EXPECT_EQ(op, "kept");
  EXPECT_TRUE(item_get_op(document, op));
  EXPECT_EQ(op + *item_get_op(document), "ANDAND");
  EXPECT_EQ(item_get_key(document), nullptr) << "no string";
  Object* const item = filter_find_item(document, "a");
  ASSERT_EQ(item, &document["v"].get_array()[2].get_obj());
  EXPECT_EQ(*item_get_key(*item), "a");
  EXPECT_EQ(*item_get_value(*item), Value(2));
  EXPECT_EQ(filter_find_item(document, "b"), nullptr);
  EXPECT_EQ(filter_find_item(*item, "b"), nullptr) << "its v is no array";
  EXPECT_EQ(filter_get_items(static_cast<Object const&>(empty)), nullptr);
  EXPECT_NE(filter_get_items(empty), nullptr);
  EXPECT_EQ(dump(empty), R"({"v":[]})");
  Log_Capture log;
  EXPECT_EQ(filter_find_item(document, ""), nullptr);
  EXPECT_EQ(log.take(), Lines{unexpected("key")});
}

TEST(generate_filter_from_obj, documents_become_conditions) {
  constexpr char const* hex = "x\"5F0C2B9E3A414C1E9D7A1B2C3D4E5F60\"";
  struct {
    char const* document;
    bool result;
    std::string text;
  } const cases[] = {
      {R"({"op":"AND","v":[{"op":"EQ","k":"type","v":2},{"op":"OR","v":[{"op":"GE","k":"size","v":1024},)"
       R"({"op":"EQ","k":"host_uuid","v":["5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60","00"]}]},"deleted = 0"]})",
       true,
       "((`type`=:1) AND ((`size`>=:2) OR (`host_uuid` IN (x'5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60',x'00'))) AND "
       "(deleted = 0)) {:1=2 :2=1024}"},
      {"{}", false, "1"},
      {R"({"op":"AND"})", false, "1"},
      {R"({"op":7,"v":[]})", false, "1"},
      {R"({"op":"AND","v":[]})", true, "(1)"},
      {R"({"op":"and","v":[{"op":"EQ","k":"a","v":1}]})", true, "1"},
      {R"({"op":"EQ","v":1})", true, "1"},
      {R"({"op":"GE","k":"size","v":[1,2]})", true, "(`size` NOT IN (1,2))"},
      {R"({"op":"EQ","k":"size","v":[]})", true, "(0)"},
      {R"({"op":"IN","k":"uid","v":["0a"]})", true, "(`uid` NOT IN (x'0a'))"},
      {R"({"op":"EQ","k":"host_uuid","v":"5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60"})", true,
       std::string("(`host_uuid`=:1) {:1=") + hex + "}"},
      {R"({"op":"NE","k":"incarnation","v":"5f0c2b9e3a414c1e9d7a1b2c3d4e5f60"})", true,
       std::string("(`incarnation`!=:1) {:1=") + hex + "}"},
      {R"({"op":"EQ","k":"hostuuid","v":"00"})", true, "(`hostuuid`=:1) {:1=\"00\"}"},
      {R"({"op":"EQ","k":"uuid","v":5})", true, "(`uuid`=:1) {:1=5}"},
      {R"({"op":"LK","k":"a","v":null})", true, "(`a` LIKE :1) {:1=null}"},
      {R"({"op":"EQ","k":"a","v":{"x":1}})", true, "(`a`=:1) {:1={\"x\":1}}"},
      {R"({"op":"AND","v":[{"op":"EQ","v":1},7,null,[],{"op":"OR","v":1},{},"a = 1"]})", true, "((a = 1))"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.document);
    Value const document = read(c.document);
    And_Filter_SQL filter;
    Log_Capture log;
    EXPECT_EQ(generate_filter_from_obj(document.get_obj(), filter), c.result);
    EXPECT_EQ(render(filter), c.text);
  }
}

TEST(generate_filter_from_obj, reports_groups_without_members_and_operators_without_text) {
  Log_Capture log;
  And_Filter_SQL filter;
  EXPECT_FALSE(generate_filter_from_obj(read(R"({"op":"OR","v":{}})").get_obj(), filter));
  EXPECT_EQ(log.take(), Lines{"EMERGENCY json_filter_helpers -1: Unexpected error in "
                              "src/backup/utils/sql/json_filter_helpers:N, *val is not array!\n"});
  EXPECT_TRUE(generate_filter_from_obj(read(R"({"op":"BR","k":"a","v":1})").get_obj(), filter));
  EXPECT_EQ(render(filter), "()");
}
