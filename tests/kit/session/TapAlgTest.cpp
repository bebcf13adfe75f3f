#include <alg_kit/session/TapAlg.h>
#include <tests/support/ScriptedAlg.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using session::TapAlg;
using session::Unit;
using testing::ElementsAre;
using testing::IsEmpty;

/// Notes what it is handed: "0 InputStream, 1 HandleEvent" is one unit of two calls.
class NotingSink : public session::UnitSink {
 public:
  void take(const Unit& unit) noexcept override {
    std::string text;
    for (std::size_t i = 0; i < unit.used; ++i) {
      const session::Call& call = unit.entries[i].call;
      text += (i > 0 ? ", " : "") + std::to_string(call.index) + " " + nameOf(call.kind);
    }
    if (!unit.truth.empty()) text += "truth " + std::to_string(unit.truth.size());
    seen.push_back(text);
    copy(unit, latest);
  }
  void miss(std::int64_t calls) noexcept override {
    seen.push_back("missed " + std::to_string(calls));
  }
  void end() noexcept override { seen.push_back("end"); }

  std::vector<std::string> seen;
  Unit latest;
};

/// Keeps what it may keep.
class KeepingSink final : public NotingSink {
 public:
  void takeOver(Unit& unit) noexcept override {
    take(unit);
    kept.emplace_back();
    std::swap(kept.back(), unit);
  }
  std::vector<Unit> kept;
};

/// The library's part: a lock around queries and around delivering.
class LockedAlg {
 public:
  LockedAlg() {
    library.onInputStream = [this](ScriptedAlg& self) {
      const std::lock_guard<std::recursive_mutex> guard(lock);
      return self.deliver(1);
    };
    library.onHandleEvent = [this](ScriptedAlg&, int) {
      queries = queries + 1;
      const std::lock_guard<std::recursive_mutex> guard(lock);
      return true;
    };
  }

  void awaitQuery() const {
    while (queries == 0) std::this_thread::yield();
  }

  ScriptedAlg library;
  std::recursive_mutex lock;
  std::atomic<int> queries{0};  ///< that have reached the library
};

class TapAlgTest : public testing::Test {
 protected:
  bool feed(algorithm::AlgBase& alg) { return alg.InputStream(0, nullptr, 0, 0); }
  bool ask(algorithm::AlgBase& alg) { return alg.HandleEvent(3, nullptr, answer_); }

  ScriptedAlg library_;
  ScriptedHost host_;
  NotingSink sink_;
  unsigned char answer_[52] = {};
};

TEST_F(TapAlgTest, HandsEveryUnitToEverySinkInOrder) {
  NotingSink second;
  TapAlg tap(&library_);
  tap.add(sink_);
  tap.add(second);
  feed(tap);
  ask(tap);
  EXPECT_THAT(sink_.seen, ElementsAre("0 InputStream", "1 HandleEvent"));
  EXPECT_EQ(second.seen, sink_.seen);
}

TEST_F(TapAlgTest, LetsTheLastSinkAloneKeepAUnit) {
  KeepingSink first, last;
  TapAlg tap(&library_);
  tap.add(first);
  tap.add(last);
  feed(tap);
  ask(tap);
  EXPECT_THAT(first.seen, ElementsAre("0 InputStream", "1 HandleEvent"));
  EXPECT_EQ(last.seen, first.seen);
  EXPECT_THAT(first.kept, IsEmpty());
  ASSERT_EQ(last.kept.size(), 2u);
  EXPECT_EQ(last.kept[1][0].call.index, 1);
}

TEST_F(TapAlgTest, HandsACallOverWithTheCallsFromItsCallbacksWhenItHasReturned) {
  TapAlg tap(&library_);
  tap.SetDataCallback(&host_);
  tap.add(sink_);
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  host_.onDeliver = [&](const void*, int, int) {
    ask(tap);
    EXPECT_THAT(sink_.seen, IsEmpty());
    return true;
  };
  feed(tap);
  EXPECT_THAT(sink_.seen, ElementsAre("0 InputStream, 1 HandleEvent"));
  ASSERT_EQ(sink_.latest.entries[0].blocks.size(), 1u);
  EXPECT_EQ(sink_.latest.entries[0].blocks[0].block.header, 7u);
  EXPECT_EQ(sink_.latest.entries[1].call.parent, 0);
}

TEST_F(TapAlgTest, ForwardsWithoutASink) {
  TapAlg tap(&library_);
  tap.SetDataCallback(&host_);
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  int delivered = 0;
  host_.onDeliver = [&](const void*, int, int) { return ++delivered > 0; };
  EXPECT_TRUE(feed(tap));
  EXPECT_EQ(delivered, 1);
  EXPECT_EQ(tap.nextIndex(), 0);
}

TEST_F(TapAlgTest, TakesASinkInAndOutBetweenCalls) {
  TapAlg tap(&library_);
  feed(tap);
  tap.add(sink_);
  feed(tap);
  tap.remove(sink_);
  tap.remove(sink_);
  feed(tap);
  EXPECT_THAT(sink_.seen, ElementsAre("0 InputStream", "end"));
}

TEST_F(TapAlgTest, ReadsBytesAsTheProductNeedsThemThoughNobodyHeardTheInit) {
  TapAlg tap(&library_);
  const std::vector<unsigned char> config(920);
  tap.Init(2, config.data(), 0);
  tap.add(sink_);
  const unsigned char nothing = 0;
  tap.HandleEvent(2, &nothing, answer_);
  EXPECT_TRUE(sink_.latest.entries[0].call.payload.empty());
}

