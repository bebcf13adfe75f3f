#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace session {

/// A lock that is nearly always free: to take it and to give it back is one atomic operation each,
/// in place. A host that slept since its last frame waits for every page of code that its call
/// comes through, those of the system's lock too. For std::lock_guard and std::unique_lock. Not
/// fair.
class QuickLock {
 public:
  QuickLock();
  ~QuickLock();
  QuickLock(const QuickLock&) = delete;
  QuickLock& operator=(const QuickLock&) = delete;

  bool try_lock() noexcept { return !taken_.exchange(true); }

  void lock() {
    if (!try_lock()) wait(std::nullopt);
  }

  /// @return whether it was taken within that time
  bool try_lock_for(std::chrono::nanoseconds limit) {
    return try_lock() || wait(std::chrono::steady_clock::now() + limit);
  }

  void unlock() noexcept {
    // In one order with the waiting ones' counting and trying: they see it free, or are seen.
    taken_.store(false);
    if (waiting_.load() > 0) wake();
  }

 private:
  struct Queue;

  bool wait(std::optional<std::chrono::steady_clock::time_point> end);
  void wake() noexcept;

  std::atomic<bool> taken_{false};
  std::atomic<int> waiting_{0};
  const std::unique_ptr<Queue> queue_;  ///< apart: what a call looks at lies together
};

}  // namespace session
