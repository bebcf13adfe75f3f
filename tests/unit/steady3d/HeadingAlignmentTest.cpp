#include <alg_factory/steady3d/HeadingAlignment.h>

#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <Eigen/Geometry>

namespace algorithm {
namespace {

using testing::Each;
using testing::ElementsAre;
using Point = HeadingAlignment::TaggedPoint;

constexpr double kDegree = 3.14159265358979323846 / 180.0;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

float justBelow(float v) {
  return std::nextafter(v, 0.0f);
}

/// A pair of the given spacing and heading: heading = -atan2(dz, dx).
void addHeading(HeadingAlignment& record, double heading, double spacing = 68.0) {
  const Point a{0, 0, 1, 2};
  const Point b{0, static_cast<float>(spacing * std::cos(heading * kDegree)), 1,
                static_cast<float>(2 - spacing * std::sin(heading * kDegree))};
  record.addPair(a, b);
}

// ---------------------------------------------------------------------------------- atan2Deg

TEST(Atan2Deg, IsExactOnTheAxes) {
  EXPECT_EQ(atan2Deg(0.0f, 1.0f), 0.0f);
  EXPECT_EQ(atan2Deg(1.0f, 0.0f), 90.0f);
  EXPECT_EQ(atan2Deg(-1.0f, 0.0f), -90.0f);
  EXPECT_EQ(atan2Deg(0.0f, 0.0f), 0.0f);
}

TEST(Atan2Deg, GivesMinus180AndNeverPlus180) {
  EXPECT_EQ(atan2Deg(0.0f, -1.0f), -180.0f);
  EXPECT_EQ(atan2Deg(-0.0f, -1.0f), -180.0f);
}

TEST(Atan2Deg, FollowsItsPolynomialOnTheDiagonals) {
  // t = 1: 57.283627 - 18.667446 + 8.9140005 - 2.5397246 = 44.9904569, not 45.
  EXPECT_NEAR(atan2Deg(1, 1), 44.9904569, 1e-5);
  EXPECT_NEAR(atan2Deg(1, -1), 180 - 44.9904569, 2e-5);
  EXPECT_NEAR(atan2Deg(-1, -1), 44.9904569 - 180, 4e-5);
  EXPECT_NEAR(atan2Deg(-1, 1), -44.9904569, 4e-5);
}

TEST(Atan2Deg, FollowsItsPolynomialOnBothSidesOfTheDiagonal) {
  // t = 1/2, t^2 = 1/4: 8.9140005 - 0.63493115 = 8.27906935; * 1/4 - 18.667446 = -16.5976786625;
  // * 1/4 + 57.283627 = 53.134207334375; * 1/2 = 26.5671036671875.
  EXPECT_NEAR(atan2Deg(1, 2), 26.5671036671875, 1e-5);
  EXPECT_NEAR(atan2Deg(2, 1), 90 - 26.5671036671875, 1e-5);
}

TEST(Atan2Deg, StaysNearTheArctangentAndInsideItsRange) {
  for (double degree = -180; degree < 180; degree += 0.125) {
    for (const double radius : {1e-3, 1.0, 500.0}) {
      const auto y = static_cast<float>(radius * std::sin(degree * kDegree));
      const auto x = static_cast<float>(radius * std::cos(degree * kDegree));
      const float result = atan2Deg(y, x);
      ASSERT_GE(result, -180.0f);
      ASSERT_LT(result, 180.0f);
      // At the seam either end is right.
      const double off = std::remainder(result - degree, 360.0);
      ASSERT_NEAR(off, 0.0, 0.0096) << degree << " degrees, radius " << radius;
    }
  }
}

TEST(AsinDeg, ClampsAndTakesNotANumberAsZero) {
  EXPECT_EQ(asinDeg(kNaN), 0.0f);
  EXPECT_EQ(asinDeg(1.0f), 90.0f);
  EXPECT_EQ(asinDeg(1.5f), 90.0f);
  EXPECT_EQ(asinDeg(-1.0f), -90.0f);
  EXPECT_EQ(asinDeg(-7.0f), -90.0f);
  EXPECT_EQ(asinDeg(0.0f), 0.0f);
  EXPECT_NEAR(asinDeg(0.5f), 30.0, 1e-5);
  EXPECT_NEAR(asinDeg(-0.5f), -30.0, 1e-5);
}

// -------------------------------------------------------------------------------- meanHeading

TEST(MeanHeading, DividesBy30EvenWhileFewerAreHeld) {
  EXPECT_NEAR(meanHeading({20}), 20.0 / 30, 1e-6);
  EXPECT_NEAR(meanHeading({15, -45}), -1.0, 1e-6);  // -30 / 30
  EXPECT_NEAR(meanHeading(std::vector<float>(30, 12.0f)), 12.0, 1e-5);
}

TEST(MeanHeading, AveragesAcrossTheSeam) {
  EXPECT_EQ(meanHeading({170, -170}), 180.0f);  // (10 - 10) / 30 below 180
  EXPECT_EQ(meanHeading({-170, 170}), 180.0f);
  EXPECT_NEAR(meanHeading({170}), 180 - 10.0 / 30, 1e-4);
  EXPECT_NEAR(meanHeading({-170}), -180 + 10.0 / 30, 1e-4);
  EXPECT_NEAR(meanHeading(std::vector<float>(30, 175.0f)), 175.0, 1e-4);
  EXPECT_NEAR(meanHeading(std::vector<float>(30, -175.0f)), -175.0, 1e-4);
}

TEST(MeanHeading, TheNewestOrTheOldestHeadingDecidesWhetherTheSeamIsNear) {
  EXPECT_NEAR(meanHeading({100, 161}), 180 - (80 + 19) / 30.0, 1e-4);  // newest
  EXPECT_NEAR(meanHeading({161, 100}), 180 - (19 + 80) / 30.0, 1e-4);  // oldest
  EXPECT_NEAR(meanHeading({100, -161}), 180 - (80 - 19) / 30.0, 1e-4);
  EXPECT_NEAR(meanHeading({-161, 100}), 180 - (-19 + 80) / 30.0, 1e-4);
  EXPECT_NEAR(meanHeading({100, 170, 100}), 370.0 / 30, 1e-4);  // one in the middle does not count
}

TEST(MeanHeading, AHeadingOfExactly160IsNotNearTheSeam) {
  EXPECT_NEAR(meanHeading({160}), 160.0 / 30, 1e-5);
  EXPECT_NEAR(meanHeading({-160}), -160.0 / 30, 1e-5);
  EXPECT_NEAR(meanHeading({std::nextafter(160.0f, 180.0f)}), 180 - 20.0 / 30, 1e-4);
}

TEST(MeanHeading, CountsZeroToTheNegativeSideOfTheSeam) {
  // 19 - (0 + 180) = -161: -180 + 161 / 30
  EXPECT_NEAR(meanHeading({161, 0}), -180 + 161.0 / 30, 1e-4);
}

// ----------------------------------------------------------------------------- alignmentScore

double scoreOfMean(float mean) {
  return 100.0 * alignmentScore(mean, 0, 68);
}
double scoreOfSpread(float spread) {
  return 100.0 * alignmentScore(0, spread, 68);
}
double scoreOfDistance(float distance) {
  return 100.0 * alignmentScore(0, 0, distance);
}

TEST(AlignmentScore, IsExactlyOneForAPerfectPair) {
  EXPECT_EQ(alignmentScore(0, 0, 68), 1.0f);
}

TEST(AlignmentScore, FallsWithTheHeadingAtItsBreakPoints) {
  EXPECT_NEAR(scoreOfMean(5), 95, 1e-4);
  EXPECT_NEAR(scoreOfMean(justBelow(10)), 90, 1e-4);
  EXPECT_NEAR(scoreOfMean(10), 90, 1e-4);
  EXPECT_NEAR(scoreOfMean(15), 80, 1e-4);  // 90 - 2 * 5
  EXPECT_NEAR(scoreOfMean(justBelow(20)), 70, 1e-4);
  EXPECT_NEAR(scoreOfMean(20), 70, 1e-4);
  EXPECT_NEAR(scoreOfMean(30), 40, 1e-4);  // 70 - 3 * 10
  EXPECT_EQ(scoreOfMean(45), 0.0);
  EXPECT_EQ(scoreOfMean(180), 0.0);
}

TEST(AlignmentScore, IsNegativeJustBelow45DegreesOfHeading) {
  EXPECT_NEAR(scoreOfMean(justBelow(45)), -5, 1e-3);  // 70 - 3 * 25
}

TEST(AlignmentScore, DoesNotCareForTheSignOfTheHeading) {
  for (const float mean : {5.0f, 15.0f, 30.0f, 45.0f}) {
    EXPECT_EQ(scoreOfMean(-mean), scoreOfMean(mean)) << mean;
  }
}

TEST(AlignmentScore, FallsWithTheSpreadAtItsBreakPoints) {
  EXPECT_NEAR(scoreOfSpread(1), 99.75, 1e-4);
  EXPECT_NEAR(scoreOfSpread(justBelow(2)), 99.5, 1e-4);
  EXPECT_NEAR(scoreOfSpread(2), 95, 1e-4);
  EXPECT_NEAR(scoreOfSpread(6), 87.88, 1e-4);              // 95 - 1.78 * 4
  EXPECT_NEAR(scoreOfSpread(justBelow(10)), 80.76, 1e-4);  // 95 - 1.78 * 8
  EXPECT_EQ(scoreOfSpread(10), 0.0);
}

TEST(AlignmentScore, FallsWithTheDistanceFrom68AtItsBreakPoints) {
  for (const float side : {-1.0f, 1.0f}) {
    EXPECT_NEAR(scoreOfDistance(68 + side * 1), 97.5, 1e-4);
    EXPECT_NEAR(scoreOfDistance(68 + side * 1.9990f), 95.0025, 1e-3);
    EXPECT_NEAR(scoreOfDistance(68 + side * 2), 95, 1e-4);
    EXPECT_NEAR(scoreOfDistance(68 + side * 4), 85, 1e-4);            // 95 - 5 * 2
    EXPECT_NEAR(scoreOfDistance(68 + side * 4.9990f), 80.005, 1e-3);  // 95 - 5 * 2.999
    EXPECT_EQ(scoreOfDistance(68 + side * 5), 0.0);
  }
}

TEST(AlignmentScore, MultipliesTheThreeScores) {
  // heading 15: 80, spread 6: 87.88, distance 72: 85; 80 * 87.88 * 85 * 100 / 1e8
  EXPECT_NEAR(alignmentScore(15, 6, 72), 0.597584, 1e-6);
}

// ----------------------------------------------------------------------------------- addPair

TEST(HeadingAlignment, StartsWithNothing) {
  const HeadingAlignment record;
  EXPECT_FALSE(record.hasResult);
  EXPECT_FALSE(record.hasOrientation);
  EXPECT_TRUE(record.headingHistory.empty());
  EXPECT_TRUE(record.distanceHistory.empty());
}

TEST(HeadingAlignment, APerfectPairScoresOne) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
  EXPECT_TRUE(record.hasResult);
  EXPECT_EQ(record.pairDistance, 68.0f);
  EXPECT_EQ(record.score, 1.0f);
  EXPECT_EQ(record.yawOffset, 0.0f);
}

TEST(HeadingAlignment, ThePointWithTheSmallerXComesFirst) {
  HeadingAlignment record;
  record.addPair({7, 50, 1, 2}, {8, -10, 3, 4});
  EXPECT_EQ(record.pointA.x, -10.0f);
  EXPECT_EQ(record.pointA.y, 3.0f);
  EXPECT_EQ(record.pointA.z, 4.0f);
  EXPECT_EQ(record.pointA.tag, 8.0f);
  EXPECT_EQ(record.pointB.x, 50.0f);
  EXPECT_EQ(record.pointB.tag, 7.0f);
  record.addPair({7, -20, 1, 2}, {8, -10, 3, 4});
  EXPECT_EQ(record.pointA.x, -20.0f);
  EXPECT_EQ(record.pointB.x, -10.0f);
}

TEST(HeadingAlignment, TheSecondPointComesFirstWhenBothHaveTheSameX) {
  HeadingAlignment record;
  record.addPair({7, 5, 1, 2}, {8, 5, 3, 4});
  EXPECT_EQ(record.pointA.tag, 8.0f);
  EXPECT_EQ(record.pointB.tag, 7.0f);
}

TEST(HeadingAlignment, ThePairDistanceUsesAllThreeAxes) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 2, 4, 8});
  EXPECT_EQ(record.pairDistance, 7.0f);  // sqrt(4 + 9 + 36)
  EXPECT_THAT(record.distanceHistory, ElementsAre(7.0f));
}

