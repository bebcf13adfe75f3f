#include <alg_factory/stereo3d/PointSmoother.h>

#include <vector>

#include <gtest/gtest.h>

namespace {

using algorithm::PointHistory;
using algorithm::smoothPoint;
using algorithm::smoothPoints;
using algorithm::StereoPoint;

StereoPoint point(double x, double y, double z, int id = 0) {
  StereoPoint p;
  p.x = x;
  p.y = y;
  p.z = z;
  p.leftX = 11;
  p.rightY = 12;
  p.diameter = 6;
  p.id = id;
  return p;
}

/// Raw positions, oldest first.
PointHistory historyOf(const std::vector<StereoPoint>& points) {
  PointHistory history;
  for (const StereoPoint& p : points) history.push({p.x, p.y, p.z});
  return history;
}

StereoPoint smoothed(PointHistory& history, StereoPoint p, double radius = 3.0) {
  smoothPoint(radius, history, p);
  return p;
}

TEST(PointSmoother, FirstPointStaysAndEntersTheHistory) {
  PointHistory history;
  const StereoPoint p = smoothed(history, point(1, 2, 3));
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 2);
  EXPECT_EQ(p.z, 3);
  ASSERT_EQ(history.size(), 1u);
  EXPECT_EQ(history[0].x, 1);
}

TEST(PointSmoother, OneHistoryPointPullsByItsCloseness) {
  // d = sqrt(0.25 + 0.0625 + 0.25) = 0.75, w = 1/4: per axis (P + 0.75 H + 0.25 P) / 2, that is
  // P - 0.375 (P - H).
  PointHistory history = historyOf({point(10.5, 20.25, 29.5)});
  const StereoPoint p = smoothed(history, point(11, 20.5, 29));
  EXPECT_DOUBLE_EQ(p.x, 10.8125);
  EXPECT_DOUBLE_EQ(p.y, 20.40625);
  EXPECT_DOUBLE_EQ(p.z, 29.1875);
}

TEST(PointSmoother, ThreeHistoryPointsAreEachWeightedByTheirOwnDistance) {
  // P = 0, H = 1.5 (w 1/2), -0.75 (w 1/4), 2.25 (w 3/4), ratios to the radius 3:
  // sum = 0 + 0.5 * 1.5 + 0.75 * -0.75 + 0.25 * 2.25 = 0.75, over 4.
  PointHistory history = historyOf({point(1.5, 0, 0), point(-0.75, 0, 0), point(2.25, 0, 0)});
  EXPECT_DOUBLE_EQ(smoothed(history, point(0, 0, 0)).x, 0.1875);
}

TEST(PointSmoother, PointsOutsideTheRadiusDoNotCount) {
  // Only H = 1.5 is inside: (0 + 0.75) / 2.
  PointHistory history = historyOf({point(50, 0, 0), point(1.5, 0, 0), point(0, -3.5, 0)});
  EXPECT_DOUBLE_EQ(smoothed(history, point(0, 0, 0)).x, 0.375);
}

TEST(PointSmoother, PointThatIsFarFromEveryHistoryPointStaysAndStillEntersTheHistory) {
  // Beyond the radius w > 1 would push the point away from H.
  for (const double d : {3.0, 3.125, 4.5}) {
    PointHistory history = historyOf({point(1 + d, 2, 3), point(1, 2, 3 - d)});
    const StereoPoint p = smoothed(history, point(1, 2, 3));
    EXPECT_EQ(p.x, 1);
    EXPECT_EQ(p.y, 2);
    EXPECT_EQ(p.z, 3);
    ASSERT_EQ(history.size(), 3u);
    EXPECT_EQ(history[2].x, 1);
  }
}

