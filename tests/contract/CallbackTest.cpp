// What a host may do inside its callbacks, and what happens when they throw.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <tests/support/Host.h>

namespace {

using algorithm::AlgBase;
using algorithm::PoseAnswer;
using algorithm::ResultBlock;
using testing_support::Host;

/// Runs what it is given inside Deliver.
class Callback : public algorithm::DataSink {
 public:
  bool Deliver(const void* buffer, int, int) override {
    action(*static_cast<const ResultBlock*>(buffer));
    return true;
  }
  std::function<void(const ResultBlock&)> action;
};

struct CallbackHost : Host {
  explicit CallbackHost(int productType) : Host(productType) { alg->SetDataCallback(&callback); }
  Callback callback;
};

/// A pose query from another thread. Its state outlives the test when the query never returns, so
/// that a lock that was left behind fails the test instead of hanging it.
class OtherThread {
 public:
  explicit OtherThread(AlgBase* alg) : state_(std::make_shared<State>()) {
    std::thread([alg, state = state_] {
      {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->started = true;
        state->changed.notify_all();
      }
      PoseAnswer answer;
      alg->HandleEvent(0, nullptr, &answer);
      std::lock_guard<std::mutex> lock(state->mutex);
      state->answer = answer;
      state->finished = true;
      state->changed.notify_all();
    }).detach();
    std::unique_lock<std::mutex> lock(state_->mutex);
    state_->changed.wait(lock, [&] { return state_->started; });
  }

  bool finishesWithin(std::chrono::milliseconds time) const {
    std::unique_lock<std::mutex> lock(state_->mutex);
    return state_->changed.wait_for(lock, time, [&] { return state_->finished; });
  }
  PoseAnswer answer() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->answer;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false, finished = false;
    PoseAnswer answer;
  };
  std::shared_ptr<State> state_;
};

constexpr std::chrono::milliseconds kSoon(10000);  // enough for a busy machine
constexpr std::chrono::milliseconds kAWhile(100);  // a query takes microseconds

// The lock may be taken again by the thread that holds it; ids, positions and filters are those of
// the block that is being delivered.
TEST(Callback, MayQueryTheBlockItIsHanded) {
  CallbackHost host(2);
  host.alg->SetFilterMode(0, 1, nullptr);
  int blocks = 0;
  host.callback.action = [&](const ResultBlock& block) {
    ++blocks;
    for (int k = 0; k < 2; ++k) {
      const PoseAnswer answer = host.pose(k);
      EXPECT_EQ(answer.id, block.records[k].id);
      EXPECT_EQ(answer.raw[0], block.records[k].x);
      EXPECT_EQ(answer.raw[1], block.records[k].y);
      EXPECT_EQ(answer.raw[2], block.records[k].z);
    }
  };
  for (int n = 0; n < 5; ++n) host.see({{0, 10.0 * n, 5, 1000}, {1, -10.0 * n, 9, 1100}});
  EXPECT_EQ(blocks, 5);
}

TEST(Callback, FindsTheFiltersAlreadyUpdated) {
  CallbackHost host(2);
  host.alg->SetFilterMode(0, 1, nullptr);
  PoseAnswer inside;
  host.callback.action = [&](const ResultBlock&) { inside = host.pose(0); };
  for (int n = 0; n < 5; ++n) host.see({{0, 10.0 * n, 5, 1000}});
  const PoseAnswer outside = host.pose(0);
  EXPECT_EQ(std::memcmp(&inside, &outside, sizeof inside), 0);
  EXPECT_GT(inside.rate[0], 0);
}

TEST(Callback, MayQueryHeadsAtAStampAndExchangeHeadings) {
  CallbackHost host(0);
  host.alg->SetFilterMode(0, 1, nullptr);
  int answers = 0;
  host.callback.action = [&](const ResultBlock& block) {
    EXPECT_EQ(host.pose(0).id, 0);
    EXPECT_EQ(host.pose(2, block.header + 1000).id, 2);
    const algorithm::OrientationSample sample{{0, 0, 0, 1}, block.header};
    algorithm::HeadingAnswer heading;
    EXPECT_TRUE(host.alg->HandleEvent(16, &sample, &heading));
    EXPECT_EQ(heading.value, block.header);
    ++answers;
  };
  for (std::uint32_t n = 1; n < 4; ++n) host.seeAt(n, {{0, 0, 0, 1000}, {2, 0, 100, 1000}});
  EXPECT_EQ(answers, 3);
}

TEST(Callback, RunsOnTheFeedingThread) {
  CallbackHost host(0);
  std::thread::id thread;
  host.callback.action = [&](const ResultBlock&) { thread = std::this_thread::get_id(); };
  host.see({{0, 0, 0, 1000}});
  EXPECT_EQ(thread, std::this_thread::get_id());
}

