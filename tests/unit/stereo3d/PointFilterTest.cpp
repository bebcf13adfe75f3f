#include <alg_factory/stereo3d/PointFilter.h>

#include <cmath>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using algorithm::removeFarFromReference;
using algorithm::removeJumps;
using algorithm::removeSurplus;
using algorithm::removeTooDeep;
using algorithm::StereoPoint;
using algorithm::StereoPoints;
using algorithm::SurplusScratch;
using testing::ElementsAre;
using testing::IsEmpty;

/// A point named by `tag`, which travels in a field that no pass reads.
StereoPoint point(int tag, int id, double x, double y = 0, double z = 0) {
  StereoPoint p;
  p.x = x;
  p.y = y;
  p.z = z;
  p.diameter = tag;
  p.id = id;
  return p;
}

std::vector<int> tags(const StereoPoints& points) {
  std::vector<int> result;
  for (const StereoPoint& p : points) result.push_back(p.diameter);
  return result;
}

double above(double value) {
  return std::nextafter(value, 1e9);
}

TEST(RemoveTooDeep, KeepsADepthOfExactlyTheLimitAndTheOrder) {
  StereoPoints points = {point(1, 0, 0, 0, above(3500)), point(2, 1, 0, 0, 3500),
                         point(3, 0, 0, 0, 9000), point(4, 2, 0, 0, 20), point(5, 0, 9999, 0, 1)};
  removeTooDeep(3500, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 4, 5));
}

TEST(RemoveTooDeep, UsesTheLimitItIsGiven) {
  StereoPoints points = {point(1, 0, 0, 0, 4000), point(2, 0, 0, 0, 4600)};
  removeTooDeep(4500, points);
  EXPECT_THAT(tags(points), ElementsAre(1));
}

TEST(RemoveJumps, KeepsADistanceOfExactly150) {
  // (50, 100, 100) is sqrt(2500 + 10000 + 10000) = 150 from the origin.
  StereoPoints points = {point(1, 0, 50, 100, 100), point(2, 0, above(150)), point(3, 0, -150),
                         point(4, 0, 0, 0, -150.001), point(5, 0, 0, 151, 0)};
  removeJumps({point(0, 0, 0)}, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 3));
}

TEST(RemoveJumps, MeasuresFromTheMeanOfTheIdsPreviousPoints) {
  // Mean of id 1: (100, 30, -10). The point at the first of them is sqrt(200^2 + ...) away.
  const StereoPoints previous = {point(0, 1, -100, 20, -10), point(0, 0, 5000, 5000, 5000),
                                 point(0, 1, 300, 40, -10)};
  StereoPoints points = {point(1, 1, -100, 20, -10), point(2, 1, 100, 30, 140),
                         point(3, 1, 100, 30, 140.5), point(4, 1, 100, -120, -10),
                         point(5, 1, 250, 30, -10)};
  removeJumps(previous, points);
  EXPECT_THAT(tags(points), ElementsAre(2, 4, 5));
}

TEST(RemoveJumps, IdsThatOneFrameLacksAreNotTested) {
  StereoPoints points = {point(1, 0, 9000), point(2, 1, 9000)};
  removeJumps({point(0, 1, 0), point(0, 2, 0)}, points);
  EXPECT_THAT(tags(points), ElementsAre(1));
}

TEST(RemoveJumps, WithoutAPreviousFrameEverythingStays) {
  StereoPoints points = {point(1, 0, 9000), point(2, 1, -9000)};
  removeJumps({}, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2));
}

TEST(RemoveFarFromReference, KeepsADistanceOfExactly1200) {
  // (400, 800, 800) is sqrt(160000 + 640000 + 640000) = 1200 from the reference at the origin.
  StereoPoints points = {point(1, 0, 400, 800, 800), point(2, 1, 1200), point(3, 2, 0),
                         point(4, 0, above(1200)), point(5, 1, 0, 0, -1201)};
  removeFarFromReference(1, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
}

TEST(RemoveFarFromReference, MeasuresFromTheMeanAndNeverRemovesTheReference) {
  // The reference points are 3000 apart, their mean at (1500, 40, 500).
  StereoPoints points = {point(1, 2, 0, 40, 500),    point(2, 2, 3000, 40, 500),
                         point(3, 0, 400, 40, 500),  point(4, 1, 299, 40, 500),
                         point(5, 1, 2701, 40, 500), point(6, 0, 2700, 40, 500)};
  removeFarFromReference(2, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3, 6));
}

