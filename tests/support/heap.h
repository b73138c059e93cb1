#pragma once

/// The heap of a test program that links heap.cpp: every operator new and delete goes through it.
namespace heap {

enum class Shortage { once, lasting };

/// Makes this thread's nth allocation from now on fail, alone or together with all later ones: std::bad_alloc, or null
/// for the nothrow form.
class Failing_Allocation {
public:
  explicit Failing_Allocation(long nth, Shortage shortage = Shortage::once);
  Failing_Allocation(Failing_Allocation const&) = delete;
  Failing_Allocation& operator=(Failing_Allocation const&) = delete;
  ~Failing_Allocation();
  /// True once one has failed.
  bool failed() const;
};

/// Allocations of this thread so far.
long allocations();
/// Allocated blocks of all threads.
long live_blocks();

}  // namespace heap