TEST(PointSmoother, HistoryPointAtExactlyTheRadiusHasNoEffect) {
  // H = 1.5 counts, H = -3 does not: (0 + 0.75) / 2. With H = -3 (w = 1, it would add P itself) the
  // sum would be the same but the count 3.
  PointHistory history = historyOf({point(-3, 0, 0), point(1.5, 0, 0)});
  EXPECT_DOUBLE_EQ(smoothed(history, point(0, 0, 0)).x, 0.375);
}

TEST(PointSmoother, UsesTheRadiusItIsGiven) {
  // d = 1.5 of 6: w = 1/4, (0 + 0.75 * 1.5) / 2.
  PointHistory history = historyOf({point(1.5, 0, 0)});
  EXPECT_DOUBLE_EQ(smoothed(history, point(0, 0, 0), 6.0).x, 0.5625);
}

TEST(PointSmoother, HistoryHoldsTheLastThreeRawPointsOldestFirst) {
  PointHistory history;
  for (const double x : {1.0, 2.0, 3.0, 4.0, 5.0}) smoothed(history, point(x, 0, 0));
  ASSERT_EQ(history.size(), 3u);
  EXPECT_EQ(history[0].x, 3);
  EXPECT_EQ(history[1].x, 4);
  EXPECT_EQ(history[2].x, 5);
}

TEST(PointSmoother, FourthFrameBackHasNoEffect) {
  // Raw 0.5 four frames back, then 100, 200, 300: nothing within 3.0 of the fifth point.
  PointHistory history;
  for (const double x : {0.5, 100.0, 200.0, 300.0}) smoothed(history, point(x, 0, 0));
  EXPECT_EQ(smoothed(history, point(0, 0, 0)).x, 0);
}

TEST(PointSmoother, ThirdFrameBackStillHasAnEffect) {
  // (0 + 0.5 * 1.5) / 2.
  PointHistory history;
  for (const double x : {1.5, 100.0, 200.0}) smoothed(history, point(x, 0, 0));
  EXPECT_DOUBLE_EQ(smoothed(history, point(0, 0, 0)).x, 0.375);
}

TEST(PointSmoother, OnlyThePositionChanges) {
  PointHistory history = historyOf({point(1, 0, 0)});
  const StereoPoint p = smoothed(history, point(0, 0, 0, 5));
  EXPECT_EQ(p.leftX, 11);
  EXPECT_EQ(p.rightY, 12);
  EXPECT_EQ(p.diameter, 6);
  EXPECT_EQ(p.id, 5);
}

TEST(PointSmoother, SmoothsOnlyTheFirstPointOfEachIdWithThatIdsHistory) {
  std::vector<PointHistory> histories = {historyOf({point(0, 0, 0, 0)}),
                                         historyOf({point(100, 0, 0, 1)})};
  std::vector<StereoPoint> points = {point(1.5, 0, 0, 0), point(101.5, 0, 0, 1),
                                     point(98.5, 0, 0, 1)};
  smoothPoints(3.0, histories, points);
  // Each first point lies 1.5 from its history: a quarter of the way back.
  EXPECT_DOUBLE_EQ(points[0].x, 1.125);
  EXPECT_DOUBLE_EQ(points[1].x, 101.125);
  EXPECT_EQ(points[2].x, 98.5);
  ASSERT_EQ(histories[1].size(), 2u);  // of two points of id 1 only the first is remembered
  EXPECT_EQ(histories[1][1].x, 101.5);
  EXPECT_EQ(histories[0].size(), 2u);
}

TEST(PointSmoother, IdWithoutAPointLosesItsWholeHistory) {
  std::vector<PointHistory> histories = {historyOf({point(0, 0, 0, 0), point(1, 0, 0, 0)}),
                                         historyOf({point(0, 0, 0, 1), point(1, 0, 0, 1)})};
  std::vector<StereoPoint> points = {point(1, 0, 0, 1)};
  smoothPoints(3.0, histories, points);
  EXPECT_TRUE(histories[0].empty());
  EXPECT_EQ(histories[1].size(), 3u);
}

}  // namespace
