#include <alg_factory/blob2d/BlobMerger.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <tuple>
#include <vector>

namespace {

using algorithm::Blob2DPoint;
using algorithm::mergeOverlapping;
using algorithm::overlap;
using testing::ElementsAre;
using testing::IsEmpty;

Blob2DPoint disc(double x, double y, int diameter, int id = 0) {
  Blob2DPoint point;
  point.x = x;
  point.y = y;
  point.diameter = diameter;
  point.id = id;
  return point;
}

using Seen = std::tuple<double, double, int>;

algorithm::BlobRun runOf(std::vector<Blob2DPoint>& blobs) {
  return {blobs.data(), blobs.data() + blobs.size()};
}

/// What is left of blobs of one id.
std::vector<Blob2DPoint> survivors(std::vector<Blob2DPoint> blobs) {
  std::vector<std::uint32_t> names(blobs.size());
  algorithm::NoObserver nobody;
  const Blob2DPoint* const end = mergeOverlapping(runOf(blobs), names.data(), 0, nobody);
  blobs.resize(static_cast<std::size_t>(end - blobs.data()));
  return blobs;
}

std::vector<Seen> merged(const std::vector<Blob2DPoint>& blobs) {
  std::vector<Seen> seen;
  for (const Blob2DPoint& point : survivors(blobs)) {
    seen.emplace_back(point.x, point.y, point.diameter);
  }
  return seen;
}

TEST(Overlap, MeanDiameterMustExceedTheDistance) {
  EXPECT_TRUE(overlap(disc(0, 0, 4), disc(3.9, 0, 4)));
  EXPECT_FALSE(overlap(disc(0, 0, 4), disc(4.0, 0, 4)));
  EXPECT_TRUE(overlap(disc(0, 0, 4), disc(std::nextafter(4.0, 0.0), 0, 4)));
}

TEST(Overlap, DistanceIsEuclidean) {
  EXPECT_FALSE(overlap(disc(1, 1, 4), disc(4, 5, 6)));  // 3, 4, 5 against (4 + 6) / 2 = 5
  EXPECT_TRUE(overlap(disc(1, 1, 6), disc(4, 5, 6)));
  EXPECT_TRUE(overlap(disc(4, 5, 6), disc(1, 1, 6)));
  EXPECT_FALSE(overlap(disc(0, 0, 6), disc(0, 6, 6)));
  EXPECT_TRUE(overlap(disc(0, 0, 6), disc(0, -5.5, 6)));
}

TEST(Overlap, DiscsWithoutDiameterNeverOverlap) {
  EXPECT_FALSE(overlap(disc(1, 1, 0), disc(1, 1, 0)));
}

TEST(Overlap, LargestDiametersAddUp) {
  EXPECT_TRUE(overlap(disc(0, 0, 536870912), disc(536870911.0, 0, 536870912)));
}

TEST(MergeOverlapping, LeavesEmptyAndSingleGroups) {
  EXPECT_THAT(merged({}), IsEmpty());
  EXPECT_THAT(merged({disc(1, 2, 4)}), ElementsAre(Seen(1, 2, 4)));
}

TEST(MergeOverlapping, EqualDiscsMergeBelowTheirDiameterAndStayApartAtIt) {
  EXPECT_THAT(merged({disc(0, 0, 4), disc(3.9, 0, 4)}), ElementsAre(Seen(1.95, 0, 4)));
  EXPECT_THAT(merged({disc(0, 0, 4), disc(4, 0, 4)}), ElementsAre(Seen(0, 0, 4), Seen(4, 0, 4)));
}

TEST(MergeOverlapping, MergedDiscIsTestedFromItsNewCentre) {
  // 0 and 7: limit 8, merged at 3.5. 3.5 and 12: 8.5 apart, limit 8.
  EXPECT_THAT(merged({disc(0, 0, 10), disc(7, 0, 6), disc(12, 0, 6)}),
              ElementsAre(Seen(3.5, 0, 10), Seen(12, 0, 6)));
}

TEST(MergeOverlapping, DiscMovedUpAfterAMergeIsTestedToo) {
  // 0 takes 2 and moves to 1, then takes 3 and moves to 2.
  EXPECT_THAT(merged({disc(0, 0, 10), disc(2, 0, 6), disc(3, 0, 6)}), ElementsAre(Seen(2, 0, 10)));
}

TEST(MergeOverlapping, DiscAlreadyPassedIsNotTestedAgain) {
  // 0 and -9.5: limit 9, apart. 0 and -7: limit 8, merged at -3.5, now 6 from -9.5.
  EXPECT_THAT(merged({disc(0, 0, 10), disc(-9.5, 0, 8), disc(-7, 0, 6)}),
              ElementsAre(Seen(-3.5, 0, 10), Seen(-9.5, 0, 8)));
}

TEST(MergeOverlapping, LaterDiscsMergeAmongThemselves) {
  EXPECT_THAT(merged({disc(0, 0, 10), disc(50, 0, 6), disc(52, 0, 6)}),
              ElementsAre(Seen(0, 0, 10), Seen(51, 0, 6)));
}

TEST(MergeOverlapping, CentreIsThePlainMidpointAndTheLargerDiameterStays) {
  EXPECT_THAT(merged({disc(2, 4, 2), disc(0, 0, 20)}), ElementsAre(Seen(1, 2, 20)));
}

TEST(MergeOverlapping, MergedDiscKeepsIdAndZeroAux) {
  const auto group = survivors({disc(0, 0, 10, 4), disc(1, 0, 8, 4)});
  ASSERT_EQ(group.size(), 1u);
  EXPECT_EQ(group[0].id, 4);
  EXPECT_THAT(group[0].aux, ElementsAre(0.0, 0.0, 0.0));
}

TEST(MergeOverlapping, SortsByDiameterBeforeMerging) {
  // In the given order 6 at 0 would take 6 at 5 first (2.5) and then miss 10 at 11 (8.5, limit 8).
  EXPECT_THAT(merged({disc(0, 0, 6), disc(5, 0, 6), disc(11, 0, 10)}),
              ElementsAre(Seen(8, 0, 10), Seen(0, 0, 6)));
}

TEST(MergeOverlapping, ListsTheLargestFirst) {
  EXPECT_THAT(merged({disc(0, 0, 2), disc(100, 0, 6), disc(200, 0, 4)}),
              ElementsAre(Seen(100, 0, 6), Seen(200, 0, 4), Seen(0, 0, 2)));
}

TEST(MergeOverlapping, FindsTheOnePairThatOverlapsWhereverItStands) {
  // 7 discs in a row, 100 apart; one of each pair in turn stands on the other.
  for (std::size_t i = 0; i < 7; ++i) {
    for (std::size_t k = i + 1; k < 7; ++k) {
      std::vector<Blob2DPoint> group;
      for (int n = 0; n < 7; ++n) group.push_back(disc(100.0 * n, 50, 4));
      group[k].x = group[i].x + 2;
      EXPECT_EQ(merged(group).size(), 6u) << i << " and " << k;
    }
  }
}

TEST(MergeOverlapping, FarMoreDiscsThanAPacketHoldsAreMergedToo) {
  std::vector<Blob2DPoint> group;
  for (int n = 0; n < 200; ++n) group.push_back(disc(100.0 * (n / 2), n % 2, 4));
  EXPECT_EQ(merged(group).size(), 100u);
}

TEST(MergeOverlapping, DiscWithoutAPlaceOverlapsNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(merged({disc(nan, 0, 4), disc(0, 0, 4), disc(1, 0, 4)}).size(), 2u);
}

/// Tells of every merge.
struct Merges : algorithm::NoObserver {
  std::vector<std::tuple<std::size_t, std::size_t, double, double>> seen;
  void blobMerged(int camera, std::size_t blob, const Blob2DPoint&, std::size_t into, double value,
                  double limit) {
    EXPECT_EQ(camera, 1);
    seen.emplace_back(blob, into, value, limit);
  }
};

TEST(MergeOverlapping, TellsWhatTookWhatFromHowFar) {
  // As above: the second, 10 wide, takes the first, 7 away, and moves to 3.5; the third stays.
  std::vector<Blob2DPoint> blobs{disc(7, 0, 6), disc(0, 0, 10), disc(12, 0, 6)};
  std::vector<std::uint32_t> names{20, 21, 22};
  Merges merges;
  const Blob2DPoint* const end = mergeOverlapping(runOf(blobs), names.data(), 1, merges);
  EXPECT_THAT(merges.seen, ElementsAre(std::tuple(20u, 21u, 7.0, 8.0)));
  EXPECT_EQ(end, &blobs[2]);
  EXPECT_EQ(names[0], 21u);  // the widest comes first, and with it its name
  EXPECT_EQ(names[1], 22u);
}

TEST(MergeOverlapping, EqualDiametersKeepTheirOrder) {
  std::vector<Blob2DPoint> group;
  for (int i = 0; i < 40; ++i) group.push_back(disc(100.0 * ((i * 7) % 40), 0, 4 + i % 2 * 2));
  std::vector<Seen> expected;
  for (const int diameter : {6, 4}) {
    for (const Blob2DPoint& point : group) {
      if (point.diameter == diameter) expected.emplace_back(point.x, point.y, diameter);
    }
  }
  EXPECT_EQ(merged(group), expected);
}

}  // namespace
