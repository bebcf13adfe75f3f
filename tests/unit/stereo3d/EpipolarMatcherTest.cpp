#include <alg_factory/stereo3d/EpipolarMatcher.h>

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::accepted;
using algorithm::Blob2DPoint;
using algorithm::BlobPairs;
using algorithm::epipolarDistance;
using algorithm::MatchScratch;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::blobWithLine;
using testing_support::rowBlob;

using Blobs = std::vector<Blob2DPoint>;

/// (x of the left blob, x of the right blob) of every pair; checks that entries come in twos.
std::vector<std::pair<double, double>> pairedX(const BlobPairs& pairs) {
  EXPECT_EQ(pairs.size() % 2, 0u);
  std::vector<std::pair<double, double>> xs;
  for (std::size_t i = 0; i + 1 < pairs.size(); i += 2) xs.emplace_back(pairs[i].x, pairs[i + 1].x);
  return xs;
}

std::vector<std::pair<double, double>> match(Blobs left, Blobs right) {
  MatchScratch scratch;
  BlobPairs pairs = {rowBlob(-1, -1, 2)};  // must not survive
  matchId(left, right, scratch, pairs);
  return pairedX(pairs);
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
  MatchScratch scratch;
  BlobPairs pairs;
  Blobs left = {rowBlob(-1, 0, 40), rowBlob(1, 0, 40)};
  Blobs right = {rowBlob(0, -1, 40), rowBlob(0, 1, 40)};
  matchId(left, right, scratch, pairs);
  ASSERT_EQ(pairs.size(), 2u);
  EXPECT_EQ(pairs[0].x, -1);
  EXPECT_EQ(pairs[1].y, -1);
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

TEST(MatchId, PairedBlobsAreTheOriginalsNotTheCentredOnes) {
  MatchScratch scratch;
  BlobPairs pairs;
  Blobs left = {rowBlob(10, 7, 4), rowBlob(30, 7, 4)};
  Blobs right = {rowBlob(50, 7, 6), rowBlob(70, 7, 6)};
  matchId(left, right, scratch, pairs);
  ASSERT_EQ(pairs.size(), 4u);
  EXPECT_EQ(pairs[0].x, 10);
  EXPECT_EQ(pairs[0].y, 7);
  EXPECT_EQ(pairs[0].diameter, 4);
  EXPECT_EQ(pairs[1].x, 50);
  EXPECT_EQ(pairs[1].y, 7);
  EXPECT_EQ(pairs[1].diameter, 6);
}

TEST(MatchClosest, TakesThePairWithTheSmallestDistance) {
  BlobPairs pairs;
  matchClosest({rowBlob(1, 0, 4), rowBlob(2, 10, 4)},
               {rowBlob(3, 3, 4), rowBlob(4, 12, 4), rowBlob(5, 11, 4)}, pairs);
  EXPECT_THAT(pairedX(pairs), ElementsAre(Pair(2, 5)));
}

TEST(MatchClosest, FirstMinimumInRowOrderWins) {
  // (left 1, right 4) and (left 2, right 3) are both 1 apart.
  BlobPairs pairs;
  matchClosest({rowBlob(1, 0, 4), rowBlob(2, 10, 4)}, {rowBlob(3, 11, 4), rowBlob(4, 1, 4)}, pairs);
  EXPECT_THAT(pairedX(pairs), ElementsAre(Pair(1, 4)));
}

TEST(MatchClosest, NothingIsAppendedWhenTheClosestIsRejected) {
  // The closest pair is 1 apart with diameters 0; a wider one (3 apart, mean 10) would be accepted.
  BlobPairs pairs;
  matchClosest({rowBlob(1, 0, 0), rowBlob(2, 10, 20)}, {rowBlob(3, 1, 0), rowBlob(4, 13, 0)},
               pairs);
  EXPECT_THAT(pairs, IsEmpty());
  matchClosest({}, {rowBlob(3, 1, 0)}, pairs);
  EXPECT_THAT(pairs, IsEmpty());
}

}  // namespace
