#include "backup/runtime/secure_memory.h"

#include <cstring>

namespace {

// Volatile: no compiler, not even at link time, may know that this is memset and drop the call.
void* (*const volatile set_bytes)(void*, int, std::size_t) = std::memset;

}  // namespace

void* secure_memset(void* memory, int value, std::size_t count) noexcept {
  return count == 0 ? memory : set_bytes(memory, value, count);
}
