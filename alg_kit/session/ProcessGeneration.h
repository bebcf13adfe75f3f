#pragma once

#include <atomic>

namespace session {

extern std::atomic<int> forksSoFar;

/// Counts forks: an object that remembers the number it was made under knows when it is looked at
/// by a child. Threads, locks and connections are not the child's, only copies of their memory.
inline int processGeneration() noexcept {
  return forksSoFar.load(std::memory_order_relaxed);
}

}  // namespace session
