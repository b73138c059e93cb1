#include "support/heap.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace {

constexpr std::size_t header = alignof(std::max_align_t);

thread_local long until_failure = 0;  // 0: none is to fail
thread_local bool has_failed = false;
thread_local long allocation_count = 0;
std::atomic<long> live_count{0};

// Not a std::string, which would come from this very heap.
std::array<char, 256> watched_text;
std::atomic<std::size_t> watched_size{0};
std::atomic<long> watched_releases{0};

// The size stands before the block, so that a release can look at all of it.
void* allocate(std::size_t size) noexcept {
  if (until_failure > 0 && --until_failure == 0) {
    has_failed = true;
    return nullptr;
  }
  void* const block = std::calloc(1, header + size);
  if (block == nullptr) return nullptr;
  std::memcpy(block, &size, sizeof size);
  ++allocation_count;
  ++live_count;
  return static_cast<char*>(block) + header;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  char* const block = static_cast<char*>(memory) - header;
  std::size_t size = 0;
  std::memcpy(&size, block, sizeof size);
  std::string_view const watched(watched_text.data(), watched_size);
  if (!watched.empty() && std::string_view(block + header, size).find(watched) != std::string_view::npos) {
    ++watched_releases;
  }
  --live_count;
  std::free(block);
}

}  // namespace

#ifndef __clang_analyzer__  // which would find leaks of malloc in other libraries
// Out of line: inlined, g++ takes malloc and free for a mismatch with new and delete.
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
#endif

namespace heap {

Failing_Allocation::Failing_Allocation(long nth) {
  has_failed = false;
  until_failure = nth;
}
Failing_Allocation::~Failing_Allocation() { until_failure = 0; }
bool Failing_Allocation::failed() const { return has_failed; }

long allocations() { return allocation_count; }
long live_blocks() { return live_count; }

Watch::Watch(std::string const& text) {
  watched_releases = 0;
  watched_size = std::min(text.size(), watched_text.size());
  std::memcpy(watched_text.data(), text.data(), watched_size);
}
Watch::~Watch() { watched_size = 0; }
long Watch::releases() const { return watched_releases; }

}  // namespace heap
