#include <alg_kit/session/QuickLock.h>

#include <condition_variable>
#include <mutex>

namespace session {

struct QuickLock::Queue {
  std::mutex mutex;
  std::condition_variable free;
};

QuickLock::QuickLock() : queue_(std::make_unique<Queue>()) {}
QuickLock::~QuickLock() = default;

bool QuickLock::wait(std::optional<std::chrono::steady_clock::time_point> end) {
  std::unique_lock<std::mutex> guard(queue_->mutex);
  ++waiting_;
  bool taken = try_lock();
  for (bool late = false; !taken && !late; taken = try_lock()) {
    if (end)
      late = queue_->free.wait_until(guard, *end) == std::cv_status::timeout;
    else
      queue_->free.wait(guard);
  }
  --waiting_;
  return taken;
}

void QuickLock::wake() noexcept {
  // Whoever counted itself and has not begun to wait yet holds the mutex.
  const std::lock_guard<std::mutex> guard(queue_->mutex);
  queue_->free.notify_one();
}

}  // namespace session
