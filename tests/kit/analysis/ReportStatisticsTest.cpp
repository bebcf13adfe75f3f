#include <alg_kit/analysis/ReportStatistics.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using namespace analysis;
using testing::DoubleEq;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Place at(double x, double y = 0, double z = 0) {
  return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

std::vector<Place> noise(std::size_t count, std::array<double, 3> deviation, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<Place> places;
  for (std::size_t i = 0; i < count; ++i) {
    const double x = normal(random), y = normal(random), z = normal(random);
    places.push_back(at(100 + deviation[0] * x, 50 + deviation[1] * y, -1500 + deviation[2] * z));
  }
  return places;
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
  const Distribution d = distributionOf({-3});
  EXPECT_EQ(d.median, -3);
  EXPECT_EQ(d.p999, -3);
  EXPECT_EQ(d.rootMeanSquare, 3);
}

TEST(DistributionTest, ValuesThatAreNotFiniteAreLeftOut) {
  EXPECT_EQ(distributionOf({kNaN, 2, kInfinity, -kInfinity}).count, 1);
  EXPECT_EQ(distributionOf({kNaN}).count, 0);
  EXPECT_TRUE(std::isnan(distributionOf({}).median));
}

TEST(HistogramTest, BinsHoldTheirValuesAndLoseNone) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> times(2, 1);
  std::vector<double> values;
  for (int i = 0; i < 5000; ++i) values.push_back(times(random));
  const auto bins = logarithmicHistogram(values);
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
  EXPECT_THAT(logarithmicHistogram({0, -1, kNaN, kInfinity}), IsEmpty());
  const auto bins = logarithmicHistogram({1e-300, 1, 1e300});
  EXPECT_LE(bins.size(), 400u);
  std::int64_t sum = 0;
  for (const HistogramBin& bin : bins) sum += bin.count;
  EXPECT_EQ(sum, 3);
}

TEST(GapsTest, LieBetweenSightingsOnly) {
  const auto N = Presence::kNoSuchObject;
  const auto a = Presence::kAbsent;
  const auto S = Presence::kSeen;
  const auto gaps = gapsOf({a, a, S, a, S, S, a, a, a, S, a, a});
  ASSERT_THAT(gaps, SizeIs(2));
  EXPECT_EQ(gaps[0].first, 3u);
  EXPECT_EQ(gaps[0].packets, 1u);
  EXPECT_EQ(gaps[1].first, 6u);
  EXPECT_EQ(gaps[1].packets, 3u);
  EXPECT_THAT(gapsOf({S, a, N, N, S}), IsEmpty());  // not expected in between: another session
  EXPECT_THAT(gapsOf({a, a}), IsEmpty());
  EXPECT_THAT(gapsOf({}), IsEmpty());
}

TEST(JumpsTest, AreLongerThanTheLimitPerPacketSinceTheLastSighting) {
  const auto jumps = jumpsOf(
      {at(0), at(80), at(161), nowhere(), nowhere(), at(161, 240), nowhere(), at(161, 401)}, 80);
  ASSERT_THAT(jumps, SizeIs(2));
  EXPECT_EQ(jumps[0].packet, 2u);
  EXPECT_EQ(jumps[0].packets, 1u);
  EXPECT_FLOAT_EQ(static_cast<float>(jumps[0].distance), 81);
  EXPECT_EQ(jumps[1].packet, 7u);
  EXPECT_EQ(jumps[1].packets, 2u);
  EXPECT_FLOAT_EQ(static_cast<float>(jumps[1].distance), 161);
}

TEST(SwapsTest, AgainstTheTruthAreRunsInWhichAnObjectStandsAtAnother) {
  const std::size_t packets = 10;
  const std::vector<std::vector<Place>> truths = {std::vector<Place>(packets, at(0)),
                                                  std::vector<Place>(packets, at(100)),
                                                  std::vector<Place>(packets, at(0, 300))};
  auto places = truths;
  EXPECT_THAT(swapsAgainstTruth(places, truths), IsEmpty());
  places[0][2] = places[0][3] = at(100);  // both change places
  places[1][2] = places[1][3] = at(0);
  places[2][7] = at(95, 5);  // one stands at the other, which is away
  places[1][7] = nowhere();
  places[1][8] = at(55);        // noisy, but nearer to its own place
  places[2][9] = at(900, 900);  // wrong, but nobody's place
  const auto swaps = swapsAgainstTruth(places, truths);
  ASSERT_THAT(swaps, SizeIs(2));
  EXPECT_EQ(swaps[0].first, 2u);
  EXPECT_EQ(swaps[0].packets, 2u);
  EXPECT_EQ(swaps[0].a, 0u);
  EXPECT_EQ(swaps[0].b, 1u);
  EXPECT_EQ(swaps[1].first, 7u);
  EXPECT_EQ(swaps[1].packets, 1u);
  EXPECT_EQ(swaps[1].a, 1u);
  EXPECT_EQ(swaps[1].b, 2u);
}

