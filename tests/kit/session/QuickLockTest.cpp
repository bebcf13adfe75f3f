#include <alg_kit/session/QuickLock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using session::QuickLock;
using namespace std::chrono_literals;

TEST(QuickLock, IsTakenByOneAtATime) {
  QuickLock lock;
  EXPECT_TRUE(lock.try_lock());
  EXPECT_FALSE(lock.try_lock());
  lock.unlock();
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

TEST(QuickLock, KeepsThreadsApartAndLosesNoneThatWait) {
  constexpr int kThreads = 4, kTimes = 20000;
  QuickLock lock;
  int count = 0;  // not atomic: the lock guards it
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int n = 0; n < kTimes; ++n) {
        const std::lock_guard<QuickLock> guard(lock);
        ++count;
        if (n % 100 == 0) std::this_thread::yield();  // the others come to wait
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, kThreads * kTimes);
}

TEST(QuickLock, IsGivenUpForAfterTheTimeThatWasGiven) {
  QuickLock lock;
  lock.lock();
  const auto begin = std::chrono::steady_clock::now();
  bool taken = true;
  std::thread([&] { taken = lock.try_lock_for(30ms); }).join();
  EXPECT_FALSE(taken);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
  lock.unlock();
  EXPECT_TRUE(lock.try_lock_for(0ms));
  lock.unlock();
}

TEST(QuickLock, WakesThoseThatWaitForIt) {
  QuickLock lock;
  lock.lock();
  std::atomic<int> got{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&, i] {
      if (i == 0)
        lock.lock();
      else if (!lock.try_lock_for(1h))
        return;
      ++got;
      lock.unlock();
    });
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(got, 0);
  lock.unlock();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(got, 3);
}

}  // namespace