TEST(HeadingAlignment, TheHeadingIsMinusTheAngleFromXToZOfTheOrderedPair) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 10, 1, 12});  // dz = dx
  record.addPair({0, 0, 1, 2}, {0, 10, 1, -8});  // dz = -dx
  record.addPair({0, 10, 1, -8}, {0, 0, 1, 2});  // the same pair the other way round
  record.addPair({0, 0, 1, 2}, {0, 0, 1, 12});   // equal x: from the second point to the first
  ASSERT_EQ(record.headingHistory.size(), 4u);
  EXPECT_NEAR(record.headingHistory[0], -45, 1e-5);
  EXPECT_NEAR(record.headingHistory[1], 45, 1e-5);
  EXPECT_NEAR(record.headingHistory[2], 45, 1e-5);
  EXPECT_NEAR(record.headingHistory[3], 90, 1e-5);
}

TEST(HeadingAlignment, TheHeadingUsesTheTrueArctangent) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 2, 1, 1});
  // atan(1/2) = 26.5650512 degrees; the polynomial would give 26.5671.
  EXPECT_NEAR(record.headingHistory.back(), 26.5650512, 1e-5);
}

TEST(HeadingAlignment, APairWhoseFirstPointHasTwoEqualCoordinatesIsIgnoredEntirely) {
  HeadingAlignment record;
  record.addPair({1, 0, 1, 2}, {2, 68, 1, 2});
  record.hasResult = false;
  const Point other{9, 30, 40, 50};
  for (const Point& placeholder : {Point{3, 5, 5, 9}, Point{3, 5, 9, 5}, Point{3, 9, 5, 5}}) {
    record.addPair(placeholder, other);
    EXPECT_EQ(record.pointA.tag, 1.0f);
    EXPECT_EQ(record.pointB.tag, 2.0f);
    EXPECT_EQ(record.pairDistance, 68.0f);
    EXPECT_EQ(record.distanceHistory.size(), 1u);
    EXPECT_EQ(record.headingHistory.size(), 1u);
    EXPECT_FALSE(record.hasResult);
  }
}