TEST(SwapsTest, CountForTheObjectThatIsNearestOnly) {
  // Object 1 lies on the way from object 0 to object 2, within half of their distance of object 2.
  const std::vector<std::vector<Place>> truths = {{at(0)}, {at(200)}, {at(240)}};
  const auto swaps = swapsAgainstTruth({{at(201)}, {at(200)}, {at(240)}}, truths);
  ASSERT_THAT(swaps, SizeIs(1));
  EXPECT_EQ(swaps[0].b, 1u);
}

TEST(SwapsTest, OfObjectsThatTouchCannotBeTold) {
  const std::vector<std::vector<Place>> truths = {{at(0)}, {at(19)}};
  EXPECT_THAT(swapsAgainstTruth({{at(19)}, {at(0)}}, truths), IsEmpty());
}

TEST(SwapsTest, WithoutTheTruthAreSuspectedOnceEach) {
  std::vector<std::vector<Place>> places(2);
  for (int i = 0; i < 40; ++i) {
    const bool swapped = i >= 10 && i < 25;
    places[swapped ? 1 : 0].push_back(at(0, i));
    places[swapped ? 0 : 1].push_back(at(200, -i));
  }
  const auto swaps = suspectedSwaps(places);
  ASSERT_THAT(swaps, SizeIs(2));
  EXPECT_EQ(swaps[0].first, 10u);
  EXPECT_EQ(swaps[1].first, 25u);
}

TEST(SwapsTest, ObjectsThatPassEachOtherAtAHandsSpeedAreNotSuspected) {
  std::vector<std::vector<Place>> places(2);
  for (int i = 0; i < 200; ++i) {  // each at 1 m/s and 90 packets a second, 60 mm aside
    const double x = (i - 100) * 1000.0 / 90;
    places[0].push_back(at(x, 30));
    places[1].push_back(at(-x, -30));
  }
  EXPECT_THAT(suspectedSwaps(places), IsEmpty());
}

TEST(RestTest, WithTheTruthIsWhereItStands) {
  std::vector<Place> truth;
  for (int i = 0; i < 200; ++i) truth.push_back(at(i < 100 ? 0 : 2 * (i - 100)));
  std::vector<Place> places = truth;
  EXPECT_THAT(restAgainstTruth(places, truth), ElementsAre(0u, 45u));
  places[50] = nowhere();  // a window needs the object in every packet
  EXPECT_THAT(restAgainstTruth(places, truth), ElementsAre(0u));
}

TEST(RestTest, WithoutTheTruthNoiseRestsAndMotionDoesNot) {
  EXPECT_THAT(suspectedRest(std::vector<Place>(90, at(1, 2, 3))), ElementsAre(0u, 45u));

  // Noise as the library delivers it, smoothed over three packets, strongest in depth.
  const auto raw = noise(9002, {0.5, 0.3, 4}, 11);
  std::vector<Place> still, hand;
  for (std::size_t i = 2; i < raw.size(); ++i) {
    const auto mean = [&](std::size_t axis) {
      return (axisOf(raw[i], axis) + axisOf(raw[i - 1], axis) + axisOf(raw[i - 2], axis)) / 3;
    };
    const double t = static_cast<double>(i) / 90;
    still.push_back(at(mean(0), mean(1), mean(2)));
    hand.push_back(at(mean(0) + 20 * std::sin(6 * t), mean(1), mean(2)));
  }
  // 200 windows fit. Chance refuses few of those at rest.
  EXPECT_GT(suspectedRest(still).size(), 150u);
  EXPECT_THAT(suspectedRest(hand), IsEmpty());
}

TEST(RestTest, SteadyAndShakingMotionIsNoRest) {
  std::vector<Place> line, shake;
  for (int i = 0; i < 900; ++i) {
    const double t = i / 90.0;
    line.push_back(at(10 * t));
    shake.push_back(at(0, 5 * std::sin(2 * 3.14159265 * 3 * t)));  // 3 Hz
  }
  EXPECT_THAT(suspectedRest(line), IsEmpty());
  EXPECT_THAT(suspectedRest(shake), IsEmpty());
}

