#include <alg_factory/stereo3d/PointFilter.h>

#include <cmath>
#include <cstdint>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using algorithm::BlobFate;
using algorithm::NoObserver;
using algorithm::PairPoint;
using algorithm::PairPoints;
using algorithm::PointMean;
using algorithm::StereoPoint;
using algorithm::SurplusScratch;
using testing::ElementsAre;
using testing::IsEmpty;

/// A point named by `tag`, which travels as the place of its pair.
PairPoint point(std::uint32_t tag, int id, double x, double y = 0, double z = 0) {
  return {x, y, z, id, tag};
}

/// A point of the previous frame.
StereoPoint past(int id, double x, double y = 0, double z = 0) {
  StereoPoint p;
  p.x = x;
  p.y = y;
  p.z = z;
  p.id = id;
  return p;
}

std::vector<PointMean> meansOf(const std::vector<StereoPoint>& previous) {
  std::vector<PointMean> means(3);
  meansById(previous, means);
  return means;
}

std::vector<int> tags(const PairPoints& points) {
  std::vector<int> result;
  for (const PairPoint& p : points) result.push_back(static_cast<int>(p.pair));
  return result;
}

NoObserver nobody;

void removeTooDeep(double maxDepth, PairPoints& points) {
  algorithm::removeTooDeep(maxDepth, points, nobody);
}
void removeJumps(const std::vector<StereoPoint>& previous, PairPoints& points) {
  algorithm::removeJumps(meansOf(previous), points, nobody);
}
void removeFarFromReference(int expected, PairPoints& points) {
  algorithm::removeFarFromReference(expected, points, nobody);
}
void removeSurplus(const std::vector<std::int32_t>& expected,
                   const std::vector<StereoPoint>& previous, SurplusScratch& scratch,
                   PairPoints& points) {
  algorithm::removeSurplus(expected, !previous.empty(), meansOf(previous), scratch, points, nobody);
}

double above(double value) {
  return std::nextafter(value, 1e9);
}

TEST(RemoveTooDeep, KeepsADepthOfExactlyTheLimitAndTheOrder) {
  PairPoints points = {point(1, 0, 0, 0, above(3500)), point(2, 1, 0, 0, 3500),
                       point(3, 0, 0, 0, 9000), point(4, 2, 0, 0, 20), point(5, 0, 9999, 0, 1)};
  removeTooDeep(3500, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 4, 5));
}

TEST(RemoveTooDeep, UsesTheLimitItIsGiven) {
  PairPoints points = {point(1, 0, 0, 0, 4000), point(2, 0, 0, 0, 4600)};
  removeTooDeep(4500, points);
  EXPECT_THAT(tags(points), ElementsAre(1));
}

TEST(RemoveJumps, KeepsADistanceOfExactly150) {
  // (50, 100, 100) is sqrt(2500 + 10000 + 10000) = 150 from the origin.
  PairPoints points = {point(1, 0, 50, 100, 100), point(2, 0, above(150)), point(3, 0, -150),
                       point(4, 0, 0, 0, -150.001), point(5, 0, 0, 151, 0)};
  removeJumps({past(0, 0)}, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 3));
}

TEST(RemoveJumps, MeasuresFromTheMeanOfTheIdsPreviousPoints) {
  // Mean of id 1: (100, 30, -10). The point at the first of them is sqrt(200^2 + ...) away.
  const std::vector<StereoPoint> previous = {past(1, -100, 20, -10), past(0, 5000, 5000, 5000),
                                             past(1, 300, 40, -10)};
  PairPoints points = {point(1, 1, -100, 20, -10), point(2, 1, 100, 30, 140),
                       point(3, 1, 100, 30, 140.5), point(4, 1, 100, -120, -10),
                       point(5, 1, 250, 30, -10)};
  removeJumps(previous, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 4, 5));
}

TEST(RemoveJumps, IdsThatOneFrameLacksAreNotTested) {
  PairPoints points = {point(1, 0, 9000), point(2, 1, 9000)};
  removeJumps({past(1, 0), past(2, 0)}, points);
  EXPECT_THAT(tags(points), ElementsAre(1));
}

TEST(RemoveJumps, WithoutAPreviousFrameEverythingStays) {
  PairPoints points = {point(1, 0, 9000), point(2, 1, -9000)};
  removeJumps({}, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2));
}

TEST(RemoveFarFromReference, KeepsADistanceOfExactly1200) {
  // (400, 800, 800) is sqrt(160000 + 640000 + 640000) = 1200 from the reference at the origin.
  PairPoints points = {point(1, 0, 400, 800, 800), point(2, 1, 1200), point(3, 2, 0),
                       point(4, 0, above(1200)), point(5, 1, 0, 0, -1201)};
  removeFarFromReference(1, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
}

TEST(RemoveFarFromReference, MeasuresFromTheMeanAndNeverRemovesTheReference) {
  // The reference points are 3000 apart, their mean at (1500, 40, 500).
  PairPoints points = {point(1, 2, 0, 40, 500),    point(2, 2, 3000, 40, 500),
                       point(3, 0, 400, 40, 500),  point(4, 1, 299, 40, 500),
                       point(5, 1, 2701, 40, 500), point(6, 0, 2700, 40, 500)};
  removeFarFromReference(2, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3, 6));
}