TEST(HeadingAlignment, OnlyTheFirstPointIsLookedAtForEqualCoordinates) {
  HeadingAlignment record;
  const Point good{9, 30, 40, 50};
  record.addPair(good, {3, 5, 5, 9});
  record.addPair(good, {3, 5, 9, 5});
  record.addPair(good, {3, 9, 5, 5});
  EXPECT_EQ(record.headingHistory.size(), 3u);
}

TEST(HeadingAlignment, KeepsTheLast10DistancesAnd30Headings) {
  HeadingAlignment record;
  // Heading of pair n: -atan2(n, 100); distance sqrt(100^2 + n^2), both strictly monotonic.
  const auto headingOf = [](int n) { return -std::atan2(n, 100.0) / kDegree; };
  for (int n = 1; n <= 34; ++n) {
    record.addPair({0, 0, 1, 2}, {0, 100, 1, static_cast<float>(2 + n)});
    EXPECT_EQ(record.distanceHistory.size(), static_cast<std::size_t>(std::min(n, 10)));
    EXPECT_EQ(record.headingHistory.size(), static_cast<std::size_t>(std::min(n, 30)));
  }
  EXPECT_NEAR(record.headingHistory.front(), headingOf(5), 1e-5);
  EXPECT_NEAR(record.headingHistory.back(), headingOf(34), 1e-5);
  EXPECT_NEAR(record.distanceHistory.front(), std::hypot(100.0, 25.0), 1e-4);
  EXPECT_NEAR(record.distanceHistory.back(), std::hypot(100.0, 34.0), 1e-4);
}

