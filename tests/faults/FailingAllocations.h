// Makes the n-th allocation of one thread fail. Replaces operator new, and malloc as far as the
// objects linked into the program call it (Eigen does), through the linker's --wrap.
#pragma once

namespace testing_support {

/// While one lives, its thread's allocation number `failing` (from 0) fails; the others do not.
class FailingAllocation {
 public:
  explicit FailingAllocation(long failing);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// True when the allocation was asked for.
  bool struck() const;
};

/// While one lives, every allocation of all other threads fails.
class NoMemoryElsewhere {
 public:
  NoMemoryElsewhere();
  ~NoMemoryElsewhere();
  NoMemoryElsewhere(const NoMemoryElsewhere&) = delete;
  NoMemoryElsewhere& operator=(const NoMemoryElsewhere&) = delete;
};

/// Allocations made and not yet freed, through either way.
long liveAllocations();

}  // namespace testing_support
