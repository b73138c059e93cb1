#include "json_spirit/json_spirit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "support/heap.h"

using namespace json_spirit;

namespace {

Value read(std::string const& text) {
  Value value;
  read_string_or_throw(text, value);
  return value;
}

std::string dump(Value const& value, bool pretty = false) {
  JSON_Dump const text(value, pretty);
  return {text.c_str(), text.size()};
}

// What `action` threw; the empty text for nothing.
template <class Action>
std::string error_of(Action action) {
  try {
    action();
  } catch (std::exception const& error) {
    return error.what();
  }
  return "";
}

TEST(Value, a_reader_of_another_kind_names_both) {
  Value const values[] = {Object(), Array(), "text", Secure_String("secret"), true, 1, 1.5, Value()};
  char const* const kinds[] = {"object", "array", "string", "secure string", "bool", "int", "real", "null"};
  std::pair<Value_type, void (*)(Value&)> const readers[] = {
      {obj_type, [](Value& v) { v.get_obj(); }},     {obj_type, [](Value& v) { std::as_const(v).get_obj(); }},
      {array_type, [](Value& v) { v.get_array(); }}, {array_type, [](Value& v) { std::as_const(v).get_array(); }},
      {str_type, [](Value& v) { v.get_str(); }},     {secure_str_type, [](Value& v) { v.get_secure_str(); }},
      {bool_type, [](Value& v) { v.get_bool(); }},   {int_type, [](Value& v) { v.get_int64(); }},
      {int_type, [](Value& v) { v.get_uint64(); }},  {real_type, [](Value& v) { v.get_real(); }}};
  for (int type = 0; type < 8; ++type) {
    for (auto const& [wanted, read_it] : readers) {
      Value value(values[type]);
      bool const reads = type == wanted || (type == int_type && wanted == real_type);
      EXPECT_EQ(error_of([&, f = read_it] { f(value); }),
                reads ? "" : std::string("value is of type ") + kinds[type] + ", not " + kinds[wanted]);
    }
  }
  EXPECT_STREQ(value_type_to_string(static_cast<Value_type>(8)), "unknown");
}

TEST(Value, integers_are_read_as_they_are_or_not_at_all) {
  // value, is_uint64, as int64 or why not, as uint64 or why not, as real
  using Row = std::tuple<Value, bool, std::string, std::string, double>;
  Row const rows[] = {
      {-1, false, "-1", "integer -1 does not fit uint64", -1.0},
      {7U, true, "7", "7", 7.0},
      {read("9223372036854775807"), false, "9223372036854775807", "9223372036854775807", 0x1p63},
      {read("9223372036854775808"), true, "integer 9223372036854775808 does not fit int64", "9223372036854775808",
       0x1p63},
      {UINT64_MAX, true, "integer 18446744073709551615 does not fit int64", "18446744073709551615", 0x1p64},
  };
  for (auto const& row : rows) {
    Value const& value = std::get<0>(row);
    SCOPED_TRACE(dump(value));
    EXPECT_EQ(value.is_uint64(), std::get<1>(row));
    EXPECT_EQ(error_of([&] { throw std::runtime_error(std::to_string(value.get_int64())); }), std::get<2>(row));
    EXPECT_EQ(error_of([&] { throw std::runtime_error(std::to_string(value.get_uint64())); }), std::get<3>(row));
    EXPECT_EQ(value.get_real(), std::get<4>(row));
  }
}

TEST(Value, equality_is_by_kind_and_content) {
  Value all = read(R"([1,1.0,true,"1",null,[],{},[1,2],[2,1],[1,[2]],[1,[2,3]],{"a":[1]},{"a":[2]},{"b":[1]},
                       {"a":[1],"b":1},[{"a":{}}],[{"a":[]}]])");
  Array& different = all.get_array();
  for (Value const& value : {Value(1U), Value(Secure_String("1")), Value(NAN)}) different.push_back(value);
  for (Value const& a : different) {
    for (Value const& b : different) {
      bool const same = &a == &b && &a != &different.back();
      EXPECT_EQ(a == Value(b), same) << dump(a) << " and " << dump(b);
    }
  }
}

