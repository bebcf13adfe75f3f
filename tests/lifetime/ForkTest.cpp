// Processes that fork while they use the library.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include <tests/lifetime/ChildProcess.h>
#include <tests/lifetime/Tracking.h>

namespace {

using algorithm::PoseAnswer;
using testing_support::endOfChild;
using testing_support::LoadedLibrary;
using testing_support::require;
using testing_support::Tracking;

TEST(Fork, WithNoCallInsideGivesTheChildAPipelineThatGoesOn) {
  const LoadedLibrary library;
  Tracking host(library);
  ASSERT_TRUE(host.feed());
  PoseAnswer before;
  ASSERT_TRUE(host.query(before));
  EXPECT_EQ(endOfChild([&] {
              PoseAnswer answer;
              require(host.query(answer), __LINE__);
              require(std::memcmp(&answer, &before, sizeof answer) == 0, __LINE__);
              require(host.answered() == Tracking::kOperations, __LINE__);
            }),
            "exit 0");
  EXPECT_EQ(host.answered(), Tracking::kOperations) << "the parent goes on too";
  delete &host.sink;
}

TEST(Fork, WhileAnotherThreadIsInsideLeavesTheChildWithoutTheLibrary) {
  const LoadedLibrary library;
  Tracking host(library);
  std::promise<void> inside, go;
  host.sink.whileDelivering = [&] {
    inside.set_value();
    go.get_future().wait();
  };
  std::thread feeder([&] { EXPECT_TRUE(host.feed()); });
  inside.get_future().wait();
  EXPECT_EQ(endOfChild([&] {
              require(host.answered() == 0, __LINE__);
              require(host.alg->GetFixedCode() == 800, __LINE__);
              // Nor has a child of its own.
              require(endOfChild([&] { require(host.answered() == 0, __LINE__); }) == "exit 0",
                      __LINE__);
            }),
            "exit 0");
  go.set_value();
  feeder.join();
  host.sink.whileDelivering = nullptr;
  EXPECT_EQ(host.answered(), Tracking::kOperations) << "the parent lost nothing";
  delete &host.sink;
}

TEST(Fork, FromInsideACallbackLetsTheChildLeaveItAndNoMore) {
  const LoadedLibrary library;
  Tracking host(library);
  pid_t child = -1;
  host.sink.whileDelivering = [&] { child = fork(); };
  const bool fed = host.feed();
  if (child == 0) {
    alarm(20);
    require(fed, __LINE__);
    require(host.answered() == 0, __LINE__);
    std::exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(fed);
  host.sink.whileDelivering = nullptr;
  EXPECT_EQ(host.answered(), Tracking::kOperations);
  delete &host.sink;
}

// In each child a query is answered or refused, and does not hang; in the parent no call is
// refused.
TEST(Fork, MayComeWhileThreadsCallIn) {
  const LoadedLibrary library;
  Tracking host(library);
  std::atomic<bool> stop{false};
  std::atomic<int> refused{0}, calls{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (; !stop; ++calls) refused += !host.feed();
  });
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (PoseAnswer answer; !stop; ++calls) refused += !host.query(answer);
    });
  }
  for (int n = 0; n < 60; ++n) {
    while (calls < 10 * n) std::this_thread::yield();
    const auto child = [&] {
      PoseAnswer answer;
      if (host.query(answer)) require(host.feed() && host.query(answer), __LINE__);
#ifdef __SANITIZE_ADDRESS__
      // The leak check at exit waits for its allocator's locks, which a thread that the child does
      // not have may hold.
      std::_Exit(0);
#endif
    };
    EXPECT_EQ(endOfChild(child), "exit 0") << "fork " << n;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(refused, 0);
  delete &host.sink;
}

TEST(Fork, AfterTheLibraryWasUnloadedIsNoBusinessOfIts) {
  {
    const LoadedLibrary library;
    Tracking host(library);
    host.feed();
    delete &host.sink;
  }
  ASSERT_FALSE(LoadedLibrary::isLoaded());
  EXPECT_EQ(endOfChild([] {}), "exit 0");
}

}  // namespace
