#include "backup/runtime/uuid.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "backup/runtime/detail/hex_digits.h"
#include "backup/runtime/detail/openssl_errors.h"

namespace {

constexpr std::size_t byte_count = 16;
constexpr std::size_t digit_count = 2 * byte_count;
constexpr std::size_t hyphenated_length = digit_count + 4;

bool is_hyphen_place(std::size_t index) { return index == 8 || index == 13 || index == 18 || index == 23; }

bool is_uuid(char const* text, std::size_t length) {
  if (length != digit_count && length != hyphenated_length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    bool const hyphen = length == hyphenated_length && is_hyphen_place(i);
    if (hyphen ? text[i] != '-' : backup::hex_value(text[i]) == backup::no_hex_digit) return false;
  }
  return true;
}

// Writes the bytes into the result directly: a secret uuid gets into no other memory.
template <class Bytes>
Bytes to_binary(char const* text, std::size_t length) {
  Bytes bytes;
  if (!is_uuid(text, length)) return bytes;
  bytes.resize(byte_count);
  for (unsigned char& byte : bytes) {
    if (*text == '-') ++text;  // only between two bytes
    byte = backup::hex_byte(text);
    text += 2;
  }
  return bytes;
}

}  // namespace

bool is_valid_uuid(std::string const& text) { return is_uuid(text.data(), text.size()); }

Byte_String uuid_string_to_binary(char const* text) {
  return text == nullptr ? Byte_String() : to_binary<Byte_String>(text, std::strlen(text));
}

Byte_String uuid_string_to_binary(std::string const& text) { return to_binary<Byte_String>(text.data(), text.size()); }

Secure_Byte_String uuid_string_to_binary_secure(Secure_String const& text) {
  return to_binary<Secure_Byte_String>(text.data(), text.size());
}

bool uuid_binary(unsigned char* bytes) {
  unsigned char fresh[byte_count];
  backup::OpenSSL_Errors const errors;
  if (RAND_bytes(fresh, static_cast<int>(byte_count)) != 1) return false;
  fresh[6] = static_cast<unsigned char>((fresh[6] & 0x0F) | 0x40);  // version 4
  fresh[8] = static_cast<unsigned char>((fresh[8] & 0x3F) | 0x80);  // the variant of RFC 9562
  std::copy(std::begin(fresh), std::end(fresh), bytes);
  return true;
}
