#include "backup/runtime/secure_memory.h"

#include <cstring>

namespace {

// Read again for every call: no compiler, at link time either, may know that it is memset and drop a store nobody
// reads.
void* (*const volatile set_bytes)(void*, int, std::size_t) = std::memset;

}  // namespace

void* secure_memset(void* memory, int value, std::size_t count) noexcept {
  return count == 0 ? memory : set_bytes(memory, value, count);
}
