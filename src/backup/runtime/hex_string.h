#pragma once

#include <memory>
#include <string>

#include "backup/runtime/runtime_export.h"
#include "backup/runtime/secure_memory.h"

/// Bytes and their hexadecimal text, one made from the other at construction. Writes upper-case digits, reads both
/// cases. The secure variant holds both in secure strings and wipes them; the caller wipes the texts that it gets.
template <template <class> class Allocator>
class Hex_String_T {
public:
  using Text = std::basic_string<char, std::char_traits<char>, Allocator<char>>;
  using Bytes = std::basic_string<unsigned char, std::char_traits<unsigned char>, Allocator<unsigned char>>;

  /// From `count` raw bytes.
  Hex_String_T(void const* bytes, unsigned long long count);
  /// From `length` characters of hexadecimal text. An odd count or a character that is no digit gives no bytes and no
  /// text.
  Hex_String_T(char const* hex, unsigned long long length);
  Hex_String_T(Hex_String_T const&) = delete;
  Hex_String_T& operator=(Hex_String_T const&) = delete;
  ~Hex_String_T();

  /// Two upper-case digits a byte.
  Text const& hex() const;
  /// Assigns the bytes to `bytes`.
  void get_bytes(Bytes& bytes) const;

private:
  Bytes bytes_;
  Text hex_;
};

extern template class BACKUP_RUNTIME_API Hex_String_T<std::allocator>;
extern template class BACKUP_RUNTIME_API Hex_String_T<secure_allocator>;

using Hex_String = Hex_String_T<std::allocator>;
using Secure_Hex_String = Hex_String_T<secure_allocator>;