TEST(HeadingAlignment, TheOffsetIsTheYawMinusTheMeanHeadingThatGrowsIn) {
  HeadingAlignment record;
  record.yaw = 50;
  addHeading(record, 20);
  EXPECT_NEAR(record.yawOffset, 50 - 20.0 / 30, 1e-4);
  addHeading(record, 20);
  EXPECT_NEAR(record.yawOffset, 50 - 40.0 / 30, 1e-4);
  for (int n = 3; n <= 40; ++n) addHeading(record, 20);
  EXPECT_NEAR(record.yawOffset, 30, 1e-4);
}

TEST(HeadingAlignment, TheScoreTakesTheLargestDeviationFromTheMean) {
  HeadingAlignment record;
  addHeading(record, 6);
  // mean 0.2, spread 5.8: heading 99.8, stability 95 - 1.78 * 3.8 = 88.236, distance 100
  EXPECT_NEAR(record.score, 0.998 * 0.88236, 1e-5);
  addHeading(record, -3);
  // mean 0.1, deviations 5.9 and 3.1: heading 99.9, stability 95 - 1.78 * 3.9 = 88.058
  EXPECT_NEAR(record.score, 0.999 * 0.88058, 1e-5);
  addHeading(record, -9);
  // mean -0.2, deviations 6.2, 2.8 and 8.8: stability 95 - 1.78 * 6.8 = 82.896
  EXPECT_NEAR(record.score, 0.998 * 0.82896, 1e-5);
}

