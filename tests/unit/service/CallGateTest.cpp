#include <alg_factory/service/CallGate.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/WaitingThread.h>

namespace algorithm {
namespace {

TEST(CallGate, AdmitsCallsUntilItIsClosed) {
  CallGate gate;
  EXPECT_TRUE(gate.enter());
  EXPECT_TRUE(gate.enter()) << "a call from inside a call";
  EXPECT_FALSE(gate.leave());
  EXPECT_FALSE(gate.leave());
  EXPECT_TRUE(gate.close()) << "nobody is inside: the closer clears up";
  EXPECT_FALSE(gate.enter());
}

TEST(CallGate, LeavesTheClearingUpToTheLastOneOut) {
  CallGate gate;
  gate.enter();
  gate.enter();
  EXPECT_FALSE(gate.close());
  EXPECT_FALSE(gate.enter());
  EXPECT_FALSE(gate.leave());
  EXPECT_TRUE(gate.leave());
}

TEST(CallGate, IsClearedUpOnceHoweverManyCallsRaceWithItsClosing) {
  for (int n = 0; n < 200; ++n) {
    CallGate gate;
    std::atomic<int> cleared{0}, inside{0}, insideWhenCleared{0};
    const auto clearUp = [&] {
      ++cleared;
      insideWhenCleared += inside;
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        while (gate.enter()) {
          ++inside;
          --inside;
          if (gate.leave()) clearUp();
        }
      });
    }
    if (gate.close()) clearUp();
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(cleared, 1);
    ASSERT_EQ(insideWhenCleared, 0);
  }
}

#if !defined(_WIN32)

TEST(CallGate, MakesCallsWaitWhileAnotherThreadForks) {
  CallGate gate;
  gate.beforeFork();
  testing_support::WaitingThread caller([&] { EXPECT_TRUE(gate.enter()); });
  EXPECT_TRUE(caller.waits());
  gate.afterForkInParent();
  caller.join();
  EXPECT_FALSE(gate.leave());
  EXPECT_TRUE(gate.close());
}

TEST(CallGate, IsClosedOnlyWhenAForkIsOver) {
  CallGate gate;
  gate.beforeFork();
  testing_support::WaitingThread closer([&] { EXPECT_TRUE(gate.close()); });
  EXPECT_TRUE(closer.waits());
  gate.afterForkInParent();
  closer.join();
  EXPECT_FALSE(gate.enter());
}

TEST(CallGate, StaysOpenInAChildOfAQuietProcess) {
  CallGate gate;
  gate.enter();
  gate.leave();
  gate.beforeFork();
  gate.afterForkInChild();
  EXPECT_TRUE(gate.enter());
  gate.leave();
  EXPECT_TRUE(gate.close());
}

TEST(CallGate, IsClosedInTheChildIfACallWasInsideAndNobodyClearsUp) {
  CallGate gate;
  gate.enter();
  gate.beforeFork();
  gate.leave();  // of another thread, during the fork: its work may have been copied half done
  gate.afterForkInChild();
  EXPECT_FALSE(gate.enter());
  EXPECT_FALSE(gate.close());
}

TEST(CallGate, LetsTheCallThatForkedLeaveInItsChild) {
  CallGate gate;
  gate.enter();
  gate.beforeFork();
  gate.afterForkInChild();
  EXPECT_FALSE(gate.enter());
  EXPECT_FALSE(gate.leave());
  EXPECT_FALSE(gate.enter());
  EXPECT_FALSE(gate.close());
}

TEST(CallGate, InAParentAForkChangesNothing) {
  CallGate gate;
  gate.enter();
  gate.beforeFork();
  gate.afterForkInParent();
  EXPECT_TRUE(gate.enter());
  EXPECT_FALSE(gate.leave());
  EXPECT_FALSE(gate.close());
  EXPECT_TRUE(gate.leave());
}

#endif

}  // namespace
}  // namespace algorithm
