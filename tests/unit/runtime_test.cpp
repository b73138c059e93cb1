#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "backup/runtime/aes_encoder.h"
#include "backup/runtime/hex_string.h"
#include "backup/runtime/posix_time.h"
#include "backup/runtime/string_template.h"
#include "backup/runtime/uuid.h"
#include "support/heap.h"
#include "support/random_source.h"

namespace {

unsigned char const* raw(std::string const& bytes) { return reinterpret_cast<unsigned char const*>(bytes.data()); }

std::string bytes_of(std::string const& hex) {
  Byte_String bytes;
  Hex_String(hex.data(), hex.size()).get_bytes(bytes);
  return std::string(bytes.begin(), bytes.end());
}

template <class Coder>
std::string output_of(Coder const& coder) {
  if (coder.buffer() == nullptr) return coder.length() == 0 ? "no output" : "a length without output";
  return std::string(coder.buffer(), coder.buffer() + coder.length());
}

std::string encode(std::string const& data, std::string const& key, char const* text) {
  return output_of(AES_Encoder(data.data(), data.size(), raw(key), key.size(), false, text, 0));
}

std::string decode(std::string const& data, std::string const& key, char const* text) {
  return output_of(backup::AES_Decoder(raw(data), data.size(), raw(key), key.size(), text));
}

std::string const key_16(16, 'k');

}  // namespace

TEST(AES_Decoder, reads_the_published_gcm_vectors) {  // D. McGrew, J. Viega: test cases 4, 10 and 16
  std::string const key = "feffe9928665731c6d6a8f9467308308";
  std::string const text = bytes_of("feedfacedeadbeeffeedfacedeadbeefabaddad2");
  std::pair<std::string, char const*> const cases[] = {
      {key,
       "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aac84aa05"
       "1ba30b396a0aac973d58e0915bc94fbc3221a5db94fae95ae7121a47"},
      {key + key.substr(0, 16),
       "3980ca0b3c00e841eb06fac4872a2757859e1ceaa6efd984628593b40ca1e19c7d773d00c144c525ac619d18c84a3f47"
       "18e2448b2fe324d9ccda27102519498e80f1478f37ba55bd6d27618c"},
      {key + key,
       "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056828838"
       "c5f61e6393ba7a0abcc9f66276fc6ece0f4e1768cddf8853bb2d551b"},
  };
  for (auto const& [hex_key, encoded] : cases) {
    SCOPED_TRACE(hex_key);
    std::string const message = bytes_of(std::string("cafebabefacedbaddecaf888") + encoded);
    std::string const data = decode(message, bytes_of(hex_key), text.c_str());
    EXPECT_EQ(Hex_String(raw(data), data.size()).hex(),
              "D9313225F88406E5A55909C5AFF5269A86A7A9531534F7DA2E4C303D8A318A72"
              "1C3C0C95956809532FCF0E2449A6B525B16AEDF5AA0DE657BA637B39");
  }
}

TEST(AES_Encoder, what_it_writes_is_read_back_and_never_the_same_twice) {
  for (std::size_t const key_length : {16U, 24U, 32U}) {
    for (std::size_t const size : {0U, 1U, 15U, 16U, 17U, 1U << 20}) {
      SCOPED_TRACE(::testing::Message() << "key " << key_length << ", data " << size);
      std::string const key(key_length, 'k');
      std::string const data(size, '\0');
      std::string const encoded = encode(data, key, "text");
      EXPECT_EQ(encoded.size(), 12 + size + 16);
      EXPECT_TRUE(encoded != encode(data, key, "text"));
      EXPECT_TRUE(decode(encoded, key, "text") == data);
    }
  }
  EXPECT_EQ(decode(encode("data", key_16, nullptr), key_16, ""), "data");
}

TEST(AES_Decoder, refuses_every_change) {
  std::string const encoded = encode("data", key_16, "text");
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    std::string changed = encoded;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_EQ(decode(changed, key_16, "text"), "no output") << i;
    EXPECT_EQ(decode(encoded.substr(0, i), key_16, "text"), "no output") << i;
  }
  EXPECT_EQ(decode(encoded, key_16, "Text"), "no output");
  EXPECT_EQ(decode(encoded, key_16, nullptr), "no output");
  EXPECT_EQ(decode(encoded, std::string(16, 'l'), "text"), "no output");
}

