#include <alg_kit/analysis/ThinnedPath.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <tests/kit/analysis/PlaceAt.h>

namespace {

using analysis::Place;
using analysis::ThinnedPath;
using testing::SizeIs;
using testing_support::at;

TEST(ThinnedPathTest, KeepsShortPathsWhole) {
  ThinnedPath path(600, 0.25);
  for (int n = 0; n < 600; ++n) path.add(0.01 * n, at(n));
  ASSERT_THAT(path.get(), SizeIs(600));
  EXPECT_EQ(path.get()[321].x, 321);
}

TEST(ThinnedPathTest, KeepsTheExtremesOfLongOnes) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal(0, 5);
  ThinnedPath path(600, 1e9);
  std::vector<double> lows(3, 1e9);
  for (int n = 0; n < 20000; ++n) {
    const Place place =
        n == 12345 ? at(900, 0, -1500) : at(normal(random), normal(random), normal(random) - 1500);
    for (std::size_t axis = 0; axis < 3; ++axis)
      lows[axis] = std::min(lows[axis], axisOf(place, axis));
    path.add(0.01 * n, place);
  }
  const auto kept = path.get();
  EXPECT_LE(kept.size(), 600u);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double low = 1e9;
    for (const Place& place : kept) low = std::min(low, axisOf(place, axis));
    EXPECT_EQ(low, lows[axis]);
  }
  EXPECT_TRUE(
      std::any_of(kept.begin(), kept.end(), [](const Place& place) { return place.x == 900; }));
}

TEST(ThinnedPathTest, IsBrokenWhereTheObjectWasAwayAlsoWhenThinned) {
  for (const int packets : {100, 20000}) {
    ThinnedPath path(600, 0.25);
    for (int n = 0; n < packets; ++n) {
      const double pause = n < packets / 3 ? 0 : n < packets / 2 ? 0.2 : 1;  // one is bridged
      path.add(0.01 * n + pause, at(n));
    }
    const auto kept = path.get();
    std::size_t breaks = 0;
    for (const Place& place : kept) breaks += isSomewhere(place) ? 0 : 1;
    EXPECT_EQ(breaks, 1u) << packets;
  }
}

}  // namespace