TEST(Value, assignment_from_and_into_its_own_content) {
  Value value = read(R"([[1,"longer than short texts"],2])");
  value.get_array()[1] = value;
  EXPECT_EQ(dump(value), R"([[1,"longer than short texts"],[[1,"longer than short texts"],2]])");
  value = value.get_array()[0];
  EXPECT_EQ(dump(value), R"([1,"longer than short texts"])");
  value = std::move(value.get_array()[1]);
  Value& self = value;
  value = self;
  value = std::move(self);
  EXPECT_EQ(dump(value), R"("longer than short texts")");
  Value const taken(std::move(value));
  EXPECT_TRUE(value.is_null());  // NOLINT(*-use-after-move,*.Move): the promised state
}

// Lets the 1st, 2nd, 3rd ... allocation of `action` fail until it passes. Returns how often it failed.
template <class Action>
long fail_each_allocation(Action action) {
  for (long failures = 0;; ++failures) {
    long const live_before = heap::live_blocks();
    {
      heap::Failing_Allocation const no_memory(failures + 1);
      std::string const error = error_of(action);
      EXPECT_EQ(no_memory.failed(), error == std::bad_alloc().what());
      if (!no_memory.failed()) return failures;
    }
    EXPECT_EQ(heap::live_blocks(), live_before) << "after failure " << failures;
  }
}

TEST(Value, short_texts_and_plain_kinds_need_no_memory) {
  Value const values[] = {"fifteen letters", Secure_String("fifteen letters"), 1, 2.5, true, Value()};
  for (Value const& value : values) {
    Value target("kept");
    EXPECT_EQ(fail_each_allocation([&] { target = value; }), 0);
    EXPECT_EQ(target, value);
  }
}

TEST(Value, short_memory_leaks_nothing_and_changes_nothing) {
  // Wide and deep enough for every stack to allocate.
  std::string const text = R"([{"a long name of some member":[1,[2],{}],"b":"longer than short texts"},[[],0.5],)"
                           R"([],[],[],[],[],[],[],[],[],[[[[[[[[[[]]]]]]]]]]])";
  Value const source = read(text);
  Value copied("kept");
  Value parsed("kept");
  auto const copy = [&] {
    EXPECT_TRUE(copied == "kept");
    copied = source;
  };
  auto const parse = [&] {
    EXPECT_TRUE(parsed == "kept");
    read_string_or_throw(text, parsed);
  };
  EXPECT_GT(fail_each_allocation(copy), 10);
  EXPECT_GT(fail_each_allocation(parse), 10);
  EXPECT_GT(fail_each_allocation([&] { EXPECT_EQ(dump(copied), text); }), 2);
  EXPECT_GT(fail_each_allocation([&] { EXPECT_TRUE(copied == parsed); }), 0);
}

TEST(JSON_Dump, writes_exactly_what_reads_back) {
  using namespace std::string_literals;
  // value, compact text, pretty text where it differs
  std::tuple<Value, std::string, std::string> const rows[] = {
      {Value(), "null", ""},
      {Object{{"b", Array{Array{}, Object{}}}, {"a", Object{{"", false}}}}, R"({"a":{"":false},"b":[[],{}]})",
       "{\n    \"a\": {\n        \"\": false\n    },\n    \"b\": [\n        [],\n        {}\n    ]\n}"},
      {"\"\\/\b\f\n\r\t\x01\x1f\x7f\0\0"s, "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001F\x7f\\u0000\\u0000\"", ""},
      {"\u00e9\u20ac\U0001f600", "\"\u00e9\u20ac\U0001f600\"", ""},
      {Array{1.0, -0.0, 0.1, 1e22, 5e-324, std::numeric_limits<double>::max()},
       "[1.0,-0.0,0.1,1e+22,5e-324,1.7976931348623157e+308]",
       "[\n    1.0,\n    -0.0,\n    0.1,\n    1e+22,\n    5e-324,\n    1.7976931348623157e+308\n]"},
  };
  for (auto const& [value, compact, pretty] : rows) {
    SCOPED_TRACE(compact);
    EXPECT_EQ(dump(value), compact);
    EXPECT_EQ(dump(value, true), pretty.empty() ? compact : pretty);
    EXPECT_EQ(read(compact), value);
  }
  EXPECT_EQ(dump(Array{NAN, HUGE_VAL, -HUGE_VAL, Secure_String("in clear\"")}), R"([null,null,null,"in clear\""])");
}