TEST(HeadingAlignment, TheScoreTakesTheDistanceOfTheLastPairOnly) {
  HeadingAlignment record;
  addHeading(record, 0, 100);
  EXPECT_EQ(record.score, 0.0f);
  addHeading(record, 0, 69);
  EXPECT_NEAR(record.score, 0.975, 1e-5);
}

TEST(HeadingAlignment, ARollOf10OrMoreGivesNoResult) {
  for (const float roll : {10.0f, -10.0f, 90.0f, kNaN}) {
    HeadingAlignment record;
    record.yaw = 50;
    record.roll = roll;
    record.yawOffset = 7;
    record.score = 0.5f;
    record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
    EXPECT_FALSE(record.hasResult) << roll;
    EXPECT_EQ(record.yawOffset, 7.0f);
    EXPECT_EQ(record.score, 0.5f);
    // The pair itself is taken.
    EXPECT_EQ(record.pairDistance, 68.0f);
    EXPECT_EQ(record.headingHistory.size(), 1u);
  }
}

TEST(HeadingAlignment, ARollOf10KeepsAResultThatIsWaiting) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
  record.roll = 10;
  record.addPair({0, 0, 1, 2}, {0, 60, 1, 2});
  EXPECT_TRUE(record.hasResult);
  EXPECT_EQ(record.score, 1.0f);
}

TEST(HeadingAlignment, ARollJustBelow10GivesAResult) {
  for (const float roll : {justBelow(10), -justBelow(10)}) {
    HeadingAlignment record;
    record.roll = roll;
    record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
    EXPECT_TRUE(record.hasResult) << roll;
  }
}

// ----------------------------------------------------------------------------- setOrientation

void orient(HeadingAlignment& record, const float (&q)[4]) {
  record.setOrientation(q);
}

TEST(HeadingAlignment, KeepsTheOrientationAsReceived) {
  HeadingAlignment record;
  orient(record, {0.5f, -2.0f, 3.0f, 4.0f});  // not normalised either
  EXPECT_THAT(record.orientation, ElementsAre(0.5f, -2.0f, 3.0f, 4.0f));
  EXPECT_TRUE(record.hasOrientation);
  EXPECT_FALSE(record.hasResult);
}

