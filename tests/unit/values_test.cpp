// Bound values, literals, positional conversion and the value converters.
#include <gtest/gtest.h>

#include <limits>

#include "backup/runtime/aes_encoder.h"
#include "backup/utils/sql/binding_value_converter.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/quote.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using json_spirit::Value;

Byte_String bytes(std::string const& text) { return Byte_String(text.begin(), text.end()); }
Secure_Byte_String secure_bytes(std::string const& text) { return Secure_Byte_String(text.begin(), text.end()); }

char const* const uuid_text = "5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60";
char const* const uuid_literal = "x\"5F0C2B9E3A414C1E9D7A1B2C3D4E5F60\"";

}  // namespace

TEST(Binding_Value, each_constructor_sets_the_kind_and_keeps_the_value) {
  using B = Binding_Value;
  std::string const zero("a\0b", 3);
  struct {
    char const* behaviour;
    B value;
    B::Type type;
    bool is_uint64;
    char const* text;
  } const cases[] = {
      {"default", B(), B::null_type, false, "null"},
      {"JSON null", B(Value()), B::null_type, false, "null"},
      {"object", B(json_spirit::Object{{"a", 1}}), B::obj_type, false, "{\"a\":1}"},
      {"array", B(json_spirit::Array{1, "x"}), B::array_type, false, "[1,\"x\"]"},
      {"JSON text", B(Value("t")), B::str_type, false, "\"t\""},
      {"JSON unsigned", B(Value(7ULL)), B::int_type, true, "7"},
      {"JSON secret", B(Value(Secure_String("s"))), B::secure_str_type, false, "\"s\""},
      {"text with a zero byte", B(zero), B::str_type, false, "\"a\\u0000b\""},
      {"null pointer", B(static_cast<char const*>(nullptr)), B::str_type, false, "\"\""},
      {"secret", B(Secure_String("pass")), B::secure_str_type, false, "\"pass\""},
      {"bytes with a zero byte", B(bytes(std::string("\x01\0\xab", 3))), B::bin_type, false, "x\"0100AB\""},
      {"no bytes", B(Byte_String()), B::bin_type, false, "x\"\""},
      {"secret bytes", B(secure_bytes("\xff")), B::secure_bin_type, false, "x\"FF\""},
      {"bool", B(true), B::bool_type, false, "true"},
      {"short", B(static_cast<short>(-1)), B::int_type, false, "-1"},
      {"unsigned short", B(static_cast<unsigned short>(65535)), B::int_type, true, "65535"},
      {"int", B(-2), B::int_type, false, "-2"},
      {"unsigned", B(4294967295U), B::int_type, true, "4294967295"},
      {"long", B(-1L), B::int_type, false, "-1"},
      {"unsigned long", B(1UL), B::int_type, true, "1"},
      {"long long", B(std::numeric_limits<long long>::min()), B::int_type, false, "-9223372036854775808"},
      {"unsigned long long", B(18446744073709551615ULL), B::int_type, true, "18446744073709551615"},
      {"double", B(0.1), B::real_type, false, "0.1"},
      {"whole double", B(2.0), B::real_type, false, "2.0"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.behaviour);
    EXPECT_EQ(c.value.type(), c.type);
    EXPECT_EQ(c.value.val().is_uint64(), c.is_uint64);
    EXPECT_EQ(value_text(c.value), c.text);
    EXPECT_EQ(value_text(B(c.value)), c.text) << "copied";
  }
  EXPECT_EQ(B(bytes(std::string("\0\0", 2))).val().get_str().size(), 2U);
}

TEST(Binding_Value, setters_leave_the_other_field) {
  Binding_Value value(5);
  value.type(Binding_Value::real_type);
  EXPECT_EQ(value.val(), Value(5));
  value.val(Value("x"));
  EXPECT_EQ(value.type(), Binding_Value::real_type);
}

