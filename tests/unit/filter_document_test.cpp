// Filter documents. The examples of docs/filter-documents.md run in documents_test.cpp; here is the rest.
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

std::string missing(char const* argument) {
  return std::string(
             "EMERGENCY json_filter_helpers -1: Unexpected error in src/backup/utils/sql/json_filter_helpers:N, ") +
         argument + " is NULL or \"\":\nSTACK";
}

std::string failed(std::string const& text) { return "ERROR json_filter_helpers 0: Failed to " + text + "\n"; }

}  // namespace

TEST(json_filter_helpers, writers_change_the_document_as_told) {
  Array const objects = read(R"([{"id":1},{"id":2,"x":0}])").get_array();
  Array const bad_objects = read(R"([{"id":1},7])").get_array();
  Object const source = read(R"({"b":2,"a":[1]})").get_obj();
  struct {
    char const* before;
    char const* after;  // with the result
    std::string log;
    std::function<bool(Object&)> change;
  } const cases[] = {
      {R"({"k":5})", R"(false {"k":5})", missing("key"), [](Object& o) { return item_set_key(o, ""); }},
      {R"({"v":0,"z":1})", R"(true {"k":"a","op":"EQ","v":5,"z":1})", "",
       [](Object& o) { return generate_eq_item("a", 5, o); }},
      {"{}", "false {}", missing("key"), [](Object& o) { return generate_ne_item(nullptr, 1, o); }},
      {"{}", "false {}", missing("obj_key"), [&](Object& o) { return generate_eq_item("k", source, "", o); }},
      {"{}", "false {}", failed("generate object array item: value is of type int, not object"),
       [&](Object& o) { return generate_eq_item("k", bad_objects, "id", o); }},
      {"{}", "false {}", failed("generate object array item: map::at"),
       [&](Object& o) { return generate_eq_item("k", objects, "x", o); }},
      {R"({"v":1})", R"(false {"v":1})", "", [](Object& o) { return filter_add_eq_item(o, "k", 1); }},
      {"{}", "false {}", missing("val_key"), [&](Object& o) { return filter_add_ne_item(o, "k", objects, nullptr); }},
      {R"({"v":[1,{"k":"a"},{"k":"a"}]})", R"(true {"v":[1,{"k":"a"}]})", "",
       [](Object& o) { return filter_remove_item(o, "a"); }},
      {R"({"v":[]})", R"(true {"v":[]})", "", [](Object& o) { return filter_remove_item(o, "a"); }},
      {"{}", "false {}", failed("remove item from filter: map::at"),
       [](Object& o) { return filter_remove_item(o, "a"); }},
      {"{}", "false {}", missing("key"), [](Object& o) { return filter_remove_item(o, ""); }},
      {R"({"v":[1],"k":"old","z":1})", R"(true {"op":"AND","v":[],"z":1})", "",
       [](Object& o) { return generate_and_filter(o); }},
      {"{}", R"(true {"k":"","op":"OR","v":[]})", "", [](Object& o) { return generate_empty_filter(o, "OR", ""); }},
      {R"({"v":["AND"]})", R"(true {"op":"AND","v":[]})", "",
       [](Object& o) { return generate_empty_filter(o, o["v"].get_array()[0].get_str().c_str(), nullptr); }},
      {"{}", "false {}", missing("op"), [](Object& o) { return generate_empty_filter(o, nullptr, "k"); }},
      {"{}", R"(false {"op":"AND","v":[]})", failed("generate equal and filter: value is of type int, not string"),
       [&](Object& o) { return generate_eq_and_filter(o, source, Array{1}); }},
      {R"({"v":[{"b":2,"a":[1]},["a","b"]]})",
       R"(true {"op":"AND","v":[{"k":"a","op":"EQ","v":[1]},{"k":"b","op":"EQ","v":2}]})", "",
       [](Object& o) {
         Array const& held = *filter_get_items(std::as_const(o));
         return generate_eq_and_filter(o, held[0].get_obj(), held[1].get_array());
       }},
  };
  Log_Capture log;
  for (auto const& c : cases) {
    SCOPED_TRACE(std::string(c.before) + " to " + c.after);
    Object object = read(c.before).get_obj();
    bool const result = c.change(object);
    EXPECT_EQ((result ? "true " : "false ") + dump(object), c.after);
    EXPECT_EQ(log.take(), c.log.empty() ? Lines{} : Lines{c.log});
  }
}

TEST(json_filter_helpers, readers_point_into_the_document) {
  Object document = read(R"({"op":"AND","v":[1,{"k":5},{"op":"EQ","k":"a","v":2}],"k":7})").get_obj();
  Object empty;
  std::string op = "kept";
  EXPECT_FALSE(item_get_op(empty, op));
  EXPECT_EQ(op, "kept");
  EXPECT_TRUE(item_get_op(document, op));
  EXPECT_EQ(op, "AND");
  EXPECT_EQ(item_get_key(document), nullptr) << "no string";
  Object* const item = filter_find_item(document, "a");
  EXPECT_EQ(item, &document["v"].get_array()[2].get_obj());
  EXPECT_EQ(filter_find_item(*item, "b"), nullptr) << "its v is no array";
  EXPECT_EQ(filter_get_items(std::as_const(empty)), nullptr);
  Log_Capture log;
  EXPECT_EQ(filter_find_item(document, ""), nullptr);
  EXPECT_EQ(log.take(), Lines{missing("key")});
}

TEST(generate_filter_from_obj, takes_texts_of_uuid_keys_only_for_uuids) {
  Value const document = read(R"({"op":"AND","v":[{"op":"NE","k":"incarnation","v":"5f0c2b9e3a414c1e9d7a1b2c3d4e5f60"},
    {"op":"EQ","k":"hostuuid","v":"00"},{"op":"EQ","k":"uuid","v":5},{"op":"NE","k":"uid","v":["00"]}]})");
  And_Filter_SQL filter;
  EXPECT_TRUE(generate_filter_from_obj(document.get_obj(), filter));
  EXPECT_FALSE(generate_filter_from_obj(read(R"({"op":"AND"})").get_obj(), filter));
  EXPECT_EQ(render(filter),
            "((`incarnation`!=:1) AND (`hostuuid`=:2) AND (`uuid`=:3) AND (`uid` NOT IN (x'00'))) "
            "{:1=x\"5F0C2B9E3A414C1E9D7A1B2C3D4E5F60\" :2=\"00\" :3=5}");
}
