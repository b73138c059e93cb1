#pragma once

#include <array>
#include <cstddef>

namespace backup {

/// For a character that is no hexadecimal digit.
constexpr unsigned char no_hex_digit = 0xFF;

constexpr std::array<unsigned char, 256> make_hex_values() {
  std::array<unsigned char, 256> values{};
  for (auto& value : values) value = no_hex_digit;
  for (unsigned char i = 0; i < 10; ++i) values[std::size_t{'0'} + i] = i;
  for (unsigned char i = 0; i < 6; ++i) {
    values[std::size_t{'A'} + i] = static_cast<unsigned char>(10 + i);
    values[std::size_t{'a'} + i] = static_cast<unsigned char>(10 + i);
  }
  return values;
}

inline constexpr std::array<unsigned char, 256> hex_values = make_hex_values();

/// 0 to 15, or `no_hex_digit`; either case.
inline unsigned char hex_value(char digit) { return hex_values[static_cast<unsigned char>(digit)]; }

/// The byte of two digits; both must be digits.
inline unsigned char hex_byte(char const* digits) {
  return static_cast<unsigned char>(hex_value(digits[0]) << 4 | hex_value(digits[1]));
}

}  // namespace backup
