#include <alg_kit/analysis/TrackStatistics.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <optional>
#include <random>
#include <vector>

#include <tests/kit/analysis/PlaceAt.h>

namespace {

using namespace analysis;
using testing::DoubleEq;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing_support::at;

constexpr double kInterval = 1.0 / 90;

Moment packet(std::size_t n) {
  return {static_cast<std::int64_t>(n), static_cast<std::int64_t>(4 * n),
          static_cast<double>(n) * kInterval};
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

std::vector<Gap> gapsOf(const std::vector<Presence>& presence) {
  GapFinder finder;
  std::vector<Gap> gaps;
  for (std::size_t n = 0; n < presence.size(); ++n)
    if (const auto gap = finder.add(packet(n), presence[n])) gaps.push_back(*gap);
  if (const auto gap = finder.finish()) gaps.push_back(*gap);
  return gaps;
}

template <typename Finder>
auto found(Finder finder, const std::vector<Place>& places) {
  std::vector<std::decay_t<decltype(*finder.add(packet(0), places[0]))>> all;
  for (std::size_t n = 0; n < places.size(); ++n)
    if (const auto one = finder.add(packet(n), places[n])) all.push_back(*one);
  return all;
}

/// @param truths  empty = not known
std::vector<Swap> swapsOf(const std::vector<std::vector<Place>>& places,
                          const std::vector<std::vector<Place>>& truths) {
  SwapFinder finder(places.size(), !truths.empty());
  std::vector<Swap> swaps;
  const auto note = [&swaps](const Swap& swap) { swaps.push_back(swap); };
  for (std::size_t n = 0; n < places[0].size(); ++n) {
    std::vector<Place> now, really;
    for (std::size_t object = 0; object < places.size(); ++object) {
      now.push_back(places[object][n]);
      really.push_back(truths.empty() ? nowhere() : truths[object][n]);
    }
    finder.add(packet(n), now, really, note);
  }
  finder.finish(note);
  return swaps;
}

Jitter jitterOf(const std::vector<Place>& places, const std::vector<Place>& truth) {
  JitterMeter meter(!truth.empty());
  for (std::size_t n = 0; n < places.size(); ++n)
    meter.add(places[n], nowhere(), truth.empty() ? nowhere() : truth[n]);
  return meter.raw();
}

std::int64_t restsOf(const std::vector<Place>& places, const std::vector<Place>& truth = {}) {
  return jitterOf(places, truth).windows;
}

constexpr auto kNone = Presence::kNoSuchObject;
constexpr auto kAway = Presence::kAbsent;
constexpr auto kThere = Presence::kSeen;

TEST(GapsTest, LastFromTheSightingBeforeToTheOneBehind) {
  const auto gaps = gapsOf({kThere, kAway, kThere, kThere, kAway, kAway, kAway, kThere});
  ASSERT_THAT(gaps, SizeIs(2));
  EXPECT_EQ(gaps[0].first.packet, 1);
  EXPECT_EQ(gaps[0].first.call, 4);
  EXPECT_EQ(gaps[0].packets, 1);
  EXPECT_DOUBLE_EQ(gaps[0].seconds, 2 * kInterval);
  EXPECT_DOUBLE_EQ(gaps[0].without, kInterval);
  EXPECT_EQ(gaps[1].packets, 3);
  EXPECT_DOUBLE_EQ(gaps[1].seconds, 4 * kInterval);
  EXPECT_DOUBLE_EQ(gaps[1].without, 3 * kInterval);
}

TEST(GapsTest, ReachToTheRecordingsEnds) {
  const auto gaps = gapsOf({kAway, kAway, kThere, kAway, kAway});
  ASSERT_THAT(gaps, SizeIs(2));
  EXPECT_DOUBLE_EQ(gaps[0].seconds, 2 * kInterval);
  EXPECT_DOUBLE_EQ(gaps[1].seconds, 2 * kInterval);
  const auto never = gapsOf({kAway, kAway, kAway, kAway});
  ASSERT_THAT(never, SizeIs(1));
  EXPECT_EQ(never[0].packets, 4);
  EXPECT_DOUBLE_EQ(never[0].seconds, 3 * kInterval);
  EXPECT_THAT(gapsOf({}), IsEmpty());
}

TEST(GapsTest, EndWhereTheProductTypeHasNoSuchObject) {
  EXPECT_THAT(gapsOf({kThere, kNone, kNone, kThere}), IsEmpty());
  const auto gaps = gapsOf({kThere, kAway, kNone, kNone, kAway, kThere});
  ASSERT_THAT(gaps, SizeIs(2));
  EXPECT_DOUBLE_EQ(gaps[0].seconds, 2 * kInterval);
  EXPECT_DOUBLE_EQ(gaps[1].seconds, kInterval);
}

TEST(JumpsTest, AreLongerThanTheLimitPerPacketSinceTheLastSighting) {
  const auto jumps = found(JumpFinder(80), {at(0), at(80), at(161), nowhere(), nowhere(),
                                            at(161, 240), nowhere(), at(161, 401)});
  ASSERT_THAT(jumps, SizeIs(2));
  EXPECT_EQ(jumps[0].at.packet, 2);
  EXPECT_EQ(jumps[0].packets, 1);
  EXPECT_FLOAT_EQ(static_cast<float>(jumps[0].distanceMm), 81);
  EXPECT_EQ(jumps[1].at.packet, 7);
  EXPECT_EQ(jumps[1].packets, 2);
  EXPECT_FLOAT_EQ(static_cast<float>(jumps[1].distanceMm), 161);
}

TEST(OutliersTest, AreGhostsInTheMiddleOfALongGap) {
  std::vector<Place> places(100, nowhere());
  for (std::size_t n = 0; n < 20; ++n) places[n] = at(static_cast<double>(n));
  for (std::size_t n = 80; n < 100; ++n) places[n] = at(static_cast<double>(n));
  places[50] = at(50, 1234);
  EXPECT_THAT(found(JumpFinder(80), places), IsEmpty());  // 30 packets would allow 2400 mm
  const auto outliers = found(OutlierFinder(80), places);
  ASSERT_THAT(outliers, SizeIs(1));
  EXPECT_EQ(outliers[0].at.packet, 50);
  EXPECT_NEAR(outliers[0].distanceMm, 1234, 1e-3);
  places[50] = at(50, 79);  // within the limit of the line between
  EXPECT_THAT(found(OutlierFinder(80), places), IsEmpty());
}

TEST(OutliersTest, AreNotWhatHasCompany) {
  std::vector<Place> places(40, nowhere());
  for (std::size_t n = 0; n < 10; ++n) places[n] = at(0);
  for (std::size_t n = 20; n < 24; ++n) places[n] = at(500);  // four in a row are a track
  for (std::size_t n = 30; n < 40; ++n) places[n] = at(0);
  EXPECT_THAT(found(OutlierFinder(80), places), IsEmpty());
  places[23] = nowhere();
  ASSERT_THAT(found(OutlierFinder(80), places), SizeIs(1));
}

TEST(SwapsTest, NeedBothObjectsToExchangeTheirPlacesForLongerThanAPacket) {
  const std::size_t packets = 12;
  const std::vector<std::vector<Place>> truths = {std::vector<Place>(packets, at(0)),
                                                  std::vector<Place>(packets, at(100)),
                                                  std::vector<Place>(packets, at(0, 300))};
  auto places = truths;
  EXPECT_THAT(swapsOf(places, truths), IsEmpty());
  places[0][2] = places[0][3] = at(100);  // both, for two packets
  places[1][2] = places[1][3] = at(0);
  places[0][5] = at(100);  // both, for one packet
  places[1][5] = at(0);
  places[2][7] = places[2][8] = at(95, 5);  // one is displaced to the other, which stays
  places[1][9] = places[1][10] = at(40);    // noise past the middle, of one
  const auto swaps = swapsOf(places, truths);
  ASSERT_THAT(swaps, SizeIs(1));
  EXPECT_EQ(swaps[0].from.packet, 2);
  EXPECT_EQ(swaps[0].packets, 2);
  EXPECT_EQ(swaps[0].a, 0u);
  EXPECT_EQ(swaps[0].b, 1u);
}

TEST(SwapsTest, OfObjectsThatTouchCannotBeTold) {
  const std::vector<std::vector<Place>> truths = {std::vector<Place>(5, at(0)),
                                                  std::vector<Place>(5, at(19))};
  EXPECT_THAT(swapsOf({truths[1], truths[0]}, truths), IsEmpty());
}

TEST(SwapsTest, WithoutTheTruthAreSuspectedOnceEach) {
  std::vector<std::vector<Place>> places(2);
  for (int i = 0; i < 40; ++i) {
    const bool swapped = i >= 10 && i < 25;
    places[swapped ? 1 : 0].push_back(at(0, i));
    places[swapped ? 0 : 1].push_back(at(200, -i));
  }
  const auto swaps = swapsOf(places, {});
  ASSERT_THAT(swaps, SizeIs(2));
  EXPECT_EQ(swaps[0].from.packet, 10);
  EXPECT_EQ(swaps[1].from.packet, 25);
}

TEST(SwapsTest, WithoutTheTruthOnePacketIsNotSuspected) {
  std::vector<std::vector<Place>> places = {std::vector<Place>(30, at(0)),
                                            std::vector<Place>(30, at(200))};
  places[0][10] = at(200);
  places[1][10] = at(0);
  EXPECT_THAT(swapsOf(places, {}), IsEmpty());
}

TEST(SwapsTest, ObjectsThatPassEachOtherAtAHandsSpeedAreNotSuspected) {
  std::vector<std::vector<Place>> places(2);
  for (int i = 0; i < 200; ++i) {  // each at 1 m/s and 90 packets a second, 60 mm aside
    const double x = (i - 100) * 1000.0 / 90;
    places[0].push_back(at(x, 30));
    places[1].push_back(at(-x, -30));
  }
  EXPECT_THAT(swapsOf(places, {}), IsEmpty());
}

TEST(RestTest, WithTheTruthIsWhereItStands) {
  std::vector<Place> truth;
  for (int i = 0; i < 200; ++i) truth.push_back(at(i < 100 ? 0 : 2 * (i - 100)));
  std::vector<Place> places = truth;
  EXPECT_EQ(restsOf(places, truth), 2);
  places[50] = nowhere();  // a window needs the object in every packet
  EXPECT_EQ(restsOf(places, truth), 1);
}

TEST(RestTest, WithoutTheTruthNoiseRestsAndMotionDoesNot) {
  EXPECT_EQ(restsOf(std::vector<Place>(90, at(1, 2, 3))), 2);

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
  EXPECT_GT(restsOf(still), 150);
  EXPECT_EQ(restsOf(hand), 0);
}

TEST(RestTest, SteadyAndShakingMotionIsNoRest) {
  std::vector<Place> line, shake;
  for (int i = 0; i < 900; ++i) {
    const double t = i / 90.0;
    line.push_back(at(10 * t));
    shake.push_back(at(0, 5 * std::sin(2 * 3.14159265 * 3 * t)));  // 3 Hz
  }
  EXPECT_EQ(restsOf(line), 0);
  EXPECT_EQ(restsOf(shake), 0);
}

TEST(JitterTest, IsThePooledStandardDeviation) {
  std::vector<Place> places;
  for (std::size_t i = 0; i < 2 * kRestWindow; ++i) {
    const double side = i % 2 == 0 ? 1 : -1;
    places.push_back(at((i < kRestWindow ? 500 : -500) + 2 * side, 0, 3 * side));
  }
  const Jitter jitter = jitterOf(places, std::vector<Place>(places.size(), at(0)));
  EXPECT_EQ(jitter.windows, 2);
  // 45 values of +-a: their mean is +-a/45, so the squares add up to a^2 (45 - 1/45).
  const double share = std::sqrt((45 - 1.0 / 45) / 44);
  EXPECT_THAT(jitter.deviation,
              ElementsAre(DoubleNear(2 * share, 1e-5), DoubleEq(0), DoubleNear(3 * share, 1e-5)));
  EXPECT_NEAR(jitter.total, std::sqrt(13) * share, 1e-5);
  EXPECT_NEAR(jitter.largest, std::sqrt(13) * (1 + 1.0 / 45), 1e-5);
}

TEST(JitterTest, OfTheFilteredRowLeavesOutWindowsWithMissingPlaces) {
  JitterMeter meter(true);
  for (int n = 0; n < 90; ++n) meter.add(at(1), n == 50 ? nowhere() : at(1), at(1));
  EXPECT_EQ(meter.raw().windows, 2);
  EXPECT_EQ(meter.filtered().windows, 1);
}

/// A hand's motion at packet `n`, which may lie between two.
Place hand(double n) {
  const double t = n * kInterval;
  return at(200 * std::sin(5 * t) + 40 * std::sin(13 * t), 150 * std::cos(4 * t), -1500);
}

std::optional<Lag> lagBehind(double packets, double scatter) {
  const auto rough = noise(900, {scatter, scatter, scatter}, 3);
  LagMeter meter;
  for (std::size_t n = 0; n < rough.size(); ++n) {
    const Place place = hand(static_cast<double>(n));
    meter.add(at(axisOf(place, 0) + axisOf(rough[n], 0) - 100,
                 axisOf(place, 1) + axisOf(rough[n], 1) - 50,
                 axisOf(place, 2) + axisOf(rough[n], 2) + 1500),
              hand(static_cast<double>(n) - packets));
  }
  return meter.get();
}

TEST(LagTest, IsTheDelayOfTheFilteredRowAlsoBetweenPackets) {
  for (const double packets : {0.0, 0.4, 1.0, 1.62, 7.5, 20.0}) {
    ASSERT_TRUE(lagBehind(packets, 0.5)) << packets;
    EXPECT_NEAR(lagBehind(packets, 0.5)->packets, packets, 0.06) << packets;
  }
  EXPECT_NEAR(lagBehind(-1, 0.5)->packets, -1, 0.06);  // a row that looks ahead
}

TEST(LagTest, ShiftingBackTakesAwayWhatTheDelayCost) {
  const Lag lag = *lagBehind(1.5, 0);
  EXPECT_GT(lag.differenceMm, 10);
  EXPECT_LT(lag.shiftedMm, 1);
}

TEST(LagTest, IsUnknownWhereNothingMoves) {
  const auto still = noise(900, {1, 1, 1}, 5);
  LagMeter meter;
  for (const Place& place : still) meter.add(place, at(100, 50, -1500));
  EXPECT_FALSE(meter.get());
}

}  // namespace
