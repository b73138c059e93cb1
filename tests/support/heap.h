#pragma once

/// The heap of a test program that links heap.cpp: every operator new and delete goes through it.
namespace heap {

/// Lets the nth allocation from here on fail, once, on this thread: std::bad_alloc, or null for the nothrow form.
class Failing_Allocation {
public:
  explicit Failing_Allocation(long nth);
  Failing_Allocation(Failing_Allocation const&) = delete;
  Failing_Allocation& operator=(Failing_Allocation const&) = delete;
  ~Failing_Allocation();
  /// True once it has failed.
  bool failed() const;
};

/// Allocations so far on this thread.
long allocations();
/// Blocks that are allocated now, by all threads.
long live_blocks();

}  // namespace heap
