#include <alg_factory/stereo3d/EpipolarMatcher.h>

#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::Blob2DPoint;
using algorithm::BlobPair;
using algorithm::epipolarDistance;
using algorithm::NeighbourTable;
using algorithm::NoObserver;
using algorithm::StereoBlobs;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::blobWithLine;
using testing_support::rowBlob;

using Blobs = std::vector<Blob2DPoint>;

using Pairs = std::vector<std::pair<Blob2DPoint, Blob2DPoint>>;

algorithm::BlobRun runOf(Blobs& blobs) {
  return {blobs.data(), blobs.data() + blobs.size()};
}

/// The pairs of blobs of one id.
Pairs matched(const Blobs& left, const Blobs& right) {
  StereoBlobs blobs{left, right};
  NeighbourTable table;
  std::vector<BlobPair> pairs;
  NoObserver nobody;
  matchId(blobs, runOf(blobs.left), runOf(blobs.right), table, pairs, nobody);
  Pairs result;
  for (const BlobPair& pair : pairs) result.emplace_back(*pair.left, *pair.right);
  return result;
}

/// (x of the left blob, x of the right blob) of every pair.
std::vector<std::pair<double, double>> match(const Blobs& left, const Blobs& right) {
  std::vector<std::pair<double, double>> xs;
  for (const auto& [l, r] : matched(left, right)) xs.emplace_back(l.x, r.x);
  return xs;
}

bool accepted(const Blob2DPoint& left, const Blob2DPoint& right) {
  return algorithm::accepted(left, right, epipolarDistance(left, right));
}

/// Replaces both lists by what the cut leaves of them.
void cutToSameCount(Blobs& left, Blobs& right) {
  StereoBlobs blobs{left, right};
  algorithm::BlobRun l = runOf(blobs.left), r = runOf(blobs.right);
  NoObserver nobody;
  algorithm::cutToSameCount(blobs, l, r, nobody);
  left.assign(l.first, l.last);
  right.assign(r.first, r.last);
}

TEST(EpipolarDistance, IsTheMeanOfBothPointToLineDistances) {
  // The right blob (7, 5) is |-5| off the left blob's line 3 x / 5 + 4 y / 5 - 13.2 = 0:
  // 4.2 + 4 - 13.2 = -5. The left blob (2, 3) is 2 - 1 = 1 off the right blob's line x - 1 = 0.
  const Blob2DPoint left = blobWithLine(2, 3, 0.6, 0.8, -13.2, 2);
  const Blob2DPoint right = blobWithLine(7, 5, 1, 0, -1, 2);
  EXPECT_DOUBLE_EQ(epipolarDistance(left, right), 3.0);
}

TEST(EpipolarDistance, DividesByTheLengthOfEachNormal) {
  // |3 * 1 + 4 * 1 + 8| / 5 = 3 and |-2 * 3 + 0 + 4| / 2 = 1.
  const Blob2DPoint left = blobWithLine(3, 9, 3, 4, 8, 2);
  const Blob2DPoint right = blobWithLine(1, 1, -2, 0, 4, 2);
  EXPECT_DOUBLE_EQ(epipolarDistance(left, right), 2.0);
}

TEST(Accepted, MeanDiameterMustExceedTheDistanceStrictly) {
  // Rows 3 apart: both distances are 3.
  EXPECT_FALSE(accepted(rowBlob(0, 0, 2), rowBlob(0, 3, 4)));  // mean 3.0
  EXPECT_TRUE(accepted(rowBlob(0, 0, 3), rowBlob(0, 3, 4)));   // mean 3.5, not rounded down
  EXPECT_TRUE(accepted(rowBlob(0, 0, 2), rowBlob(0, 2.9999, 4)));
  EXPECT_FALSE(accepted(rowBlob(0, 0, 0), rowBlob(0, 0, 0)));  // 0 > 0 fails
}

TEST(Accepted, LineWithoutDirectionRejects) {
  EXPECT_FALSE(accepted(blobWithLine(0, 0, 0, 0, 0, 100), rowBlob(0, 0, 100)));
  EXPECT_FALSE(accepted(rowBlob(0, 0, 100), blobWithLine(0, 0, 0, 0, 5, 100)));
}

