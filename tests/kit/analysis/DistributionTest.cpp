#include <alg_kit/analysis/Distribution.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using namespace analysis;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Distribution distributionOf(const std::vector<double>& values) {
  RunningDistribution running;
  for (const double value : values) running.add(value);
  return running.get();
}

std::vector<HistogramBin> histogramOf(const std::vector<double>& values) {
  LogarithmicHistogram histogram;
  for (const double value : values) histogram.add(value);
  return histogram.bins();
}

TEST(DistributionTest, PercentilesAreTheNearestRank) {
  std::vector<double> values;
  for (int i = 1000; i >= 1; --i) values.push_back(i);
  const Distribution d = distributionOf(values);
  EXPECT_EQ(d.count, 1000);
  EXPECT_EQ(d.mean, 500.5);
  EXPECT_EQ(d.median, 500);
  EXPECT_EQ(d.p90, 900);
  EXPECT_EQ(d.p95, 950);
  EXPECT_EQ(d.p99, 990);
  EXPECT_EQ(d.p999, 999);
  EXPECT_EQ(d.largest, 1000);
  // The sum of the squares of 1 to n is n (n + 1) (2 n + 1) / 6.
  EXPECT_DOUBLE_EQ(d.rootMeanSquare, std::sqrt(1001.0 * 2001.0 / 6.0));
}

TEST(DistributionTest, OneValueIsEveryPercentile) {
  const Distribution d = distributionOf({3});
  EXPECT_EQ(d.median, 3);
  EXPECT_EQ(d.p999, 3);
  EXPECT_EQ(d.rootMeanSquare, 3);
}

TEST(DistributionTest, ValuesThatAreNotFiniteAreLeftOut) {
  EXPECT_EQ(distributionOf({kNaN, 2, kInfinity, -kInfinity}).count, 1);
  EXPECT_EQ(distributionOf({kNaN}).count, 0);
  EXPECT_TRUE(std::isnan(distributionOf({}).median));
}

TEST(DistributionTest, OfVeryManyValuesPercentilesAreWithinTheStatedError) {
  std::mt19937 random(11);
  std::lognormal_distribution<double> spread(0, 2);
  std::vector<double> values(RunningDistribution::kExact + 40000);
  for (double& value : values) value = spread(random);
  const Distribution d = distributionOf(values);
  std::sort(values.begin(), values.end());
  EXPECT_EQ(d.count, static_cast<std::int64_t>(values.size()));
  EXPECT_EQ(d.largest, values.back());
  const auto exact = [&](double share) {
    return values[static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size()))) -
                  1];
  };
  const double error = RunningDistribution::kLargestError * 1.001;
  EXPECT_NEAR(d.median / exact(0.5), 1, error);
  EXPECT_NEAR(d.p90 / exact(0.9), 1, error);
  EXPECT_NEAR(d.p999 / exact(0.999), 1, error);
}

TEST(DistributionTest, OfVeryManyValuesThoseNearZeroCountAsZero) {
  RunningDistribution running;
  for (std::size_t i = 0; i <= 2 * RunningDistribution::kExact; ++i)
    running.add(i % 3 == 0 ? 5 : 0);
  EXPECT_EQ(running.get().median, 0);
  EXPECT_NEAR(running.get().p90, 5, 5 * RunningDistribution::kLargestError);
}

TEST(HistogramTest, BinsHoldTheirValuesAndLoseNone) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> times(2, 1);
  std::vector<double> values;
  for (int i = 0; i < 5000; ++i) values.push_back(times(random));
  const auto bins = histogramOf(values);
  std::int64_t sum = 0;
  for (const HistogramBin& bin : bins) {
    const auto inside = std::count_if(values.begin(), values.end(), [&](double value) {
      return value >= bin.from && value < bin.to;
    });
    EXPECT_EQ(bin.count, inside) << bin.from;
    EXPECT_NEAR(std::log10(bin.to / bin.from), 0.05, 1e-9);
    sum += bin.count;
  }
  EXPECT_EQ(sum, 5000);
  EXPECT_GT(bins.front().count, 0);
  EXPECT_GT(bins.back().count, 0);
}

TEST(HistogramTest, LeavesOutWhatHasNoLogarithmAndStaysSmallForNonsense) {
  EXPECT_THAT(histogramOf({0, -1, kNaN, kInfinity}), IsEmpty());
  const auto bins = histogramOf({1e-300, 1, 1e300});
  EXPECT_LE(bins.size(), 400u);
  std::int64_t sum = 0;
  for (const HistogramBin& bin : bins) sum += bin.count;
  EXPECT_EQ(sum, 3);
}

}  // namespace
