#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "backup/runtime/runtime_export.h"

/// Sets `count` bytes at `memory` to `value` and returns `memory`, like memset, but is never removed as a dead store.
/// A null `memory` with a count of 0 is fine.
BACKUP_RUNTIME_API void* secure_memset(void* memory, int value, std::size_t count) noexcept;

/// Allocator that wipes memory with `secure_memset` before it gives it back. It holds no state: all instances are
/// equal. Short strings live inside the string object, which no allocator sees: the holder of a secure string must wipe
/// it with `backup::secure_wipe` at its end.
template <class T>
class secure_allocator {
public:
  using value_type = T;

  secure_allocator() noexcept = default;
  template <class U>
  secure_allocator(secure_allocator<U> const& /*other*/) noexcept {}  // NOLINT(google-explicit-constructor): rebinding

  /// Throws std::bad_alloc when memory is short.
  T* allocate(std::size_t count) {
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
    return static_cast<T*>(::operator new(count * sizeof(T)));
  }
  void deallocate(T* memory, std::size_t count) noexcept {
    secure_memset(memory, 0, count * sizeof(T));
    ::operator delete(memory);
  }
};

template <class T, class U>
bool operator==(secure_allocator<T> const& /*a*/, secure_allocator<U> const& /*b*/) noexcept {
  return true;
}
template <class T, class U>
bool operator!=(secure_allocator<T> const& /*a*/, secure_allocator<U> const& /*b*/) noexcept {
  return false;
}

/// Secret text.
using Secure_String = std::basic_string<char, std::char_traits<char>, secure_allocator<char>>;
/// Raw bytes.
using Byte_String = std::basic_string<unsigned char>;
/// Secret raw bytes.
using Secure_Byte_String =
    std::basic_string<unsigned char, std::char_traits<unsigned char>, secure_allocator<unsigned char>>;

namespace backup {

/// Empties `text` and overwrites its whole capacity, also inside the string object.
template <class Char>
void secure_wipe(std::basic_string<Char, std::char_traits<Char>, secure_allocator<Char>>& text) noexcept {
  using String = std::basic_string<Char, std::char_traits<Char>, secure_allocator<Char>>;
  text.~String();  // wipes what is on the heap
  secure_memset(static_cast<void*>(&text), 0, sizeof(text));
  new (static_cast<void*>(&text)) String();
}

/// Wipes a secure string when the scope ends. The string outlives the guard.
template <class String>
class Secure_Wipe_Guard {
public:
  explicit Secure_Wipe_Guard(String& text) noexcept : text_(text) {}
  Secure_Wipe_Guard(Secure_Wipe_Guard const&) = delete;
  Secure_Wipe_Guard& operator=(Secure_Wipe_Guard const&) = delete;
  ~Secure_Wipe_Guard() { secure_wipe(text_); }

private:
  String& text_;
};

}  // namespace backup
