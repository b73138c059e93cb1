#include "backup/runtime/hex_string.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "backup/runtime/detail/hex_digits.h"

namespace {

constexpr char digits[] = "0123456789ABCDEF";

template <class Bytes, class Text>
void write_digits(Bytes const& bytes, Text& text) {
  char* next = &text[0];
  for (unsigned char const byte : bytes) {
    *next++ = digits[byte >> 4];
    *next++ = digits[byte & 0x0F];
  }
}

}  // namespace

// Both constructors take all their memory before they write a byte of a secret: when a constructor throws, no
// destructor runs and wipes.

template <template <class> class Allocator>
Hex_String_T<Allocator>::Hex_String_T(void const* bytes, unsigned long long count) {
  if (count == 0) return;
  hex_.resize(static_cast<std::size_t>(2 * count));
  bytes_.assign(static_cast<unsigned char const*>(bytes), static_cast<std::size_t>(count));
  write_digits(bytes_, hex_);
}

template <template <class> class Allocator>
Hex_String_T<Allocator>::Hex_String_T(char const* hex, unsigned long long length) {
  if (length % 2 != 0) return;
  if (!std::all_of(hex, hex + length, [](char c) { return backup::hex_value(c) != backup::no_hex_digit; })) return;
  hex_.resize(static_cast<std::size_t>(length));
  bytes_.resize(static_cast<std::size_t>(length / 2));
  for (unsigned char& byte : bytes_) {
    byte = backup::hex_byte(hex);
    hex += 2;
  }
  write_digits(bytes_, hex_);
}

template <template <class> class Allocator>
Hex_String_T<Allocator>::~Hex_String_T() {
  if constexpr (std::is_same_v<Allocator<char>, secure_allocator<char>>) {
    backup::secure_wipe(bytes_);
    backup::secure_wipe(hex_);
  }
}

template <template <class> class Allocator>
typename Hex_String_T<Allocator>::Text const& Hex_String_T<Allocator>::hex() const {
  return hex_;
}

template <template <class> class Allocator>
void Hex_String_T<Allocator>::get_bytes(Bytes& bytes) const {
  bytes = bytes_;
}

template class Hex_String_T<std::allocator>;
template class Hex_String_T<secure_allocator>;
