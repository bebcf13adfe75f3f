#include <alg_factory/diag/PerformanceCounter.h>
#include <alg_factory/diag/test_time.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <type_traits>

namespace {

using qor::performanceCounter;
using qor::performanceFrequency;
using qor::TimingEntry;

constexpr const char* kHeader = "function name    execution time    execution frequency\n";

// Gives tests the timer's table, so that times need not be waited for.
class Timer : public qor::test_time {
 public:
  using test_time::entries_;
  using test_time::frequency_;

  void measured(const std::string& name, double averageMs, std::uint32_t count) {
    entries_[name] = {0, 0, averageMs, count};
  }
};

TEST(TimingEntry, NewestMeasurementWeighsOneHalf) {
  TimingEntry entry;
  entry.startTicks = 1000;
  entry.finish(1010, 1000);  // ten ticks of a millisecond
  EXPECT_DOUBLE_EQ(entry.averageMs, 10.0);
  EXPECT_EQ(entry.count, 1u);
  entry.startTicks = 2000;
  entry.finish(2020, 1000);
  EXPECT_DOUBLE_EQ(entry.averageMs, 15.0);
  EXPECT_EQ(entry.count, 2u);
  entry.startTicks = 3000;
  entry.finish(3040, 1000);
  EXPECT_DOUBLE_EQ(entry.averageMs, 27.5);
  EXPECT_EQ(entry.count, 3u);
}

TEST(TimingEntry, FrequencyIsTicksPerSecond) {
  TimingEntry entry;
  entry.finish(3, 2);  // one and a half seconds
  EXPECT_DOUBLE_EQ(entry.averageMs, 1500.0);
}

TEST(TimingEntry, IntervalThatIsNotPositiveCountsNothing) {
  TimingEntry entry;
  entry.startTicks = 50;
  entry.finish(50, 1000);
  EXPECT_EQ(entry.count, 0u);
  EXPECT_EQ(entry.averageMs, 0.0);
  EXPECT_EQ(entry.stopTicks, 50);

  entry.finish(60, 1000);
  entry.startTicks = 70;
  entry.finish(70, 1000);
  entry.finish(69, 1000);
  EXPECT_EQ(entry.count, 1u);
  EXPECT_DOUBLE_EQ(entry.averageMs, 10.0);
  EXPECT_EQ(entry.stopTicks, 69);
  EXPECT_EQ(entry.startTicks, 70);
}

TEST(TimingEntry, TicksAreSubtractedBeforeTheyAreRounded) {
  TimingEntry entry;
  entry.startTicks = std::int64_t{1} << 60;
  entry.finish((std::int64_t{1} << 60) + 7, 1000);
  EXPECT_DOUBLE_EQ(entry.averageMs, 7.0);
}

TEST(TestTime, DestructorIsVirtual) {
  EXPECT_TRUE(std::has_virtual_destructor_v<qor::test_time>);
}

TEST(TestTime, NewTimerIsEmptyAndKnowsTheFrequency) {
  const Timer timer;
  EXPECT_TRUE(timer.entries().empty());
  EXPECT_EQ(timer.frequency_, performanceFrequency());
}

TEST(TestTime, EmptyTimerReportsOnlyTheHeader) {
  EXPECT_EQ(qor::test_time().report(), kHeader);
}

TEST(TestTime, ReportHasOneLineForEachName) {
  Timer timer;
  timer.measured("process", 27.5, 3);
  timer.measured("decode", 0.00012345678, 4000000000u);
  timer.measured("idle", 1234567.0, 1);
  EXPECT_EQ(timer.report(), std::string(kHeader) +
                                "   decode         0.000123457ms         4000000000\n"
                                "   idle         1.23457e+06ms         1\n"
                                "   process         27.5ms         3\n");
}

TEST(TestTime, NamesAreListedInByteOrder) {
  Timer timer;
  for (const char* name : {"beta", "\xC3\xA9", "Zeta", "alpha", "alp", "_"}) {
    timer.measured(name, 1, 1);
  }
  EXPECT_EQ(timer.report(), std::string(kHeader) +
                                "   Zeta         1ms         1\n"
                                "   _         1ms         1\n"
                                "   alp         1ms         1\n"
                                "   alpha         1ms         1\n"
                                "   beta         1ms         1\n"
                                "   \xC3\xA9         1ms         1\n");
}

TEST(TestTime, StartInsertsAnEntryThatCountsNothing) {
  qor::test_time timer;
  const std::int64_t before = performanceCounter();
  timer.start("decode");
  const std::int64_t after = performanceCounter();
  ASSERT_EQ(timer.entries().size(), 1u);
  const TimingEntry& entry = timer.entries().at("decode");
  EXPECT_GE(entry.startTicks, before);
  EXPECT_LE(entry.startTicks, after);
  EXPECT_EQ(entry.stopTicks, 0);
  EXPECT_EQ(entry.count, 0u);
  EXPECT_EQ(timer.report(), std::string(kHeader) + "   decode         0ms         0\n");
}

TEST(TestTime, StartAgainKeepsTheFigures) {
  Timer timer;
  timer.measured("decode", 15, 2);
  timer.start("decode");
  EXPECT_EQ(timer.entries().at("decode").averageMs, 15.0);
  EXPECT_EQ(timer.entries().at("decode").count, 2u);
  EXPECT_GT(timer.entries().at("decode").startTicks, 0);
}

TEST(TestTime, MeasuresFromStartToStop) {
  qor::test_time timer;
  const std::int64_t before = performanceCounter();
  timer.start("sleep");
  const std::int64_t started = performanceCounter();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const std::int64_t stopping = performanceCounter();
  timer.stop("sleep");
  const std::int64_t after = performanceCounter();

  const double msPerTick = 1000.0 / static_cast<double>(performanceFrequency());
  const TimingEntry& entry = timer.entries().at("sleep");
  EXPECT_EQ(entry.count, 1u);
  EXPECT_GE(entry.averageMs, static_cast<double>(stopping - started) * msPerTick - 1e-6);
  EXPECT_LE(entry.averageMs, static_cast<double>(after - before) * msPerTick + 1e-6);
}

TEST(TestTime, NamesAreMeasuredApart) {
  qor::test_time timer;
  timer.start("outer");
  timer.start("inner");
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  timer.stop("inner");
  EXPECT_EQ(timer.entries().at("inner").count, 1u);
  EXPECT_EQ(timer.entries().at("outer").count, 0u);
  timer.stop("outer");
  EXPECT_EQ(timer.entries().at("outer").count, 1u);
  EXPECT_GE(timer.entries().at("outer").averageMs, timer.entries().at("inner").averageMs);
}

TEST(TestTime, StopWithoutStartMeasuresFromTickZero) {
  Timer timer;
  timer.frequency_ = 1000;
  const std::int64_t before = performanceCounter();
  timer.stop("lost");
  const std::int64_t after = performanceCounter();
  const TimingEntry& entry = timer.entries().at("lost");
  EXPECT_EQ(entry.startTicks, 0);
  EXPECT_EQ(entry.count, 1u);
  // A thousand ticks a second: the figure is the counter itself.
  EXPECT_GE(entry.averageMs, static_cast<double>(before) * (1 - 1e-12));
  EXPECT_LE(entry.averageMs, static_cast<double>(after) * (1 + 1e-12));
}

}  // namespace