TEST(RemoveFarFromReference, IsSkippedWithMoreReferencePointsThanExpected) {
  PairPoints points = {point(1, 2, 0), point(2, 2, 1), point(3, 2, 2), point(4, 0, 5000)};
  removeFarFromReference(2, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3, 4));
  removeFarFromReference(3, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
}

TEST(RemoveFarFromReference, IsSkippedWithoutAReference) {
  PairPoints points = {point(1, 0, 0), point(2, 1, 5000)};
  removeFarFromReference(1, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2));
}

TEST(RemoveSurplus, KeepsTheFirstPointsWithoutAPreviousFrame) {
  PairPoints points = {point(1, 0, 900), point(4, 0, 1),  point(7, 0, 2), point(6, 1, 7),
                       point(2, 2, 800), point(3, 2, 10), point(5, 2, 5)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 2}, {}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 6, 2, 3));
}

TEST(RemoveSurplus, KeepsTheNearestToTheMeanOfThePreviousFrame) {
  // Mean of id 0 in the previous frame: (10, 0, 100); distances 30, 5, 20, 40 for tags 1, 2, 4, 5.
  const std::vector<StereoPoint> previous = {past(0, 0, 0, 100), past(0, 20, 0, 100),
                                             past(1, 9000)};
  PairPoints points = {point(1, 0, 10, 30, 100), point(2, 0, 10, 0, 105), point(4, 0, -10, 0, 100),
                       point(5, 0, 10, 0, 60), point(3, 1, 9000)};
  SurplusScratch scratch;
  PairPoints two = points;
  removeSurplus({2, 1, 1}, previous, scratch, two);
  EXPECT_THAT(tags(two), ElementsAre(2, 4, 3));
  removeSurplus({1, 1, 1}, previous, scratch, points);  // the scratch is used again
  EXPECT_THAT(tags(points), ElementsAre(2, 3));
}

TEST(RemoveSurplus, ThisFramesOwnMeanPlaysNoPart) {
  // The mean of these four is 90, where 100 would be nearest.
  PairPoints points = {point(1, 0, 100), point(2, 0, 110), point(3, 0, 30), point(4, 0, 120)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {past(0, 0)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(3));
}

TEST(RemoveSurplus, MeasuresFromTheOriginWhereThePreviousFrameHadNoPointOfTheId) {
  PairPoints points = {point(1, 0, 0, 0, 700), point(2, 0, 0, 0, 600), point(3, 0, 0, 650, 0)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {past(1, 0, 0, 800)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(2));
}

TEST(RemoveSurplus, EquallyFarPointsGoInListOrder) {
  PairPoints points = {point(1, 0, 5), point(2, 0, -5), point(3, 0, 0, 5)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {past(0, 0)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(3));
}

TEST(RemoveSurplus, AsManyAsExpectedOrFewerStay) {
  PairPoints points = {point(2, 0, 0), point(1, 2, 0), point(3, 2, 9)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 2}, {}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 1, 3));
  removeSurplus({1, 1, 2}, {past(2, 500)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 1, 3));
}

TEST(PointFilter, NoPassNeedsAPoint) {
  PairPoints none;
  SurplusScratch scratch;
  removeTooDeep(3500, none);
  removeJumps({past(0, 0)}, none);
  removeFarFromReference(1, none);
  removeSurplus({1, 1, 1}, {past(0, 0)}, scratch, none);
  EXPECT_THAT(none, IsEmpty());
}

TEST(MeansById, AreTheMeansOfEachIdsPoints) {
  const auto means =
      meansOf({past(0, 1, 2, 3), past(2, 5, 6, 7), past(2, 7, 8, 11), past(3, 9), past(-1, 9)});
  EXPECT_EQ(means[0].count, 1);
  EXPECT_EQ(means[0].y, 2);
  EXPECT_EQ(means[1].count, 0);
  EXPECT_EQ(means[1].x, 0);
  EXPECT_EQ(means[2].count, 2);
  EXPECT_EQ(means[2].x, 6);
  EXPECT_EQ(means[2].y, 7);
  EXPECT_EQ(means[2].z, 9);
}

/// Notes what the passes remove, and why.
struct Removals : NoObserver {
  std::vector<std::tuple<int, BlobFate, double, double>> seen;
  void pointDropped(std::size_t point, BlobFate fate, double value, double limit) {
    seen.emplace_back(static_cast<int>(point), fate, value, limit);
  }
};

TEST(PointFilter, EveryPassTellsWhatItRemovesAndWhy) {
  Removals removals;
  PairPoints points = {point(1, 0, 0, 0, 4000), point(2, 0, 0, 0, 400), point(3, 0, 0, 0, 30),
                       point(4, 0, 0, 0, 20),   point(5, 1, 2000),      point(6, 2, 0)};
  const auto previous = meansOf({past(0, 0)});
  SurplusScratch scratch;
  algorithm::removeTooDeep(3500, points, removals);
  algorithm::removeJumps(previous, points, removals);
  algorithm::removeFarFromReference(1, points, removals);
  algorithm::removeSurplus({1, 1, 2}, true, previous, scratch, points, removals);
  EXPECT_THAT(removals.seen, ElementsAre(std::tuple(1, BlobFate::kTooDeep, 4000, 3500),
                                         std::tuple(2, BlobFate::kJumped, 400, 150),
                                         std::tuple(5, BlobFate::kFarFromReference, 2000, 1200),
                                         std::tuple(3, BlobFate::kTooMany, 30, 1)));
  EXPECT_THAT(tags(points), ElementsAre(4, 6));
}

}  // namespace
