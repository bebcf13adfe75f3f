#include <alg_kit/session/TimedAlg.h>

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

using std::chrono::milliseconds;
constexpr std::int64_t kMs = 1000000;

void waste(int ms) {
  const auto end = std::chrono::steady_clock::now() + milliseconds(ms);
  while (std::chrono::steady_clock::now() < end) {
  }
}

/// Works 2 ms, delivers, works 1 ms more.
struct SlowLibrary : algorithm::AlgBase {
  bool Init(int, const unsigned char*, int) override { return true; }
  bool InputStream(int, const unsigned char*, int, int) override {
    waste(2);
    if (data != nullptr) data->Deliver(nullptr, 0, 0);
    waste(1);
    return true;
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    data = sink;
    return true;
  }
  bool SetLogCallback(algorithm::LogSink*) override { return true; }
  bool SetFilterMode(int, int, void*) override { return true; }
  int GetFixedCode() override { return 7; }
  bool HandleEvent(int, const void*, void*) override {
    waste(1);
    return true;
  }
  algorithm::DataSink* data = nullptr;
};

struct Host : algorithm::DataSink {
  bool Deliver(const void*, int, int) override {
    ++blocks;
    if (throws) throw std::runtime_error("the host's own trouble");
    waste(20);
    if (asks != nullptr) asks->HandleEvent(0, nullptr, nullptr);
    return true;
  }
  algorithm::AlgBase* asks = nullptr;
  bool throws = false;
  int blocks = 0;
};

// What was wasted is a lower bound of the time in the library whatever the machine does besides,
// and the host's 20 ms are far above what a call takes without them.

TEST(TimedAlgTest, CountsTheLibraryWithoutTheHostsCallbacks) {
  SlowLibrary library;
  session::TimedAlg timed(&library);
  Host host;
  timed.SetDataCallback(&host);
  const auto begin = std::chrono::steady_clock::now();
  timed.InputStream(0, nullptr, 0, 0);
  const std::chrono::nanoseconds whole = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(host.blocks, 1);
  EXPECT_GE(timed.libraryNs(), 3 * kMs);
  EXPECT_LE(timed.libraryNs(), whole.count() - 20 * kMs);
}

TEST(TimedAlgTest, CountsCallsFromInsideACallback) {
  SlowLibrary library;
  session::TimedAlg timed(&library);
  Host host;
  host.asks = &timed;
  timed.SetDataCallback(&host);
  const auto begin = std::chrono::steady_clock::now();
  timed.InputStream(0, nullptr, 0, 0);
  const std::chrono::nanoseconds whole = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(timed.libraryNs(), 4 * kMs);
  EXPECT_LE(timed.libraryNs(), whole.count() - 20 * kMs);
}

TEST(TimedAlgTest, LetsOneCallStandForMany) {
  SlowLibrary library;
  Host host;
  session::TimedAlg timed(&library, 3);
  timed.SetDataCallback(&host);  // the first call: timed, takes nothing
  host.asks = &timed;
  timed.InputStream(0, nullptr, 0, 0);
  timed.HandleEvent(0, nullptr, nullptr);
  EXPECT_LT(timed.libraryNs(), 1 * kMs);
  timed.InputStream(0, nullptr, 0, 0);  // 3 ms, and 1 ms asked for from the host's callback
  EXPECT_GE(timed.libraryNs(), 3 * (3 + 1) * kMs);
  EXPECT_LT(timed.libraryNs(), 3 * 20 * kMs);
}

TEST(TimedAlgTest, GoesOnCountingAfterAHostThrew) {
  SlowLibrary library;
  session::TimedAlg timed(&library);
  Host host;
  host.throws = true;
  timed.SetDataCallback(&host);
  EXPECT_THROW(timed.InputStream(0, nullptr, 0, 0), std::runtime_error);
  const std::int64_t before = timed.libraryNs();
  waste(5);  // outside
  EXPECT_EQ(timed.libraryNs(), before);
  timed.HandleEvent(0, nullptr, nullptr);
  EXPECT_GE(timed.libraryNs() - before, kMs);
}

TEST(TimedAlgTest, PassesOnThatThereIsNoSink) {
  SlowLibrary library;
  session::TimedAlg timed(&library);
  Host host;
  timed.SetDataCallback(&host);
  EXPECT_NE(library.data, nullptr);
  timed.SetDataCallback(nullptr);
  EXPECT_EQ(library.data, nullptr);
  EXPECT_EQ(timed.GetFixedCode(), 7);
}

}  // namespace
