#pragma once

#include <atomic>
#include <cstdint>

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace algorithm {

/// Counts the calls that are inside the library, so that what they use outlives them, and admits no
/// more once the library has ended. It needs no construction and no destruction: a thread or a
/// static destructor of the host may come at any moment of the process.
///
/// A forked child is a copy of its parent at one moment, without its other threads. A call that one
/// of these was making would never end there and had left its locks taken and its data half
/// written: if any call was inside, the gate is closed in the child for good.
class CallGate {
 public:
  /// @return false, and the call must not go on, once the gate is closed. While another thread
  /// forks, waits until that is done.
  bool enter();

  /// @return true to the last one out after the gate was closed, who is to clear up.
  bool leave();

  /// Admits no further call, and waits for none: one of them may be what ends the process.
  /// @return true when nobody is inside and the caller is to clear up.
  bool close();

#if !defined(_WIN32)
  // On the thread that forks.
  void beforeFork();
  void afterForkInParent();
  void afterForkInChild();
#endif

 private:
  static constexpr std::uint32_t kClosed = 1u << 31;
  static constexpr std::uint32_t kAbandoned = 1u << 30;  ///< in a child: nobody clears up
  static constexpr std::uint32_t kForking = 1u << 29;
  static constexpr std::uint32_t kInside = kForking - 1;  ///< the number of calls

  void waitForFork();

  std::atomic<std::uint32_t> state_{0};
#if !defined(_WIN32)
  pthread_mutex_t forkLock_ = PTHREAD_MUTEX_INITIALIZER;
  /// Nobody was inside when the fork began. Later counts say nothing: what the child gets of the
  /// other threads' work is copied piece by piece while they run on.
  bool quiet_ = true;
#endif
};

}  // namespace algorithm