TEST(read_string, repeated_members_are_refused_on_request) {
  std::string const text = "{\"a\":{\"b\":1},\n\"a\":2}";
  Value value("kept");
  Read_Error error;
  EXPECT_FALSE(read_string(text, value, error, Repeated_Members::refused));
  EXPECT_EQ(std::to_string(error.line) + ':' + std::to_string(error.column) + ' ' + error.reason,
            "2:4 the object has a member of this name already");
  EXPECT_EQ(value, Value("kept"));
  EXPECT_TRUE(read_string(text, value, error));
  EXPECT_EQ(dump(value), R"({"a":2})");
}

TEST(read_string, takes_every_form_of_a_text) {
  std::pair<std::string, char const*> const rows[] = {
      // text, and its compact form
      {" \t\r\n[ 1 ,\n{ \"a\" : \"\\uD7FF\\/\\uD83D\\uDE00\" } ]\n ", "[1,{\"a\":\"\uD7FF/\U0001f600\"}]"},
      {R"({"a":[1],"b":2,"a":{"c":3}})", R"({"a":{"c":3},"b":2})"},
      {"[true,-0,-9223372036854775808,-9223372036854775809,18446744073709551615,18446744073709551616]",
       "[true,0,-9223372036854775808,-9223372036854775808.0,18446744073709551615,18446744073709551616.0]"},
      {"[1E2,1e-2,0.5e+1,-1e-99999999999999999999]", "[100.0,0.01,5.0,-0.0]"},
      {"[0.01e-9223372036854775808]", "[0.0]"},
      {"0." + std::string(400, '0') + "1e401", "1.0"},
      {"9007199254740993." + std::string(900, '0') + "1", "9007199254740994.0"},
  };
  for (auto const& [text, compact] : rows) {
    SCOPED_TRACE(text);
    EXPECT_EQ(dump(read(text)), compact);
  }
}

TEST(read_string, says_where_and_why_a_text_is_malformed) {
  using namespace std::string_literals;
  std::pair<std::string, char const*> const rows[] = {
      {"", "line 1, column 1: there is no value"},
      {"[1,\n 2,]", "line 2, column 4: a value is missing or misspelt"},
      {"\xEF\xBB\xBF[]", "line 1, column 1: a value is missing or misspelt"},
      {"[01]", "line 1, column 3: a comma or ']' is missing after an element"},
      {"[1] \n x", "line 2, column 2: there is more text after the value"},
      {"{1:2}", "line 1, column 2: the name of a member is missing"},
      {"{\"a\" 2}", "line 1, column 6: the colon after the name of a member is missing"},
      {"{\"a\":2\n\n;", "line 3, column 1: a comma or '}' is missing after a member"},
      {"[1.]", "line 1, column 4: a digit is missing after the point of a number"},
      {"[1e+]", "line 1, column 5: a digit is missing in the exponent of a number"},
      {"[1,-17976931348623159e292]", "line 1, column 4: the number is too big"},
      {"\"a", "line 1, column 3: the closing quotation mark of a string is missing"},
      {"\"\\x\"", "line 1, column 2: unknown escape or unescaped control character in a string"},
      {"\"\\u00g0\"", "line 1, column 2: \\u needs four hexadecimal digits"},
      {"\"a\xC3(\"", "line 1, column 3: a string is not valid UTF-8"},
      {"[\"\\\\\\uD83D\\uDE00\\u00e9\",\n\"\\uDE00\"]", "line 2, column 2: half of a surrogate pair is missing"},
      {"[1,\n\0 2]"s, "line 2, column 1: there is a zero byte in the text"},
      {"\"a\0b\""s, "line 1, column 3: there is a zero byte in the text"},
  };
  for (auto const& [text, why] : rows) {
    SCOPED_TRACE(text);
    Value value("kept");
    EXPECT_EQ(error_of([&, &text = text] { read_string_or_throw(text, value); }), why);
    EXPECT_EQ(value, Value("kept"));
  }
}

TEST(object_get_array_or_throw, gives_a_member_that_is_an_array) {
  Object object{{"text", "t"}, {"list", Array{1}}};
  EXPECT_THROW(object_get_array_or_throw(std::as_const(object), "absent"), std::out_of_range);
  EXPECT_EQ(error_of([&] { object_get_array_or_throw(object, "text"); }), "value is of type string, not array");
}

}  // namespace