TEST(HeadingAlignment, TurnsAboutOneAxisGiveOneAngle) {
  const auto s = static_cast<float>(std::sin(15 * kDegree));
  const auto c = static_cast<float>(std::cos(15 * kDegree));
  HeadingAlignment record;
  orient(record, {c, s, 0, 0});
  EXPECT_NEAR(record.roll, 30, 0.02);
  EXPECT_NEAR(record.pitch, 0, 1e-5);
  EXPECT_NEAR(record.yaw, 0, 0.02);
  orient(record, {c, 0, s, 0});
  EXPECT_NEAR(record.roll, 0, 0.02);
  EXPECT_NEAR(record.pitch, -30, 1e-4);
  EXPECT_NEAR(record.yaw, 0, 0.02);
  orient(record, {c, 0, 0, s});
  EXPECT_NEAR(record.roll, 0, 0.02);
  EXPECT_NEAR(record.pitch, 0, 1e-5);
  EXPECT_NEAR(record.yaw, -30, 0.02);
}

TEST(HeadingAlignment, TheAnglesAreThoseOfTheRotationMatrix) {
  // R = Rz(yaw) Ry(pitch) Rx(roll) of the rotation, yaw and pitch reported with the sign turned.
  for (const double yaw : {-170.0, -60.0, 10.0, 130.0}) {
    for (const double pitch : {-80.0, -20.0, 45.0}) {
      for (const double roll : {-150.0, -5.0, 70.0}) {
        const Eigen::Quaterniond q(Eigen::AngleAxisd(yaw * kDegree, Eigen::Vector3d::UnitZ()) *
                                   Eigen::AngleAxisd(pitch * kDegree, Eigen::Vector3d::UnitY()) *
                                   Eigen::AngleAxisd(roll * kDegree, Eigen::Vector3d::UnitX()));
        HeadingAlignment record;
        orient(record, {static_cast<float>(q.w()), static_cast<float>(q.x()),
                        static_cast<float>(q.y()), static_cast<float>(q.z())});
        // The arctangents are good to 0.02 degrees, the arcsine to single precision.
        EXPECT_NEAR(record.yaw, -yaw, 0.02);
        EXPECT_NEAR(record.pitch, -pitch, 1e-3);
        EXPECT_NEAR(record.roll, roll, 0.02);
      }
    }
  }
}

// --------------------------------------------------------------------------------- read-outs

TEST(HeadingAlignment, ReadsNothingWithoutAnOrientation) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
  float angles[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(record.readAngles(angles), -1);
  EXPECT_THAT(angles, Each(9.0f));
  float turned[4] = {9, 9, 9, 9};
  EXPECT_EQ(record.readCorrectedOrientation(turned), -1);
  EXPECT_THAT(turned, Each(9.0f));
  EXPECT_TRUE(record.hasResult);  // a refused read-out does not use the result up
}

TEST(HeadingAlignment, ReadsTheAnglesInOrder) {
  HeadingAlignment record;
  record.yaw = 1;
  record.pitch = 2;
  record.roll = 3;
  record.yawOffset = 40;
  record.pairDistance = 5;
  record.score = 6;
  record.hasOrientation = true;
  float angles[6];
  EXPECT_EQ(record.readAngles(angles), 0);
  EXPECT_THAT(angles, ElementsAre(1, 2, 3, -39, 5, 6));
}

TEST(HeadingAlignment, AReadOutDeliversAResultOnce) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
  orient(record, {1, 0, 0, 0});
  float angles[6];
  EXPECT_EQ(record.readAngles(angles), 1);
  EXPECT_FALSE(record.hasResult);
  EXPECT_FALSE(record.hasOrientation);
  EXPECT_EQ(record.readAngles(angles), -1);
  orient(record, {1, 0, 0, 0});
  EXPECT_EQ(record.readAngles(angles), 0);
}