// Queries of other threads wait until the block is delivered, and then see it whole.
TEST(Callback, HoldsOffQueriesOfOtherThreads) {
  CallbackHost host(2);
  std::unique_ptr<OtherThread> other;
  bool finishedEarly = true;
  host.callback.action = [&](const ResultBlock&) {
    other = std::make_unique<OtherThread>(host.alg);
    finishedEarly = other->finishesWithin(kAWhile);
  };
  host.see({{0, 42, 0, 1000}});
  EXPECT_FALSE(finishedEarly);
  ASSERT_TRUE(other->finishesWithin(kSoon));
  EXPECT_NEAR(other->answer().raw[0], 42, 1e-3);
}

// The callback's own query gives back its turn of the lock, not the delivery's.
TEST(Callback, HoldsOffQueriesOfOtherThreadsAfterOneOfItsOwn) {
  CallbackHost host(2);
  std::unique_ptr<OtherThread> other;
  bool finishedEarly = true;
  host.callback.action = [&](const ResultBlock&) {
    host.pose(0);
    other = std::make_unique<OtherThread>(host.alg);
    finishedEarly = other->finishesWithin(kAWhile);
  };
  host.see({{0, 42, 0, 1000}});
  EXPECT_FALSE(finishedEarly);
  EXPECT_TRUE(other->finishesWithin(kSoon));
}

TEST(Callback, ThatThrowsLeavesTheLockFreeAndTheLibraryUsable) {
  for (const bool stampedPacket : {false, true}) {
    CallbackHost host(2);
    host.callback.action = [](const ResultBlock&) { throw std::runtime_error("host's own"); };
    const auto feed = [&](double x) {
      return stampedPacket ? host.seeAt(7, {{0, x, 0, 1000}}) : host.see({{0, x, 0, 1000}});
    };
    for (int n = 0; n < 3; ++n) {
      try {
        feed(10.0 * n);
        ADD_FAILURE() << "the exception did not arrive";
      } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "host's own");
      }
    }
    const OtherThread other(host.alg);
    ASSERT_TRUE(other.finishesWithin(kSoon)) << "the lock was left behind";
    EXPECT_EQ(other.answer().id, 0);
    EXPECT_NEAR(other.answer().raw[0], 20, 1e-3) << "the block was there before the callback";

    host.alg->SetDataCallback(&host.data);
    EXPECT_TRUE(feed(30));
    EXPECT_NEAR(host.data.last().records[0].x, 30, 1e-3);
  }
}

// A query inside a callback that then throws: the lock was taken twice and is left twice.
TEST(Callback, ThatQueriesAndThrowsLeavesTheLockFree) {
  CallbackHost host(2);
  host.callback.action = [&](const ResultBlock&) {
    host.pose(0);
    throw 5;
  };
  EXPECT_THROW(host.see({{0, 0, 0, 1000}}), int);
  EXPECT_TRUE(OtherThread(host.alg).finishesWithin(kSoon));
}

/// Throws at every message.
class ThrowingLog : public algorithm::LogSink {
 public:
  bool Log(int, const char*) override { throw std::runtime_error("log"); }
};

TEST(Callback, LogSinkThatThrowsReachesTheCallerAndHoldsNothing) {
  Host host(2);
  ThrowingLog log;
  host.alg->SetLogCallback(&log);
  EXPECT_THROW(host.alg->HandleEvent(7, nullptr, nullptr), std::runtime_error);
  EXPECT_THROW(host.input(9, {0}), std::runtime_error);
  EXPECT_THROW(host.input(0, {1, 1}), std::runtime_error);
  host.alg->SetLogCallback(&host.log);
  EXPECT_TRUE(OtherThread(host.alg).finishesWithin(kSoon));
  EXPECT_TRUE(host.see({{0, 0, 0, 1000}}));
  EXPECT_EQ(host.data.last().records[0].id, 0);
}

/// Asks for a pose while a message is logged.
class QueryingLog : public algorithm::LogSink {
 public:
  explicit QueryingLog(AlgBase* alg) : alg_(alg) {}
  bool Log(int, const char*) override {
    PoseAnswer answer;
    answered = alg_->HandleEvent(0, nullptr, &answer);
    return true;
  }
  bool answered = false;

 private:
  AlgBase* alg_;
};

TEST(Callback, LogSinkMayQueryToo) {
  const Host host(2);
  QueryingLog log(host.alg);
  host.alg->SetLogCallback(&log);
  host.input(0, {1, 1});
  EXPECT_TRUE(log.answered);
}

// While one thread feeds, others query; no answer mixes two blocks. Blocks alternate between two
// positions whose coordinates belong together.
TEST(Callback, QueriesOfOtherThreadsSeeWholeBlocks) {
  const Host host(2);
  host.see({{0, 0, 0, 1000}});
  host.pose(0);
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0}, answers{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        PoseAnswer answer;
        host.alg->HandleEvent(0, nullptr, &answer);
        // x = y' and z' = -1000 - x in every block
        const bool whole = std::fabs(answer.raw[0] - answer.raw[1]) < 1e-2f &&
                           std::fabs(answer.raw[2] + 1000 + answer.raw[0]) < 1e-2f;
        if (!whole) ++torn;
        ++answers;
      }
    });
  }
  for (int n = 0; n < 2000 || answers < 20000; ++n) {
    const double x = n % 2 == 0 ? 0 : 50;
    host.see({{0, x, -x, 1000 + x}});
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace
