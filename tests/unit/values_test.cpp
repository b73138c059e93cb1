// Bound values and their converters.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "backup/runtime/aes_encoder.h"
#include "backup/utils/sql/binding_value_converter.h"
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
  std::tuple<B, B::Type, bool, char const*> const cases[] = {
      {B(), B::null_type, false, "null"},
      {B(json_spirit::Object{{"a", 1}}), B::obj_type, false, "{\"a\":1}"},
      {B(json_spirit::Array{1, "x"}), B::array_type, false, "[1,\"x\"]"},
      {B(Value(7ULL)), B::int_type, true, "7"},
      {B(Value(Secure_String("s"))), B::secure_str_type, false, "\"s\""},
      {B(std::string("a\0b", 3)), B::str_type, false, "\"a\\u0000b\""},
      {B(static_cast<char const*>(nullptr)), B::str_type, false, "\"\""},
      {B(Secure_String("pass")), B::secure_str_type, false, "\"pass\""},
      {B(bytes(std::string("\x01\0\xab", 3))), B::bin_type, false, "x\"0100AB\""},
      {B(secure_bytes("\xff")), B::secure_bin_type, false, "x\"FF\""},
      {B(true), B::bool_type, false, "true"},
      {B(static_cast<short>(-1)), B::int_type, false, "-1"},
      {B(static_cast<unsigned short>(65535)), B::int_type, true, "65535"},
      {B(4294967295U), B::int_type, true, "4294967295"},
      {B(1UL), B::int_type, true, "1"},
      {B(2.0), B::real_type, false, "2.0"},
  };
  for (auto const& [value, type, is_uint64, text] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(value.type(), type);
    EXPECT_EQ(value.val().is_uint64(), is_uint64);
    EXPECT_EQ(value_text(B(value)), text) << "copied";
  }
  B apart(5);
  apart.type(B::real_type);
  apart.val(Value("x"));
  EXPECT_EQ(apart.type(), B::real_type) << "each setter leaves the other field";
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
      {"hex of 2 bytes: overwritten", hex, "0aFf", false, Binding_Value::bin_type, "x\"0AFF\""},
      {"hex up to a zero byte", hex, std::string("0aFf\0ff", 7), false, Binding_Value::bin_type, "x\"0AFF\""},
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
  std::pair<Binding_Value, std::string> const accepted[] = {{"", ""},
                                                            {std::string("a\0b", 3), std::string("a\0b", 3)},
                                                            {Secure_String("pass"), "pass"},
                                                            {bytes("\x01\x02"), "\x01\x02"},
                                                            {secure_bytes("\x03"), "\x03"},
                                                            {json_spirit::Array{1, "x"}, "[1,\"x\"]"}};
  for (auto const& [in, plain] : accepted) {
    SCOPED_TRACE(plain);
    Binding_Value out;
    ASSERT_TRUE(aes.convert(in, out));
    Byte_String const coded = bytes(out.val().get_str());
    backup::AES_Decoder const decoder(coded.data(), coded.size(), key.data(), key.size(), "column");
    ASSERT_NE(decoder.buffer(), nullptr);
    EXPECT_EQ(std::string(decoder.buffer(), decoder.buffer() + decoder.length()), plain);
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