TEST(Quote, doubles_single_quotes_and_nothing_else) {
  struct {
    char const* text;
    char const* literal;
  } const cases[] = {{nullptr, ""},       {"", "''"},          {"abc", "'abc'"},       {"O'Brien", "'O''Brien'"},
                     {"'''", "''''''''"}, {"a\\'", "'a\\'''"}, {"\n\t\"", "'\n\t\"'"}, {"end'", "'end'''"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.literal);
    EXPECT_EQ(Quote(c.text).str(), c.literal);
    std::string buffer = "x";
    EXPECT_EQ(Quote(c.text, buffer).str(), std::string("x") + c.literal) << "appends to the caller's buffer";
    EXPECT_EQ(buffer, "") << "which it takes";
  }
  std::string const zero("a\0'", 3);
  EXPECT_EQ(Quote(zero).str(), std::string("'a\0'''", 6));
}

TEST(escape_like, escapes_the_escape_first) {
  struct {
    char const* text;
    char const* escaped;
  } const cases[] = {{"", ""},        {"100%", "100|%"}, {"a|b", "a||b"},
                     {"a_b", "a|_b"}, {"|_%", "|||_|%"}, {"\\[x]", "\\[x]"}};
  for (auto const& c : cases) EXPECT_EQ(escape_like(c.text), c.escaped);
}

TEST(Question_Mask_SQL_Converter, rewrites_bound_names_in_text_order) {
  Bindings const bindings{{":1", 1}, {":10", 10}, {":a", "A"}, {":v", "V"}, {":user_id", 7}};
  struct {
    char const* behaviour;
    char const* sql;
    char const* converted;
  } const cases[] = {
      {"a name twice", "SELECT * FROM t WHERE a = :1 AND b = :1", "SELECT * FROM t WHERE a = ? AND b = ? [1,1]"},
      {"no colon", "SELECT 1 FROM t", "SELECT 1 FROM t []"},
      {"an unbound name stays", "SELECT :x, :v", "SELECT :x, ? [\"V\"]"},
      {"a colon before a blank stays", "SELECT : v:v", "SELECT : v? [\"V\"]"},
      {"a name ends at the first other character", "SELECT:a-b", "SELECT?-b [\"A\"]"},
      {"a byte above 127 ends a name", "SELECT :a\xc3\xa9", "SELECT ?\xc3\xa9 [\"A\"]"},
      {"the longest name counts", "SELECT :10,:1,:user_id", "SELECT ?,?,? [10,1,7]"},
      {"a double colon before a bound name", "SELECT x::v", "SELECT x:? [\"V\"]"},
      {"a double colon before an unbound name", "SELECT x::int", "SELECT x::int []"},
      {"names in literals too", "SELECT ':a'", "SELECT '?' [\"A\"]"},
      {"the tail before a final colon doubles", "a = :v AND b:", "a = ? AND b AND b: [\"V\"]"},
      {"a whole text before a final colon doubles", "SELECT:", "SELECTSELECT: []"},
      {"nothing to double after a name", "a = x:v:", "a = x?: [\"V\"]"},
      {"nothing to double after a colon", "SELECT ::", "SELECT :: []"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.behaviour);
    std::string sql = c.sql;
    std::vector<Binding_Value> values;
    EXPECT_TRUE(Question_Mask_SQL_Converter().convert(sql, bindings, values));
    EXPECT_EQ(with_values(sql, values), c.converted);
  }
}

TEST(Question_Mask_SQL_Converter, reports_an_empty_text_and_throws_on_more_bindings_than_characters) {
  Log_Capture log;
  std::string sql;
  std::vector<Binding_Value> values{1};
  EXPECT_FALSE(Question_Mask_SQL_Converter().convert(sql, {}, values));
  EXPECT_EQ(values.size(), 1U);
  EXPECT_EQ(log.take(), std::vector<std::string>{"EMERGENCY question_mask_sql_converter -1: Unexpected error in "
                                                 "src/backup/utils/sql/question_mask_sql_converter:N, sql is empty:\n"
                                                 "STACK"});
  sql = "x=1";
  Bindings const four{{":1", 1}, {":2", 2}, {":3", 3}, {":4", 4}};
  EXPECT_THROW(Question_Mask_SQL_Converter().convert(sql, four, values), std::length_error);
  EXPECT_EQ(sql, "x=1");
}