TEST(JitterTest, IsThePooledStandardDeviation) {
  std::vector<Place> places;
  for (std::size_t i = 0; i < 2 * kRestWindow; ++i) {
    const double side = i % 2 == 0 ? 1 : -1;
    places.push_back(at((i < kRestWindow ? 500 : -500) + 2 * side, 0, 3 * side));
  }
  const Jitter jitter = jitterOf(places, {0, kRestWindow});
  EXPECT_EQ(jitter.windows, 2u);
  // 45 values of +-a: their mean is +-a/45, so the squares add up to a^2 (45 - 1/45).
  const double share = std::sqrt((45 - 1.0 / 45) / 44);
  EXPECT_THAT(jitter.deviation,
              ElementsAre(DoubleNear(2 * share, 1e-5), DoubleEq(0), DoubleNear(3 * share, 1e-5)));
  EXPECT_NEAR(jitter.total, std::sqrt(13) * share, 1e-5);
  EXPECT_NEAR(jitter.largest, std::sqrt(13) * (1 + 1.0 / 45), 1e-5);
}

TEST(JitterTest, LeavesOutWindowsWithMissingPlaces) {
  std::vector<Place> places(100, at(1));
  places[50] = nowhere();
  EXPECT_EQ(jitterOf(places, {0, 45}).windows, 1u);
  EXPECT_EQ(jitterOf(places, {45}).windows, 0u);
  EXPECT_EQ(jitterOf(places, {60}).windows, 0u);  // does not fit
}

TEST(BucketsTest, FewPacketsGetABucketEachAndPausesAnEmptyOne) {
  const Buckets buckets({0, 0.1, 0.2, 5.2, 5.3}, 10);
  EXPECT_FALSE(buckets.shared());
  EXPECT_THAT(buckets.times(), ElementsAre(0, 0.1, 0.2, DoubleEq(2.7), 5.2, 5.3));
  const Envelope envelope = buckets.envelopeOf({1, kNaN, 3, 4, 5});
  EXPECT_THAT(envelope.low, ElementsAre(1, testing::IsNan(), 3, testing::IsNan(), 4, 5));
  EXPECT_EQ(envelope.low[2], envelope.high[2]);
}

TEST(BucketsTest, ManyPacketsShareBucketsThatHideNothing) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> any(-1, 1);
  std::vector<double> times, values;
  for (int i = 0; i < 10007; ++i) {
    times.push_back(i / 90.0);
    values.push_back(i % 17 == 0 ? kNaN : any(random));
  }
  values[5003] = 1000;
  const Buckets buckets(times, 200);
  EXPECT_TRUE(buckets.shared());
  const Envelope envelope = buckets.envelopeOf(values);
  ASSERT_THAT(envelope.low, SizeIs(100));
  EXPECT_EQ(*std::max_element(envelope.high.begin(), envelope.high.end()), 1000);
  for (std::size_t bucket = 0; bucket < 100; ++bucket) {
    const double middle = buckets.times()[bucket];
    double low = kInfinity, high = -kInfinity;
    for (std::size_t i = 0; i < times.size(); ++i) {
      if (std::fabs(times[i] - middle) > buckets.width() / 2 - 1e-9 || std::isnan(values[i]))
        continue;
      low = std::min(low, values[i]);
      high = std::max(high, values[i]);
    }
    // A packet on the edge may fall to either side.
    EXPECT_LE(envelope.low[bucket], low);
    EXPECT_GE(envelope.high[bucket], high);
    EXPECT_NE(std::find(values.begin(), values.end(), envelope.low[bucket]), values.end());
    EXPECT_NE(std::find(values.begin(), values.end(), envelope.high[bucket]), values.end());
  }
  const auto counts = buckets.count([](std::size_t) { return true; });
  std::int64_t sum = 0;
  for (const std::int64_t count : counts) sum += count;
  EXPECT_EQ(sum, 10007);
}

TEST(BucketsTest, PacketsOfOneMomentFitInOneBucket) {
  const Buckets buckets(std::vector<double>(50, 2.0), 10);
  EXPECT_THAT(buckets.count([](std::size_t) { return true; }), testing::Contains(50));
}

TEST(PathPacketsTest, KeepTheExtremesOfEveryPart) {
  auto places = noise(20000, {5, 5, 5}, 5);
  places[777] = nowhere();
  places[12345] = at(900, 0, -1500);
  const auto packets = pathPackets(places, 600);
  EXPECT_LE(packets.size(), 600u);
  EXPECT_TRUE(std::is_sorted(packets.begin(), packets.end()));
  EXPECT_THAT(packets, testing::Contains(12345u));
  EXPECT_THAT(packets, testing::Not(testing::Contains(777u)));
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    double all = kInfinity, kept = kInfinity;
    for (const Place& place : places) all = std::fmin(all, axisOf(place, axis));
    for (const std::size_t packet : packets) kept = std::fmin(kept, axisOf(places[packet], axis));
    EXPECT_EQ(kept, all);
  }
  EXPECT_THAT(pathPackets({at(1), nowhere(), at(2)}, 600), ElementsAre(0u, 2u));
}

}  // namespace
