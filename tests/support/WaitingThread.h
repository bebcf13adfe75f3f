#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#if defined(__linux__)
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#endif

namespace testing_support {

/// A thread of which a test can tell that it waits: the system says that it sleeps.
class WaitingThread {
 public:
  template <typename Work>
  explicit WaitingThread(Work work)
      : thread_([this, work = std::move(work)]() mutable {
#if defined(__linux__)
          id_ = syscall(SYS_gettid);
#endif
          work();
          ended_ = true;
        }) {
  }
  ~WaitingThread() {
    join();
  }

  /// Comes back as soon as the thread has ended or waits.
  bool waits() const {
#if defined(__linux__)
    while (id_ == 0) std::this_thread::yield();
    while (!ended_) {
      if (sleeps()) return !ended_;
      std::this_thread::yield();
    }
    return false;
#else
    // No way to ask: it has had its chance to end.
    for (int i = 0; i < 50 && !ended_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return !ended_;
#endif
  }

  bool ended() const {
    return ended_;
  }

  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
#if defined(__linux__)
  /// The state follows the program's name, which is in brackets: S is an endless sleep.
  bool sleeps() const {
    std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto bracket = line.rfind(')');
    return bracket != std::string::npos && line.compare(bracket, 3, ") S") == 0;
  }
#endif

  std::atomic<bool> ended_{false};
  std::atomic<long> id_{0};
  std::thread thread_;  ///< last: it uses the others
};

}  // namespace testing_support
