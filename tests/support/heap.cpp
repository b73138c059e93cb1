#include "support/heap.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t header = 2 * alignof(std::max_align_t);

thread_local long until_failure = 0;  // 0: nothing fails any more
thread_local bool is_lasting = false;
thread_local bool has_failed = false;
thread_local long allocation_count = 0;
std::atomic<long> live_count{0};

// A block begins with unused room, into which free writes its list; the rest keeps its old content.
void* allocate(std::size_t size) noexcept {
  if (until_failure > 0 && --until_failure == 0) {
    has_failed = true;
    if (is_lasting) until_failure = 1;
    return nullptr;
  }
  void* const block = std::malloc(header + size);
  if (block == nullptr) return nullptr;
  ++allocation_count;
  ++live_count;
  return static_cast<char*>(block) + header;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  --live_count;
  std::free(static_cast<char*>(memory) - header);
}

}  // namespace

// Not inlined: otherwise g++ warns of malloc and free that do not match new and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const& /*nothrow*/) noexcept {
  return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
void operator delete(void* memory, std::nothrow_t const& /*nothrow*/) noexcept { operator delete(memory); }

namespace heap {

Failing_Allocation::Failing_Allocation(long nth, Shortage shortage) {
  until_failure = nth;
  is_lasting = shortage == Shortage::lasting;
  has_failed = false;
}
Failing_Allocation::~Failing_Allocation() { until_failure = 0; }
bool Failing_Allocation::failed() const { return has_failed; }

long allocations() { return allocation_count; }
long live_blocks() { return live_count; }

}  // namespace heap