TEST(RemoveFarFromReference, IsSkippedWithMoreReferencePointsThanExpected) {
  StereoPoints points = {point(1, 2, 0), point(2, 2, 1), point(3, 2, 2), point(4, 0, 5000)};
  removeFarFromReference(2, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3, 4));
  removeFarFromReference(3, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
}

TEST(RemoveFarFromReference, IsSkippedWithoutAReference) {
  StereoPoints points = {point(1, 0, 0), point(2, 1, 5000)};
  removeFarFromReference(1, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2));
}

TEST(RemoveSurplus, KeepsTheFirstPointsWithoutAPreviousFrame) {
  StereoPoints points = {point(1, 0, 900), point(2, 2, 800), point(3, 2, 10), point(4, 0, 1),
                         point(5, 2, 5),   point(6, 1, 7),   point(7, 0, 2)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 2}, {}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3, 6));
}

TEST(RemoveSurplus, KeepsTheNearestToTheMeanOfThePreviousFrame) {
  // Mean of id 0 in the previous frame: (10, 0, 100); distances 30, 5, 20, 40 for tags 1, 2, 4, 5.
  const StereoPoints previous = {point(0, 0, 0, 0, 100), point(0, 0, 20, 0, 100),
                                 point(0, 1, 9000)};
  StereoPoints points = {point(1, 0, 10, 30, 100), point(2, 0, 10, 0, 105), point(3, 1, 9000),
                         point(4, 0, -10, 0, 100), point(5, 0, 10, 0, 60)};
  SurplusScratch scratch;
  StereoPoints two = points;
  removeSurplus({2, 1, 1}, previous, scratch, two);
  EXPECT_THAT(tags(two), ElementsAre(2, 3, 4));
  removeSurplus({1, 1, 1}, previous, scratch, points);  // the scratch is used again
  EXPECT_THAT(tags(points), ElementsAre(2, 3));
}

TEST(RemoveSurplus, ThisFramesOwnMeanPlaysNoPart) {
  // The mean of these four is 90, where 100 would be nearest.
  StereoPoints points = {point(1, 0, 100), point(2, 0, 110), point(3, 0, 30), point(4, 0, 120)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {point(0, 0, 0)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(3));
}

TEST(RemoveSurplus, MeasuresFromTheOriginWhereThePreviousFrameHadNoPointOfTheId) {
  StereoPoints points = {point(1, 0, 0, 0, 700), point(2, 0, 0, 0, 600), point(3, 0, 0, 650, 0)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {point(0, 1, 0, 0, 800)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(2));
}

TEST(RemoveSurplus, EquallyFarPointsGoInListOrder) {
  StereoPoints points = {point(1, 0, 5), point(2, 0, -5), point(3, 0, 0, 5)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 1}, {point(0, 0, 0)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(3));
}

TEST(RemoveSurplus, AsManyAsExpectedOrFewerStay) {
  StereoPoints points = {point(1, 2, 0), point(2, 0, 0), point(3, 2, 9)};
  SurplusScratch scratch;
  removeSurplus({1, 1, 2}, {}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
  removeSurplus({1, 1, 2}, {point(0, 2, 500)}, scratch, points);
  EXPECT_THAT(tags(points), ElementsAre(1, 2, 3));
}

TEST(PointFilter, NoPassNeedsAPoint) {
  StereoPoints none;
  SurplusScratch scratch;
  removeTooDeep(3500, none);
  removeJumps({point(1, 0, 0)}, none);
  removeFarFromReference(1, none);
  removeSurplus({1, 1, 1}, {point(1, 0, 0)}, scratch, none);
  EXPECT_THAT(none, IsEmpty());
}

}  // namespace