TEST(HeadingAlignment, TheTwoReadOutsShareTheirFlags) {
  HeadingAlignment record;
  record.addPair({0, 0, 1, 2}, {0, 68, 1, 2});
  orient(record, {1, 0, 0, 0});
  float turned[4];
  EXPECT_EQ(record.readCorrectedOrientation(turned), 1);
  EXPECT_FALSE(record.hasResult);
  EXPECT_FALSE(record.hasOrientation);
  float angles[6];
  EXPECT_EQ(record.readAngles(angles), -1);
  orient(record, {1, 0, 0, 0});
  EXPECT_EQ(record.readCorrectedOrientation(turned), 0);
}

/// The stored orientation after a read-out with the given offset.
Eigen::Vector4f corrected(float yawOffset, const float (&q)[4]) {
  HeadingAlignment record;
  record.setOrientation(q);
  record.yawOffset = yawOffset;
  Eigen::Vector4f out;
  float turned[4];
  record.readCorrectedOrientation(turned);
  for (int i = 0; i < 4; ++i) out[i] = turned[i];
  return out;
}

Eigen::Vector4f asVector(const Eigen::Quaternionf& q) {
  return {q.w(), q.x(), q.y(), q.z()};
}

Eigen::Quaternionf aboutVertical(double degrees) {
  return Eigen::Quaternionf(
      Eigen::AngleAxisf(static_cast<float>(degrees * kDegree), Eigen::Vector3f::UnitY()));
}

TEST(HeadingAlignment, TurnsAnUprightOrientationAboutTheVerticalAxis) {
  const float upright[4] = {0.8f, 0.0f, 0.6f, 0.0f};
  const Eigen::Quaternionf q(0.8f, 0.0f, 0.6f, 0.0f);
  for (const float offset : {-170.0f, -30.0f, 0.0f, 12.5f, 90.0f}) {
    const auto expected = asVector(aboutVertical(offset) * q);
    EXPECT_LT((corrected(offset, upright) - expected).norm(), 1e-6f) << offset;
  }
}

TEST(HeadingAlignment, TurnsInTheWorldFrameWhileQ3IsZero) {
  const float leaning[4] = {0.5f, 0.7f, -0.1f, 0.0f};
  const Eigen::Quaternionf q(0.5f, 0.7f, -0.1f, 0.0f);
  for (const float offset : {-100.0f, 20.0f, 150.0f}) {
    const auto expected = asVector(aboutVertical(offset) * q);
    const Eigen::Vector4f out = corrected(offset, leaning);
    EXPECT_LT((out - expected).norm(), 1e-6f) << offset;
  }
}

TEST(HeadingAlignment, TheSecondElementHasTheOtherSignThanARotationWould) {
  // A turn in the world frame would give c q1 + s q3; the read-out subtracts (kept: hosts undo it).
  const float general[4] = {0.5f, 0.5f, 0.5f, 0.5f};
  const Eigen::Vector4f out = corrected(60, general);  // c = cos 30, s = sin 30
  const double c = std::sqrt(3.0) / 2, s = 0.5;
  EXPECT_NEAR(out[0], 0.5 * (c - s), 1e-6);
  EXPECT_NEAR(out[1], 0.5 * (c - s), 1e-6);
  EXPECT_NEAR(out[2], 0.5 * (s + c), 1e-6);
  EXPECT_NEAR(out[3], 0.5 * (c - s), 1e-6);
  const auto turned = asVector(aboutVertical(60) * Eigen::Quaternionf(0.5f, 0.5f, 0.5f, 0.5f));
  EXPECT_NEAR(out[1] - turned[1], -2 * s * 0.5, 1e-6);
}

TEST(HeadingAlignment, EveryElementOfTheTurnedOrientationHasItsOwnSources) {
  // Offset 180: c = 0, s = 1, so that out = (-q2, -q3, q0, -q1).
  const Eigen::Vector4f out = corrected(180, {1, 2, 3, 4});
  EXPECT_NEAR(out[0], -3, 1e-5);
  EXPECT_NEAR(out[1], -4, 1e-5);
  EXPECT_NEAR(out[2], 1, 1e-5);
  EXPECT_NEAR(out[3], -2, 1e-5);
}

}  // namespace
}  // namespace algorithm