TEST(CutToSameCount, KeepsTheLargestLargestFirst) {
  Blobs left = {rowBlob(1, 0, 4), rowBlob(2, 0, 2), rowBlob(3, 0, 8)};
  Blobs right = {rowBlob(10, 0, 2), rowBlob(20, 0, 6)};
  cutToSameCount(left, right);
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(left[0].x, 3);
  EXPECT_EQ(left[1].x, 1);
  ASSERT_EQ(right.size(), 2u);  // the shorter list is not sorted
  EXPECT_EQ(right[0].x, 10);
  EXPECT_EQ(right[1].x, 20);
}

TEST(CutToSameCount, WorksForEitherCamera) {
  Blobs left = {rowBlob(1, 0, 4)};
  Blobs right = {rowBlob(10, 0, 2), rowBlob(20, 0, 6), rowBlob(30, 0, 4)};
  cutToSameCount(left, right);
  EXPECT_EQ(left.size(), 1u);
  ASSERT_EQ(right.size(), 1u);
  EXPECT_EQ(right[0].x, 20);
}

TEST(CutToSameCount, EqualDiametersKeepTheirOrder) {
  Blobs left = {rowBlob(1, 0, 4), rowBlob(2, 0, 6), rowBlob(3, 0, 4), rowBlob(4, 0, 4)};
  Blobs right(3);
  cutToSameCount(left, right);
  ASSERT_EQ(left.size(), 3u);
  EXPECT_EQ(left[0].x, 2);
  EXPECT_EQ(left[1].x, 1);
  EXPECT_EQ(left[2].x, 3);
}

TEST(CutToSameCount, EqualCountsAreLeftInOrder) {
  Blobs left = {rowBlob(1, 0, 2), rowBlob(2, 0, 8)};
  Blobs right = {rowBlob(3, 0, 2), rowBlob(4, 0, 8)};
  cutToSameCount(left, right);
  EXPECT_EQ(left[0].x, 1);
  EXPECT_EQ(right[0].x, 3);
}

TEST(MatchId, EitherCameraWithoutBlobsGivesNoPair) {
  EXPECT_THAT(match({}, {rowBlob(1, 0, 4)}), IsEmpty());
  EXPECT_THAT(match({rowBlob(1, 0, 4)}, {}), IsEmpty());
  EXPECT_THAT(match({}, {}), IsEmpty());
}

TEST(MatchId, SinglePairIsAppendedLeftThenRightIfAccepted) {
  EXPECT_THAT(match({rowBlob(1, 0, 4)}, {rowBlob(2, 3.9, 4)}), ElementsAre(Pair(1, 2)));
  EXPECT_THAT(match({rowBlob(1, 0, 4)}, {rowBlob(2, 4, 4)}), IsEmpty());
}

TEST(MatchId, OnlyTheLargestIsTriedAgainstASingleBlob) {
  // The blob in the matching row is smaller and therefore cut before any distance is looked at.
  EXPECT_THAT(match({rowBlob(1, 0, 4)}, {rowBlob(2, 0, 4), rowBlob(3, 50, 6)}), IsEmpty());
  EXPECT_THAT(match({rowBlob(1, 0, 4)}, {rowBlob(2, 50, 4), rowBlob(3, 0, 6)}),
              ElementsAre(Pair(1, 3)));
}

TEST(MatchId, SmallestOfThreeIsDiscardedBeforeMatching) {
  // After the cut x = 0 and 20 face 100 and 120; with the stray at 90 still in, the means would not
  // align. The largest stands first in the sorted list, so its pair comes first.
  EXPECT_THAT(match({rowBlob(0, 0, 6), rowBlob(90, 0, 2), rowBlob(20, 0, 8)},
                    {rowBlob(100, 0, 4), rowBlob(120, 0, 4)}),
              ElementsAre(Pair(20, 120), Pair(0, 100)));
}

