#include "text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "backup/runtime/hex_string.h"

namespace {

struct Code_Point {
  std::uint32_t value;
  std::size_t length;  // in bytes; 0: no UTF-8
};

// The first code point of `bytes`, which are not empty; well-formed sequences are those of RFC 3629.
Code_Point decode(std::string_view bytes) {
  constexpr Code_Point malformed{0, 0};
  static constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length
  auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  unsigned char const first = byte(0);
  if (first < 0x80) return {first, 1};
  if (first < 0xC2 || first > 0xF4) return malformed;
  std::size_t const length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (bytes.size() < length) return malformed;
  std::uint32_t value = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return malformed;
    value = value << 6 | (byte(i) & 0x3FU);
  }
  bool const surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < smallest[length] || value > 0x10FFFF || surrogate) return malformed;
  return {value, length};
}

// Control characters, separators of lines, and marks that change the direction of what follows.
bool harms_terminal(std::uint32_t value) {
  return value < 0x20 || (value >= 0x7F && value < 0xA0) || value == 0x061C || value == 0x200E || value == 0x200F ||
         (value >= 0x2028 && value <= 0x202E) || (value >= 0x2066 && value <= 0x2069);
}

void append_escaped(std::string& out, std::string_view bytes) {
  static constexpr char const* digits = "0123456789abcdef";
  for (char const c : bytes) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        auto const byte = static_cast<unsigned char>(c);
        out += "\\x";
        out += digits[byte >> 4];
        out += digits[byte & 0xF];
    }
  }
}

// Calls `write(code point, its bytes)` for each code point of `text`, and for each byte that is part of none.
template <class Write>
void for_each_code_point(std::string_view text, Write write) {
  while (!text.empty()) {
    Code_Point const point = decode(text);
    std::size_t const length = std::max<std::size_t>(point.length, 1);
    write(point, text.substr(0, length));
    text.remove_prefix(length);
  }
}

}  // namespace

std::string printable(std::string const& text) {
  std::string out;
  out.reserve(text.size());
  for_each_code_point(text, [&](Code_Point point, std::string_view bytes) {
    if (point.length == 0 || harms_terminal(point.value)) {
      append_escaped(out, bytes);
    } else {
      out += bytes;
      if (point.value == '\\') out += '\\';
    }
  });
  return out;
}

std::string printable_json(std::string const& json) {
  static constexpr char const* digits = "0123456789ABCDEF";
  std::string out;
  out.reserve(json.size());
  for_each_code_point(json, [&](Code_Point point, std::string_view bytes) {
    if (point.value < 0x7F || !harms_terminal(point.value)) {
      out += bytes;
      return;
    }
    out += "\\u";  // no such character is above U+FFFF
    for (unsigned int shift = 16; shift > 0;) out += digits[point.value >> (shift -= 4) & 0xFU];
  });
  return out;
}

std::string valid_utf8(std::string const& text) {
  std::string out;
  out.reserve(text.size());
  for_each_code_point(text, [&](Code_Point point, std::string_view bytes) {
    out += point.length == 0 ? std::string_view("\xEF\xBF\xBD") : bytes;
  });
  return out;
}

std::size_t display_width(std::string const& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80; }));
}

std::string grouped(unsigned long long number) { return grouped(std::to_string(number)); }

std::string grouped(std::string digits) {
  for (std::size_t end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, 1, ',');
  return digits;
}

std::string uuid_text(std::string const& bytes) {
  std::string text = Hex_String(static_cast<void const*>(bytes.data()), bytes.size()).hex();
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
  for (std::size_t const place : {8U, 13U, 18U, 23U}) {
    if (place < text.size()) text.insert(place, 1, '-');
  }
  return text;
}
