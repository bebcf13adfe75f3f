// A second thread for what can go on side by side.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace analysis {

/// Runs jobs one after the other on a thread of its own; where none can be started, in the
/// caller's. What a job reads and writes must outlive this object.
class SideThread {
 public:
  using Job = std::function<void()>;

  SideThread() = default;
  /// Waits for the job that is under way; those that have not begun are dropped.
  ~SideThread();
  SideThread(const SideThread&) = delete;
  SideThread& operator=(const SideThread&) = delete;

  /// @param job  must not throw
  void run(Job job);

  /// Runs `job(0)` to `job(count - 1)` on both threads, in any order, and returns when all are
  /// done. Throws what the first of those that threw has thrown.
  void runAll(std::size_t count, const std::function<void(std::size_t)>& job);

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Job> jobs_;
  bool stop_ = false;
  bool alone_ = false;  ///< no thread could be started
  std::thread thread_;  ///< from the first job on
};

}  // namespace analysis