TEST(AES_Encoder, gives_nothing_when_it_cannot_encrypt) {
  for (std::size_t const key_length : {0U, 15U, 17U, 31U, 33U, 64U})
    EXPECT_EQ(encode("data", std::string(key_length, 'k'), "text"), "no output") << key_length;
  EXPECT_EQ(output_of(AES_Encoder("data", ULLONG_MAX, raw(key_16), 16, false, nullptr, 0)), "no output");
  Random_Source const failing(no_random_bytes);
  EXPECT_EQ(encode("data", key_16, "text"), "no output");
}

TEST(uuid, reads_both_forms_in_either_case) {  // RFC 9562, sections 5.9 and 5.10, appendix A
  std::pair<std::string, char const*> const cases[] = {
      {"00000000-0000-0000-0000-000000000000", "00000000000000000000000000000000"},
      {"C232AB00-9414-11EC-B3C8-9F6BDECED846", "C232AB00941411ECB3C89F6BDECED846"},
      {"017F22E279B07CC398C4DC0C0C07398F", "017F22E279B07CC398C4DC0C0C07398F"},
  };
  for (auto const& [text, expected] : cases) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(is_valid_uuid(text));
    Byte_String const bytes = uuid_string_to_binary(text);
    EXPECT_EQ(Hex_String(bytes.data(), bytes.size()).hex(), expected);
    EXPECT_EQ(uuid_string_to_binary(text.c_str()), bytes);
    Secure_Byte_String const secret = uuid_string_to_binary_secure(Secure_String(text.begin(), text.end()));
    EXPECT_EQ(Byte_String(secret.begin(), secret.end()), bytes);
  }
}

TEST(uuid, refuses_every_other_text) {
  auto const expect_refused = [](std::string const& text) {
    SCOPED_TRACE(::testing::PrintToString(text));
    EXPECT_FALSE(is_valid_uuid(text));
    EXPECT_TRUE(uuid_string_to_binary(text).empty());
    EXPECT_TRUE(uuid_string_to_binary_secure(Secure_String(text.begin(), text.end())).empty());
  };
  std::string const hyphenated = "c232ab00-9414-11ec-b3c8-9f6bdeced846";
  for (std::string const& good : {hyphenated, std::string("c232ab00941411ecb3c89f6bdeced846")}) {
    ASSERT_TRUE(is_valid_uuid(good));
    for (std::size_t i = 0; i < good.size(); ++i) {
      expect_refused(good.substr(0, i));
      for (char const wrong : {'g', '\0', '\xC3', good[i] == '-' ? '0' : '-'})
        expect_refused(std::string(good).replace(i, 1, 1, wrong));
    }
    for (std::string const& text : {"{" + good + "}", "urn:uuid:" + good, good + '0', good + '\0', good + "0000"})
      expect_refused(text);
  }
  expect_refused("c232ab009-414-11ec-b3c8-9f6bdeced846");
  EXPECT_TRUE(uuid_string_to_binary(nullptr).empty());
}

TEST(uuid, new_ones_are_version_4_of_random_bytes) {
  std::pair<int, char const*> const cases[] = {{0x00, "00000000000040008000000000000000"},
                                               {0xFF, "FFFFFFFFFFFF4FFFBFFFFFFFFFFFFFFF"},
                                               {no_random_bytes, "07070707070707070707070707070707"}};
  unsigned char bytes[16];
  for (auto const& [byte, expected] : cases) {
    Random_Source const source(byte);
    std::memset(bytes, 7, sizeof bytes);
    EXPECT_EQ(uuid_binary(bytes), byte != no_random_bytes);
    EXPECT_EQ(Hex_String(bytes, 16).hex(), expected);
  }
}

template <class Hex>
class Hex_String_T_Test : public ::testing::Test {};
using Hex_Strings = ::testing::Types<Hex_String, Secure_Hex_String>;
TYPED_TEST_SUITE(Hex_String_T_Test, Hex_Strings, );

TYPED_TEST(Hex_String_T_Test, converts_every_byte_and_refuses_every_other_text) {
  typename TypeParam::Bytes bytes;
  for (unsigned value = 0; value < 256; ++value) {
    unsigned char const byte[] = {static_cast<unsigned char>(value)};
    char const upper[] = {"0123456789ABCDEF"[value / 16], "0123456789ABCDEF"[value % 16], '\0'};
    char const lower[] = {"0123456789abcdef"[value / 16], "0123456789abcdef"[value % 16], '\0'};
    EXPECT_STREQ(TypeParam(byte, 1).hex().c_str(), upper);  // a pointer to bytes, not to text
    for (char const* const text : {upper, lower}) {
      TypeParam(text, 2).get_bytes(bytes);
      EXPECT_EQ(bytes, typename TypeParam::Bytes(byte, 1)) << text;
      EXPECT_STREQ(TypeParam(text, 2).hex().c_str(), upper);
    }
    if (value != 0 && std::strchr("0123456789abcdefABCDEF", byte[0]) != nullptr) continue;
    char const c = static_cast<char>(value);
    for (std::string const& wrong :
         {std::string{'4', '1', c, '0'}, std::string{'4', '1', '0', c}, std::string(1, '4')}) {
      TypeParam const read(wrong.data(), wrong.size());
      read.get_bytes(bytes);
      EXPECT_TRUE(bytes.empty() && read.hex().empty()) << ::testing::PrintToString(wrong);
    }
  }
}

