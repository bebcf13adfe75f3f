#include <alg_factory/service/Lock.h>

#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include <tests/support/WaitingThread.h>

namespace algorithm {
namespace {

using testing_support::WaitingThread;

/// Holds the lock for a moment.
auto visit(Lock& lock) {
  return [&lock] { LockGuard guard(lock); };
}

TEST(Lock, KeepsOtherThreadsOutUntilItIsLeft) {
  Lock lock;
  lock.enter();
  WaitingThread other(visit(lock));
  EXPECT_TRUE(other.waits());
  lock.leave();
}

TEST(Lock, MayBeTakenAgainByItsHolderAndIsLeftAsOften) {
  Lock lock;
  lock.enter();
  lock.enter();
  WaitingThread other(visit(lock));
  lock.leave();
  EXPECT_TRUE(other.waits());
  lock.leave();
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
  WaitingThread other(visit(lock));
  const bool waits = other.waits();
  EXPECT_FALSE(waits);
  if (waits) lock.leave();  // lets the thread end
}

}  // namespace
}  // namespace algorithm