TEST(MatchId, CentroidsAreAlignedBeforeNeighboursAreSought) {
  // Means 30 and 120 (x), 10 and 11 (y). Without alignment x = 70 would be nearest to all.
  EXPECT_THAT(match({rowBlob(0, 0, 8), rowBlob(20, 30, 8), rowBlob(70, 0, 8)},
                    {rowBlob(160, 1, 8), rowBlob(90, 1, 8), rowBlob(110, 31, 8)}),
              ElementsAre(Pair(0, 90), Pair(20, 110), Pair(70, 160)));
}

TEST(MatchId, DistanceAndCentroidTakeYAsWellAsX) {
  // Columns: the right image is 100 lower, and by x alone the order would be the reverse. Large
  // blobs, so that the distance test passes.
  EXPECT_THAT(match({rowBlob(0, 0, 400), rowBlob(1, 20, 400), rowBlob(2, 70, 400)},
                    {rowBlob(10, 170, 400), rowBlob(12, 100, 400), rowBlob(11, 120, 400)}),
              ElementsAre(Pair(0, 12), Pair(1, 11), Pair(2, 10)));
}

TEST(MatchId, BlobWhoseNearestPrefersAnotherIsDropped) {
  // All in one row, both means 0. Left 1 is nearest to right 4 (3 against 4 and 10), but right 4 is
  // nearest to left 5. Left -6 and right -9, left 5 and right 5 are mutual.
  EXPECT_THAT(match({rowBlob(-6, 0, 4), rowBlob(1, 0, 4), rowBlob(5, 0, 4)},
                    {rowBlob(-9, 0, 4), rowBlob(4, 0, 4), rowBlob(5, 0, 4)}),
              ElementsAre(Pair(-6, -9), Pair(5, 5)));
}

TEST(MatchId, RightBlobIsNeverPairedTwice) {
  // All in one row, both means 0. Right 1.6 is nearest to left 1 and to left 2 and prefers left 2
  // (0.4 against 0.6); right 3.4 is no left blob's nearest.
  EXPECT_THAT(match({rowBlob(-3, 0, 4), rowBlob(1, 0, 4), rowBlob(2, 0, 4)},
                    {rowBlob(-5, 0, 4), rowBlob(1.6, 0, 4), rowBlob(3.4, 0, 4)}),
              ElementsAre(Pair(-3, -5), Pair(2, 1.6)));
}

TEST(MatchId, FirstIndexWinsWhereNeighboursAreEquallyNear) {
  // A cross: left (-1, 0), (1, 0); right (0, -1), (0, 1); every squared distance is 2. Both left
  // blobs take right 0, which takes left 0. (The last index instead would pair 1 with 1, a mixture
  // nothing or 1 with 0.)
  const auto pairs =
      matched({rowBlob(-1, 0, 40), rowBlob(1, 0, 40)}, {rowBlob(0, -1, 40), rowBlob(0, 1, 40)});
  ASSERT_EQ(pairs.size(), 1u);
  EXPECT_EQ(pairs[0].first.x, -1);
  EXPECT_EQ(pairs[0].second.y, -1);
}

TEST(MatchId, MirroredLayoutOfTwoGivesNoPair) {
  // Left falls, right rises: each blob's neighbour is the one below or above it, 5 rows away.
  EXPECT_THAT(match({rowBlob(0, 0, 4), rowBlob(10, 5, 4)}, {rowBlob(0, 5, 4), rowBlob(10, 0, 4)}),
              IsEmpty());
}

TEST(MatchId, MutualPairThatFailsTheDistanceTestIsNotReplaced) {
  // The second right blob lies 9 rows off its neighbour's row, against a mean diameter of 8. The
  // first pair is not affected.
  EXPECT_THAT(match({rowBlob(0, 0, 8), rowBlob(100, 0, 8)}, {rowBlob(5, 0, 8), rowBlob(105, 9, 8)}),
              ElementsAre(Pair(0, 5)));
}

TEST(MatchId, BlobWithoutAPlaceIsNobodysNearest) {
  // Nor has it a nearest: where nothing is less, the first is taken. Its mean has no place either.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(
      match({rowBlob(nan, 0, 8), rowBlob(100, 0, 8)}, {rowBlob(5, 0, 8), rowBlob(105, 0, 8)}),
      IsEmpty());
}