TEST(String_Template, renders_what_is_set_and_keeps_what_is_no_variable) {
  std::tuple<char const*, char const*, char const*, char const*> const cases[] = {
      {"{{a}}={{b}},{{a}}", "{{", "}}", "1=two,1"},
      {"%a%%b% 5%", "%", "%", "1two 5%"},
      {"{{x {{a}} }}", "{{", "}}", "{{x 1 }}"},
      {"{{{a}}}", "{{", "}}", "{1}"},
      {"{{a}}", "", "}}", "{{a}}"},
      {"<a>{{}}", "<", ">", "1{{}}"},
      {":a;:b", ":", ";", "1:b"}};
  for (auto const& [pattern, open, close, expected] : cases) {
    SCOPED_TRACE(pattern);
    String_Template rendered(pattern, open, close);
    rendered.set("a", 1LL);
    rendered.set("b", std::string("two"));
    rendered.set("absent", "ignored");
    std::string text = "kept ";
    rendered.append_to(text);
    EXPECT_EQ(text, std::string("kept ") + expected);
  }
}

TEST(String_Template, writes_each_type_and_takes_no_memory_for_values_that_fit) {
  String_Template value("<val>", "<", ">");
  auto const written = [&](auto const& v) { return value.set("val", v), value.str(); };
  EXPECT_EQ(written(true) + written(false), "10");
  EXPECT_EQ(written(LLONG_MIN), "-9223372036854775808");
  EXPECT_EQ(written(ULLONG_MAX), "18446744073709551615");
  EXPECT_EQ(written("text") + written(static_cast<char const*>(nullptr)), "text");
  std::pair<double, char const*> const reals[] = {
      {0.1, "0.1"}, {1.0, "1"}, {-0.0, "-0"}, {1e22, "1e+22"}, {-1.7976931348623157e308, "-1.7976931348623157e+308"}};
  for (auto const& [real, expected] : reals) EXPECT_EQ(written(real), expected);
  std::string const longest(100, 'x');
  value.set("val", longest);
  long const before = heap::allocations();
  for (long long i = 0; i < 10000; ++i) {
    value.set("val", i);
    value.set("val", longest);
  }
  EXPECT_EQ(heap::allocations(), before);
}

TEST(POSIX_Time_To_ISO8601, counts_in_the_gregorian_calendar) {
  std::pair<long long, char const*> const cases[] = {
      {0, "1970-01-01 00:00:00 001 4 UTC+0000"},
      {-1, "1969-12-31 23:59:59 365 3 UTC+0000"},
      {951782400, "2000-02-29 00:00:00 060 2 UTC+0000"},
      {978307199, "2000-12-31 23:59:59 366 7 UTC+0000"},
      {-2203891200, "1900-03-01 00:00:00 060 4 UTC+0000"},
      {253402300800, "10000-01-01 00:00:00 001 6 UTC+0000"},
      {-62198755200, "-1-01-01 00:00:00 001 5 UTC+0000"},
      {67767976233532799, "2147483647-12-31 23:59:59 365 2 UTC+0000"},
      {67767976233532800, ""},
      {-67768040609740800, "-2147481748-01-01 00:00:00 001 4 UTC+0000"},
      {-67768040609740801, ""},
      {LLONG_MIN, ""},
  };
  for (auto const& [seconds, expected] : cases)
    EXPECT_EQ(POSIX_Time_To_ISO8601(seconds, "%Y-%m-%d %H:%M:%S %j %u %Z%z"), expected) << seconds;
  EXPECT_EQ(POSIX_Time_To_ISO8601(0, nullptr) + POSIX_Time_To_ISO8601(0, ""), "");
  EXPECT_EQ(POSIX_Time_To_ISO8601(0, "%0200Y"), std::string(196, '0') + "1970") << "the buffer grows";
}
