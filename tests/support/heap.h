#pragma once

/// The heap of a test program that links heap.cpp: every operator new and delete goes through it.
namespace heap {

enum class Shortage { once, lasting };

/// Lets the nth allocation from here on fail, once or with all after it, on this thread: std::bad_alloc, or null for
/// the nothrow form.
class Failing_Allocation {
public:
  explicit Failing_Allocation(long nth, Shortage shortage = Shortage::once);
  Failing_Allocation(Failing_Allocation const&) = delete;
  Failing_Allocation& operator=(Failing_Allocation const&) = delete;
  ~Failing_Allocation();
  /// True once one has failed.
  bool failed() const;
};

/// Allocations so far on this thread.
long allocations();
/// Blocks that are allocated now, by all threads.
long live_blocks();

}  // namespace heap
