#include <alg_factory/service/Lock.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

namespace algorithm {
namespace {

/// Tries to hold the lock on a thread of its own.
class Contender {
 public:
  explicit Contender(Lock& lock)
      : thread_([this, &lock] {
          LockGuard guard(lock);
          entered_ = true;
        }) {}
  ~Contender() { thread_.join(); }

  /// True as soon as the lock was had; gives up after `milliseconds`.
  bool entersWithin(int milliseconds) const {
    for (int i = 0; i < milliseconds && !entered_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return entered_;
  }

 private:
  std::atomic<bool> entered_{false};
  std::thread thread_;
};

TEST(Lock, KeepsOtherThreadsOutUntilItIsLeft) {
  Lock lock;
  lock.enter();
  Contender contender(lock);
  EXPECT_FALSE(contender.entersWithin(50));
  lock.leave();
  EXPECT_TRUE(contender.entersWithin(10000));
}

TEST(Lock, MayBeTakenAgainByItsHolderAndIsLeftAsOften) {
  Lock lock;
  lock.enter();
  lock.enter();
  Contender contender(lock);
  lock.leave();
  EXPECT_FALSE(contender.entersWithin(50));
  lock.leave();
  EXPECT_TRUE(contender.entersWithin(10000));
}

TEST(Lock, LosesNoIncrement) {
  Lock lock;
  int count = 0;
  const auto work = [&] {
    for (int i = 0; i < 50000; ++i) {
      LockGuard guard(lock);
      ++count;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(count, 100000);
}

TEST(LockGuard, LeavesTheLockWhenAnExceptionPasses) {
  Lock lock;
  try {
    LockGuard guard(lock);
    throw std::runtime_error("passes");
  } catch (const std::runtime_error&) {
  }
  Contender contender(lock);
  const bool entered = contender.entersWithin(10000);
  EXPECT_TRUE(entered);
  if (!entered) lock.leave();  // lets the contender end
}

}  // namespace
}  // namespace algorithm