TEST(MatchId, PairsManyBlobsAsOneByOneComparisonDoes) {
  constexpr unsigned kSeed = 90210;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  // Whole numbers, so that many distances are equal; all in one row and large: no pair is refused.
  std::uniform_int_distribution<int> place(0, 6), count(2, 21);
  for (int round = 0; round < 300; ++round) {
    const int n = count(random);
    Blobs left, right;
    for (int i = 0; i < n; ++i) {
      left.push_back(rowBlob(place(random), 0, 1000));
      right.push_back(rowBlob(place(random), 0, 1000));
    }
    double meanL = 0, meanR = 0;
    for (int i = 0; i < n; ++i) meanL += left[std::size_t(i)].x;
    for (int i = 0; i < n; ++i) meanR += right[std::size_t(i)].x;
    meanL /= n;
    meanR /= n;
    const auto nearest = [](double x, const Blobs& blobs, double mean) {
      std::size_t best = 0;
      for (std::size_t j = 1; j < blobs.size(); ++j) {
        if (std::fabs(blobs[j].x - mean - x) < std::fabs(blobs[best].x - mean - x)) best = j;
      }
      return best;
    };
    std::vector<std::pair<double, double>> expected;
    for (std::size_t i = 0; i < left.size(); ++i) {
      const std::size_t j = nearest(left[i].x - meanL, right, meanR);
      if (nearest(right[j].x - meanR, left, meanL) == i)
        expected.emplace_back(left[i].x, right[j].x);
    }
    ASSERT_EQ(match(left, right), expected) << "round " << round;
  }
}

/// Tells what becomes of every blob.
struct Fates : NoObserver {
  static constexpr bool kWantsNearest = true;
  std::vector<std::string> told;

  template <typename... Numbers>
  void tell(const char* what, Numbers... numbers) {
    std::string line = what;
    ((line += ' ' + std::to_string(static_cast<int>(numbers))), ...);
    told.push_back(line);
  }
  void unmatched(int camera, std::size_t blob, algorithm::BlobFate fate, double v, double limit) {
    tell(fate == algorithm::BlobFate::kSurplus ? "surplus" : "no partner", camera, blob, v, limit);
  }
  void notMutual(int camera, std::size_t blob, std::size_t nearest, std::size_t back) {
    tell("not mutual", camera, blob, nearest, back);
  }
  void refused(std::size_t left, std::size_t right, double value, double limit) {
    tell("refused", left, right, value, limit);
  }
  void paired(std::size_t left, std::size_t right, double distance) {
    tell("paired", left, right, distance);
  }
};

std::vector<std::string> told(const Blobs& left, const Blobs& right) {
  StereoBlobs blobs{left, right};
  NeighbourTable table;
  std::vector<BlobPair> pairs;
  Fates fates;
  matchId(blobs, runOf(blobs.left), runOf(blobs.right), table, pairs, fates);
  return fates.told;
}

TEST(MatchId, TellsWhatBecomesOfEveryBlob) {
  EXPECT_THAT(told({rowBlob(1, 0, 4)}, {}), ElementsAre("no partner 0 0 0 0"));
  EXPECT_THAT(told({}, {rowBlob(1, 0, 4)}), ElementsAre("no partner 1 0 0 0"));
  // Two right blobs against one: the smaller goes, the other lies 7 rows off, against 5. Places are
  // those in the order by size.
  EXPECT_THAT(told({rowBlob(1, 0, 4)}, {rowBlob(2, 0, 4), rowBlob(3, 7, 6)}),
              ElementsAre("surplus 1 1 2 1", "refused 0 0 7 5"));
  // As in BlobWhoseNearestPrefersAnotherIsDropped.
  EXPECT_THAT(
      told({rowBlob(-6, 0, 4), rowBlob(1, 0, 4), rowBlob(5, 0, 4)},
           {rowBlob(-9, 0, 4), rowBlob(4, 0, 4), rowBlob(5, 0, 4)}),
      ElementsAre("not mutual 0 1 1 2", "not mutual 1 1 2 2", "paired 0 0 0", "paired 2 2 0"));
}

}  // namespace
