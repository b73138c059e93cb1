#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <stdexcept>

// How this library builds RapidJSON; to be included before any of its headers.

// Its own 32-bit sizes would cut texts of 4 GiB short.
#define RAPIDJSON_NO_SIZETYPEDEFINE
namespace rapidjson {
using SizeType = std::size_t;
}

// A failed assertion must not end a process that reads texts from outside, nor go on unnoticed in a release.
#define RAPIDJSON_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : throw std::logic_error("RapidJSON: broken assertion: " #condition))

namespace json_spirit {

/// What RapidJSON takes its stacks from. Its own allocator gives null when memory is short, which is not checked there.
struct Throwing_Allocator {
  static constexpr bool kNeedFree = true;
  void* Malloc(std::size_t size) { return ::operator new(size); }
  void* Realloc(void* old, std::size_t old_size, std::size_t size) {
    void* const memory = ::operator new(size);
    if (old != nullptr) std::memcpy(memory, old, old_size < size ? old_size : size);
    Free(old);
    return memory;
  }
  static void Free(void* memory) noexcept { ::operator delete(memory); }
};

}  // namespace json_spirit