TEST(Binding_Value_Converter, uuid_and_hex_accept_16_bytes_or_the_empty_text) {
  Binding_Value_UUID_Converter const uuid;
  Binding_Value_Hex_Converter const hex;
  std::string const digits = "5F0C2b9e3a414c1e9d7a1b2c3d4e5f60";
  struct {
    char const* behaviour;
    Binding_Value_Converter const& converter;
    Binding_Value in;
    bool accepted;
    Binding_Value::Type type;
    std::string out;
  } const cases[] = {
      {"uuid", uuid, uuid_text, true, Binding_Value::bin_type, uuid_literal},
      {"secret uuid", uuid, Secure_String(uuid_text), true, Binding_Value::secure_bin_type, uuid_literal},
      {"empty uuid", uuid, "", true, Binding_Value::bin_type, "x\"\""},
      {"empty secret uuid", uuid, Secure_String(), true, Binding_Value::secure_bin_type, "x\"\""},
      {"no uuid: overwritten", uuid, "5f0c", false, Binding_Value::bin_type, "x\"\""},
      {"integer: untouched", uuid, 5, false, Binding_Value::int_type, "99"},
      {"hex", hex, digits, true, Binding_Value::bin_type, uuid_literal},
      {"secret hex", hex, Secure_String(digits.c_str()), true, Binding_Value::secure_bin_type, uuid_literal},
      {"empty hex", hex, "", true, Binding_Value::bin_type, "x\"\""},
      {"hex of 2 bytes: overwritten", hex, "0aFf", false, Binding_Value::bin_type, "x\"0AFF\""},
      {"hex up to a zero byte", hex, std::string("0aFf\0ff", 7), false, Binding_Value::bin_type, "x\"0AFF\""},
      {"no hex", hex, "xyz", false, Binding_Value::bin_type, "x\"\""},
      {"bytes: untouched", hex, bytes("12"), false, Binding_Value::int_type, "99"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.behaviour);
    Binding_Value out(99);
    EXPECT_EQ(c.converter.convert(c.in, out), c.accepted);
    EXPECT_EQ(out.type(), c.type);
    EXPECT_EQ(value_text(out), c.out);
  }
}

TEST(Binding_Value_AES_Converter, encrypts_texts_bytes_and_arrays_and_refuses_the_rest) {
  Secure_Byte_String const key = secure_bytes("0123456789abcdef");
  Binding_Value_AES_Converter const aes(key, "column");
  struct {
    char const* behaviour;
    Binding_Value in;
    std::string plain;
  } const accepted[] = {{"text", "geheim", "geheim"},
                        {"text with a zero byte", std::string("a\0b", 3), std::string("a\0b", 3)},
                        {"secret", Secure_String("pass"), "pass"},
                        {"bytes", bytes("\x01\x02"), "\x01\x02"},
                        {"secret bytes", secure_bytes("\x03"), "\x03"},
                        {"array", json_spirit::Array{1, "x"}, "[1,\"x\"]"},
                        {"empty text", "", ""}};
  for (auto const& c : accepted) {
    SCOPED_TRACE(c.behaviour);
    Binding_Value out;
    ASSERT_TRUE(aes.convert(c.in, out));
    EXPECT_EQ(out.type(), Binding_Value::bin_type);
    Byte_String const coded = bytes(out.val().get_str());
    AES_Decoder const decoder(coded.data(), coded.size(), key.data(), key.size(), "column");
    ASSERT_NE(decoder.buffer(), nullptr);
    EXPECT_EQ(std::string(decoder.buffer(), decoder.buffer() + decoder.length()), c.plain);
  }
  for (Binding_Value const& in : {Binding_Value(json_spirit::Object()), Binding_Value(1), Binding_Value()}) {
    Binding_Value out(99);
    EXPECT_FALSE(aes.convert(in, out));
    EXPECT_EQ(value_text(out), "99");
  }
  Secure_Byte_String const short_key = secure_bytes("short");
  Binding_Value out(99);
  EXPECT_FALSE(Binding_Value_AES_Converter(short_key, nullptr).convert("x", out));
  EXPECT_EQ(value_text(out), "x\"\"");
}
