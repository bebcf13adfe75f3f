#include <alg_kit/analysis/SideThread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using analysis::SideThread;
using testing::ElementsAre;

TEST(SideThreadTest, JobsRunInOrderOnAnotherThread) {
  std::vector<int> order;
  std::thread::id there;
  std::promise<void> done;
  SideThread thread;
  for (int i = 0; i < 3; ++i) thread.run([&, i] { order.push_back(i); });
  thread.run([&] {
    there = std::this_thread::get_id();
    done.set_value();
  });
  done.get_future().wait();
  EXPECT_THAT(order, ElementsAre(0, 1, 2));
  EXPECT_NE(there, std::this_thread::get_id());
}

TEST(SideThreadTest, AllJobsAreDoneOnceWhenTheSharedWorkReturns) {
  SideThread thread;
  for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{100}}) {
    std::vector<int> runs(count, 0);
    thread.runAll(count, [&](std::size_t i) { ++runs[i]; });
    EXPECT_EQ(runs, std::vector<int>(count, 1));
  }
}

TEST(SideThreadTest, SharedWorkDoesNotWaitForTheJobBeforeIt) {
  std::promise<void> release;
  SideThread thread;
  thread.run([held = release.get_future().share()] { held.wait(); });
  int runs = 0;
  thread.runAll(5, [&](std::size_t) { ++runs; });  // by this thread alone
  EXPECT_EQ(runs, 5);
  release.set_value();
}

TEST(SideThreadTest, OfSeveralFailuresTheFirstJobsIsThrown) {
  SideThread thread;
  try {
    thread.runAll(50, [](std::size_t i) {
      if (i >= 20) throw std::runtime_error(std::to_string(i));
    });
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "20");
  }
}

TEST(SideThreadTest, RunsTwoJobsSideBySide) {
  std::promise<void> begun[2];
  std::future<void> other[2] = {begun[1].get_future(), begun[0].get_future()};
  std::atomic<int> met{0};
  SideThread side;
  side.runAll(2, [&](std::size_t i) {
    begun[i].set_value();
    if (other[i].wait_for(std::chrono::seconds(10)) == std::future_status::ready) ++met;
  });
  EXPECT_EQ(met, 2);
}

TEST(SideThreadTest, JobsThatHaveNotBegunAreDroppedAtTheEnd) {
  std::promise<void> begun, release;
  bool second = false;
  std::thread releasing;
  {
    SideThread thread;
    thread.run([&] {
      begun.set_value();
      release.get_future().wait();
    });
    thread.run([&] { second = true; });
    begun.get_future().wait();
    releasing = std::thread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      release.set_value();
    });
  }
  releasing.join();
  EXPECT_FALSE(second);
}

}  // namespace