TEST_F(TapAlgTest, ASinkThatIsRemovedInACallbackTakesTheCallUnderWay) {
  TapAlg tap(&library_);
  tap.SetDataCallback(&host_);
  tap.add(sink_);
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  host_.onDeliver = [&](const void*, int, int) {
    tap.remove(sink_);
    EXPECT_THAT(sink_.seen, IsEmpty());
    return ask(tap);
  };
  feed(tap);
  host_.onDeliver = [](const void*, int, int) { return true; };
  feed(tap);
  EXPECT_THAT(sink_.seen, ElementsAre("0 InputStream, 1 HandleEvent", "end"));
}

TEST_F(TapAlgTest, RemovingASinkDoesNotWaitForAnotherThreadsCall) {
  TapAlg tap(&library_);
  tap.add(sink_);
  std::atomic<bool> under{false}, removed{false};
  library_.onInputStream = [&](ScriptedAlg&) {
    under = true;
    while (!removed) std::this_thread::yield();
    return true;
  };
  std::thread feeding([&] { feed(tap); });
  while (!under) std::this_thread::yield();
  tap.remove(sink_);
  removed = true;
  feeding.join();
  EXPECT_THAT(sink_.seen, ElementsAre("end"));
}

TEST_F(TapAlgTest, EndsItsSinksAtItsOwnEnd) {
  { TapAlg(&library_).add(sink_); }
  EXPECT_THAT(sink_.seen, ElementsAre("end"));
}

TEST_F(TapAlgTest, HandsTruthOn) {
  TapAlg tap(&library_);
  tap.add(sink_);
  tap.addTruth(std::vector<session::TruthRow>(3));
  EXPECT_THAT(sink_.seen, ElementsAre("truth 3"));
}

TEST_F(TapAlgTest, TheHostsSinksGoOnBeingCalledAfterItsEnd) {
  int delivered = 0, logged = 0;
  host_.onDeliver = [&](const void*, int, int) { return ++delivered > 0; };
  host_.onLog = [&](int, const char*) { return ++logged > 0; };
  {
    TapAlg tap(&library_);
    tap.SetDataCallback(&host_);
    tap.SetLogCallback(&host_);
  }
  library_.deliver(1);
  library_.log->Log(3, "alg: still here\n");
  EXPECT_EQ(delivered, 1);
  EXPECT_EQ(logged, 1);
}

// Whoever changes from one recording to the next may let the two overlap.
TEST_F(TapAlgTest, TheEndOfAnEarlierTapLeavesTheNextOneInItsPlace) {
  auto first = std::make_unique<TapAlg>(&library_);
  first->SetDataCallback(&host_);
  TapAlg second(&library_);
  second.add(sink_);
  second.SetDataCallback(&host_);
  first.reset();
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  feed(second);
  EXPECT_EQ(sink_.latest.entries[0].blocks.size(), 1u);
}

TEST_F(TapAlgTest, ForwardsWhatGoesPastItAndHandsItToNobody) {
  TapAlg tap(&library_);
  tap.SetDataCallback(&host_);
  tap.add(sink_);
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  bool answered = false;
  host_.onDeliver = [&](const void*, int, int) { return answered = ask(tap); };
  feed(library_);
  EXPECT_TRUE(answered);
  EXPECT_THAT(sink_.seen, IsEmpty());
}

// One thread feeds past the tap, another queries through it: the query waits in the library for
// the packet, so the packet's callback must not wait for the query.
TEST_F(TapAlgTest, ACallbackOfACallThatWentPastWaitsForNobody) {
  LockedAlg locked;
  TapAlg tap(&locked.library);
  tap.SetDataCallback(&host_);
  tap.add(sink_);
  std::thread query;
  host_.onDeliver = [&](const void*, int, int) {
    query = std::thread([&] { ask(tap); });
    locked.awaitQuery();
    // The other thread is inside the tap and waits for the lock that this one holds.
    unsigned char answer[52];
    return tap.HandleEvent(3, nullptr, answer);
  };
  feed(locked.library);
  query.join();
  EXPECT_THAT(sink_.seen, ElementsAre("0 HandleEvent"));
}

TEST_F(TapAlgTest, PutsTheCallsOfSeveralThreadsInOneOrder) {
  constexpr int kCalls = 1000;
  TapAlg tap(&library_);
  tap.add(sink_);
  std::thread queries([&] {
    for (int i = 0; i < kCalls; ++i) ask(tap);
  });
  for (int i = 0; i < kCalls; ++i) feed(tap);
  queries.join();
  ASSERT_EQ(sink_.seen.size(), 2u * kCalls);
  for (std::size_t i = 0; i < sink_.seen.size(); ++i)
    ASSERT_EQ(sink_.seen[i].substr(0, sink_.seen[i].find(' ')), std::to_string(i));
}

// The clock stands for any place where memory runs out.
TEST_F(TapAlgTest, ForwardsACallOfWhichItCannotMakeAUnit) {
  bool fails = true;
  session::TapOptions options;
  options.clock = [&]() -> std::int64_t { return fails ? throw std::bad_alloc() : 5; };
  TapAlg tap(&library_, options);
  tap.SetDataCallback(&host_);
  tap.add(sink_);
  library_.onInputStream = [](ScriptedAlg& self) { return self.deliver(7); };
  host_.onDeliver = [&](const void*, int, int) { return ask(tap); };
  EXPECT_TRUE(feed(tap));
  fails = false;
  EXPECT_TRUE(feed(tap));
  EXPECT_THAT(sink_.seen, ElementsAre("missed 2", "2 InputStream, 3 HandleEvent"));
}

TEST_F(TapAlgTest, RefusesANullObject) {
  EXPECT_THROW(TapAlg(nullptr), std::invalid_argument);
}

}  // namespace
