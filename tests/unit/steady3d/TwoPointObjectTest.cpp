#include <alg_factory/steady3d/TwoPointObject.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace algorithm {
namespace {

constexpr float kFactor = 1.2f;
constexpr std::int32_t kByDistance = 0;

/// Both points, with equal diameters unless given.
PointF both(TwoPointObject& object, const PointF& a, const PointF& b,
            std::int32_t hint = kByDistance, std::int32_t diameterA = 8,
            std::int32_t diameterB = 8) {
  return object.seeBoth(a, b, diameterA, diameterB, hint, kFactor);
}

void expectNear(const PointF& actual, double x, double y, double z, double tolerance = 1e-4) {
  EXPECT_NEAR(actual.x, x, tolerance);
  EXPECT_NEAR(actual.y, y, tolerance);
  EXPECT_NEAR(actual.z, z, tolerance);
}

const PointF kLeft{0, 0, 1000};
const PointF kRight{60, 0, 1000};

/// An object that has settled on the pair kLeft, kRight: last reported (30, 0, 1000).
TwoPointObject settled() {
  TwoPointObject object;
  both(object, kLeft, kRight);
  both(object, kLeft, kRight);  // the ratio's reference is set
  return object;
}

// ----------------------------------------------------------------------------- both visible

TEST(TwoPointObject, StartsFreshOnTheSecondSideWithTheRampLongOver) {
  const TwoPointObject object;
  EXPECT_TRUE(object.fresh());
  EXPECT_EQ(object.side(), PairSide::kSecond);
  EXPECT_EQ(object.rampCounter(), 10000);
  EXPECT_EQ(object.referenceRatio(), 0.0f);
}

TEST(TwoPointObject, ReportsTheMidpoint) {
  TwoPointObject object;
  expectNear(both(object, {10, 20, 1000}, {70, -40, 1100}), 40, -10, 1050);
  EXPECT_FALSE(object.fresh());
  EXPECT_EQ(object.rampCounter(), 90);
}

TEST(TwoPointObject, AFreshPairIsNotSlidTo) {
  TwoPointObject object;
  both(object, kLeft, kRight);
  object.forget();
  // Twice the spacing: a ramp would show. The counter stands at 90 and stays there.
  expectNear(both(object, {-30, 0, 1000}, {90, 0, 1000}), 30, 0, 1000);
  EXPECT_EQ(object.rampCounter(), 90);
}

// ------------------------------------------------------------------------------ one visible

TEST(TwoPointObject, HintOneMakesTheVisiblePointTheFirstOfThePair) {
  TwoPointObject object = settled();
  // Nearer to the second; with the hint it is the first: 50 + 60 / 2.
  expectNear(object.seeOne({50, 0, 1000}, 1), 80, 0, 1000);
  EXPECT_EQ(object.side(), PairSide::kFirst);
}

TEST(TwoPointObject, HintTwoMakesTheVisiblePointTheSecondOfThePair) {
  TwoPointObject object = settled();
  expectNear(object.seeOne({10, 0, 1000}, 2), -20, 0, 1000);  // 10 - 60 / 2
  EXPECT_EQ(object.side(), PairSide::kSecond);
}

TEST(TwoPointObject, AnyOtherHintTakesTheNearerRememberedPoint) {
  for (const std::int32_t hint : {0, 3, -1, 256}) {
    TwoPointObject object = settled();
    expectNear(object.seeOne({29, 0, 1000}, hint), 59, 0, 1000);
    EXPECT_EQ(object.side(), PairSide::kFirst);
    object = settled();
    expectNear(object.seeOne({31, 0, 1000}, hint), 1, 0, 1000);
    EXPECT_EQ(object.side(), PairSide::kSecond);
  }
}

TEST(TwoPointObject, NearerIsMeasuredInSpace) {
  TwoPointObject object;
  both(object, {0, 0, 1000}, {10, 50, 1100});
  both(object, {0, 0, 1000}, {10, 50, 1100});
  // x alone says the second (9 to 1); in space the first is at sqrt(81 + 4 + 9) = 9.7.
  // Reported: the visible point plus half the offset (10, 50, 100).
  expectNear(object.seeOne({9, 2, 1003}, kByDistance), 14, 27, 1053);
  EXPECT_EQ(object.side(), PairSide::kFirst);
}

TEST(TwoPointObject, ATieOfDistancesIsTheSecond) {
  TwoPointObject object = settled();
  object.seeOne(kLeft, 1);  // the side was the first before
  both(object, kLeft, kRight);
  ASSERT_EQ(object.side(), PairSide::kFirst);
  expectNear(object.seeOne({30, 7, 1000}, kByDistance), 0, 7, 1000);
  EXPECT_EQ(object.side(), PairSide::kSecond);
}

TEST(TwoPointObject, TheDecisionStaysWhileOnePointIsVisible) {
  TwoPointObject object = settled();
  expectNear(object.seeOne({10, 0, 1000}, kByDistance), 40, 0, 1000);
  // Now nearer to where the second was, but the frame before did not see both.
  expectNear(object.seeOne({55, 0, 1000}, kByDistance), 85, 0, 1000);
  EXPECT_EQ(object.side(), PairSide::kFirst);
}

TEST(TwoPointObject, AHintedDecisionStaysWhenTheHintIsTakenBack) {
  TwoPointObject object = settled();
  object.seeOne({50, 0, 1000}, 1);
  expectNear(object.seeOne({50, 0, 1000}, kByDistance), 80, 0, 1000);
  expectNear(object.seeOne({50, 0, 1000}, 2), 20, 0, 1000);
  expectNear(object.seeOne({50, 0, 1000}, kByDistance), 20, 0, 1000);
}

TEST(TwoPointObject, AFrameWithoutTheObjectDidNotSeeBoth) {
  TwoPointObject object = settled();
  object.forget();
  // Nearest to the first, but the side stays the second, as it has been from the start.
  expectNear(object.seeOne({1, 0, 1000}, kByDistance), -29, 0, 1000);
  EXPECT_EQ(object.side(), PairSide::kSecond);
}

TEST(TwoPointObject, WithNothingRememberedTheVisiblePointIsReported) {
  TwoPointObject object;
  expectNear(object.seeOne({12, 34, 1056}, kByDistance), 12, 34, 1056);
  EXPECT_EQ(object.side(), PairSide::kSecond);
  EXPECT_EQ(object.rampCounter(), 0);
  EXPECT_FALSE(object.fresh());
}

TEST(TwoPointObject, TheOffsetIsTheOneOfTheLastPairInAllAxes) {
  TwoPointObject object;
  both(object, {70, -40, 1100}, {10, 20, 1000});  // ordered by x: the second argument is the first
  expectNear(object.seeOne({10, 20, 1000}, 1), 40, -10, 1050);
  expectNear(object.seeOne({70, -40, 1100}, 2), 40, -10, 1050);
}

TEST(TwoPointObject, WithEqualXTheSecondMarkerPointIsTheFirstOfThePair) {
  TwoPointObject object;
  both(object, {10, 0, 1000}, {10, 20, 1000});
  expectNear(object.seeOne({10, 20, 1000}, 1), 10, 10, 1000);  // 20 + (0 - 20) / 2
  expectNear(object.seeOne({10, 0, 1000}, 2), 10, 10, 1000);   // 0 + (20 - 0) / 2
}

// -------------------------------------------------------------------------------------- ramp

/// Centre (0, 0, 1000), half spacing h along (1, 1/2, 1/4).
PointF end(double h) {
  return {static_cast<float>(h), static_cast<float>(h / 2), static_cast<float>(1000 + h / 4)};
}
PointF centre(TwoPointObject& object, double h, std::int32_t hint = kByDistance) {
  return both(object, end(-h), end(h), hint);
}
void expectOnAxis(const PointF& actual, double h) {
  expectNear(actual, h, h / 2, 1000 + h / 4);
}

/// The half spacing of two-point frame n: it alternates, so that the offset remembered from the
/// frame before always differs from the present one and the slide is seen in every frame.
double spacingOf(int frame) {
  return frame % 2 == 0 ? 34.0 : 30.0;
}

TEST(TwoPointObject, TheReportSlidesToTheMidpointOver90Frames) {
  TwoPointObject object;
  centre(object, spacingOf(0));
  centre(object, spacingOf(0));
  object.seeOne(end(34), 2);
  ASSERT_EQ(object.rampCounter(), 0);
  for (int c = 1; c <= 95; ++c) {
    const PointF reported = centre(object, spacingOf(c));
    // From the second point: h - h_before = -4 in odd frames, +4 in even ones.
    // (1 - c/90) of that, plus c/90 of the centre, which is 0.
    const double oneSided = c % 2 == 1 ? -4.0 : 4.0;
    SCOPED_TRACE(c);
    expectOnAxis(reported, c < 90 ? (1 - c / 90.0) * oneSided : 0.0);
    EXPECT_EQ(object.rampCounter(), std::min(c, 90));
  }
}

TEST(TwoPointObject, TheFirstFrameOfTheRampInNumbers) {
  TwoPointObject object;
  centre(object, 30);
  centre(object, 30);
  object.seeOne(end(30), 2);
  // Pair at -40 and 40; from the second, with the old offset: 40 - 30 = 10. 89/90 of 10 = 9.888889.
  expectOnAxis(centre(object, 40), 9.8888889);
  // The offset is now the new one: 44 - 40 = 4; 88/90 of 4 = 3.911111.
  expectOnAxis(centre(object, 44), 3.9111111);
}

TEST(TwoPointObject, TheRampStartsFromThePointOfTheHint) {
  TwoPointObject object;
  centre(object, 30);
  centre(object, 30);
  object.seeOne(end(30), 2);
  // From the first, with the old offset: -40 + 30 = -10.
  expectOnAxis(centre(object, 40, 1), -9.8888889);
  EXPECT_EQ(object.side(), PairSide::kFirst);
  // Without a hint the side stays: -44 + 40 = -4, of which 88/90.
  expectOnAxis(centre(object, 44, kByDistance), -3.9111111);
  // And with hint 2: 50 - 44 = 6, of which 87/90.
  expectOnAxis(centre(object, 50, 2), 5.8);
}

TEST(TwoPointObject, TheRampSelectsThePointByXNotByTheOrderOfTheMarkers) {
  TwoPointObject object;
  centre(object, 30);
  centre(object, 30);
  object.seeOne(end(30), 2);
  expectOnAxis(both(object, end(40), end(-40), kByDistance), 9.8888889);
}

TEST(TwoPointObject, TwoPointFramesDoNotDecideTheSideByDistance) {
  TwoPointObject object = settled();
  ASSERT_EQ(object.seeOne({10, 0, 1000}, kByDistance).x, 40.0f);  // the first
  both(object, kLeft, kRight);
  both(object, kLeft, kRight);
  EXPECT_EQ(object.side(), PairSide::kFirst);
}

TEST(TwoPointObject, AOnePointFrameStartsTheRampAgain) {
  TwoPointObject object = settled();
  object.seeOne(kRight, 2);
  for (int c = 1; c <= 50; ++c) both(object, kLeft, kRight);
  EXPECT_EQ(object.rampCounter(), 50);
  object.seeOne(kRight, 2);
  EXPECT_EQ(object.rampCounter(), 0);
  both(object, kLeft, kRight);
  EXPECT_EQ(object.rampCounter(), 1);
}

TEST(TwoPointObject, AbsenceLeavesTheRampWhereItIs) {
  TwoPointObject object = settled();
  object.seeOne(kRight, 2);
  for (int c = 1; c <= 5; ++c) both(object, kLeft, kRight);
  object.forget();
  EXPECT_EQ(object.rampCounter(), 5);
  both(object, kLeft, kRight);
  EXPECT_EQ(object.rampCounter(), 6);
}

TEST(TwoPointObject, AbsenceKeepsTheRememberedPair) {
  TwoPointObject object = settled();
  object.forget();
  expectNear(object.seeOne({500, 0, 1000}, 1), 530, 0, 1000);
}

// -------------------------------------------------------------------------------- ratio test

/// Moves the pair by `dx` and reports whether the object followed.
class Ratio : public testing::Test {
 protected:
  /// Fresh frame without a test, then the first test, which fails and sets the reference.
  void start(std::int32_t diameterA, std::int32_t diameterB) {
    step(diameterA, diameterB);
    ASSERT_FALSE(step(diameterA, diameterB));
  }
  bool step(std::int32_t diameterA, std::int32_t diameterB) {
    const float before = object_.guard().lastAccepted().x;
    shift_ += 1.0f;
    const PointF reported =
        both(object_, {shift_, 0, 1000}, {shift_ + 60, 0, 1000}, kByDistance, diameterA, diameterB);
    const bool followed = reported.x == shift_ + 30;
    EXPECT_EQ(reported.x, followed ? shift_ + 30 : before) << "held is exactly the position before";
    return followed;
  }

  TwoPointObject object_;
  float shift_ = 0;
};

TEST_F(Ratio, AFreshObjectIsNotTestedAndSetsNoReference) {
  EXPECT_TRUE(step(20, 10));
  EXPECT_EQ(object_.referenceRatio(), 0.0f);
}

TEST_F(Ratio, TheFirstTestedFrameIsHeldAndSetsTheReference) {
  step(20, 10);
  EXPECT_FALSE(step(20, 10));  // 2 / 0 is infinite
  EXPECT_EQ(object_.referenceRatio(), 2.0f);
  EXPECT_TRUE(step(20, 10));
}

TEST_F(Ratio, HoldsUpToTheFactorAndFailsAboveIt) {
  start(20, 10);
  EXPECT_TRUE(step(24, 10));  // 2.4 / 2 = 1.2: not above
  EXPECT_FALSE(step(25, 10));
  EXPECT_EQ(object_.referenceRatio(), 2.5f);
}

TEST_F(Ratio, HoldsDownToTheInverseOfTheFactorAndFailsBelowIt) {
  start(20, 10);
  EXPECT_TRUE(step(5, 3));  // (5/3) / 2 = 1 / 1.2: not below
  EXPECT_TRUE(step(17, 10));
  EXPECT_FALSE(step(33, 20));  // 0.825
  EXPECT_EQ(object_.referenceRatio(), 1.65f);
}

TEST_F(Ratio, ASlowDriftWithinTheFactorIsNeverFollowed) {
  start(20, 10);
  for (const std::int32_t diameter : {21, 22, 23, 24}) {
    EXPECT_TRUE(step(diameter, 10)) << diameter;
    EXPECT_EQ(object_.referenceRatio(), 2.0f);
  }
  // Only 1.04 times the frame before, but 1.25 times the reference.
  EXPECT_FALSE(step(25, 10));
  EXPECT_TRUE(step(25, 10));
}

TEST_F(Ratio, DividesTheFirstMarkersDiameterByTheSeconds) {
  start(6, 12);
  EXPECT_EQ(object_.referenceRatio(), 0.5f);
}

TEST_F(Ratio, IsSinglePrecision) {
  start(10, 3);
  EXPECT_EQ(object_.referenceRatio(), 10.0f / 3.0f);
}

TEST_F(Ratio, TwoZeroDiametersPassAndLeaveTheReference) {
  start(20, 10);
  EXPECT_TRUE(step(0, 0));  // 0 / 0 is no number, which no comparison refuses
  EXPECT_EQ(object_.referenceRatio(), 2.0f);
}

TEST_F(Ratio, AZeroSecondDiameterFailsAndMakesTheReferenceInfinite) {
  start(20, 10);
  EXPECT_FALSE(step(10, 0));
  EXPECT_EQ(object_.referenceRatio(), std::numeric_limits<float>::infinity());
  EXPECT_TRUE(step(10, 0));    // infinite / infinite is no number
  EXPECT_FALSE(step(20, 10));  // 2 / infinite is 0
  EXPECT_EQ(object_.referenceRatio(), 2.0f);
}

TEST_F(Ratio, AZeroFirstDiameterFailsAndMakesTheReferenceZero) {
  start(20, 10);
  EXPECT_FALSE(step(0, 10));
  EXPECT_EQ(object_.referenceRatio(), 0.0f);
  EXPECT_TRUE(step(0, 10));  // 0 / 0
  EXPECT_FALSE(step(20, 10));
}

TEST_F(Ratio, TwoZeroDiametersInTheFirstTestedFrameLeaveTheReferenceUnset) {
  step(0, 0);
  EXPECT_TRUE(step(0, 0));
  EXPECT_EQ(object_.referenceRatio(), 0.0f);
  EXPECT_FALSE(step(20, 10));
}

TEST_F(Ratio, AHeldFrameIsNoRejectedJump) {
  start(20, 10);
  step(10, 10);
  EXPECT_EQ(object_.guard().rejectCount(), 0);
}

TEST_F(Ratio, AHeldFrameStillRemembersItsPair) {
  start(20, 10);                                          // pair at 2 and 62
  both(object_, {0, 0, 1000}, {80, 0, 1000}, 0, 10, 10);  // held, spacing 80
  expectNear(object_.seeOne({0, 0, 1000}, 1), 40, 0, 1000);
}

TEST_F(Ratio, AbsenceSkipsOneTestAndKeepsTheReference) {
  start(20, 10);
  object_.forget();
  EXPECT_TRUE(step(60, 10));
  EXPECT_EQ(object_.referenceRatio(), 2.0f);
  EXPECT_FALSE(step(60, 10));
}

TEST_F(Ratio, AOnePointFrameConsumesTheFreshness) {
  object_.seeOne({30, 0, 1000}, kByDistance);
  EXPECT_FALSE(step(20, 10));  // tested, against the reference 0
}

TEST_F(Ratio, OnePointFramesAreNotTested) {
  start(20, 10);
  object_.seeOne({0, 0, 1000}, 1);
  EXPECT_EQ(object_.referenceRatio(), 2.0f);
}

// --------------------------------------------------------------------------------- jump test

PointF midpointAt(TwoPointObject& object, float x) {
  return both(object, {x - 30, 0, 1000}, {x + 30, 0, 1000});
}

TEST(TwoPointObject, AJumpOf150IsAcceptedALongerOneHeld) {
  TwoPointObject object = settled();  // at 30
  EXPECT_EQ(midpointAt(object, 180).x, 180.0f);
  EXPECT_EQ(midpointAt(object, 330.001f).x, 180.0f);
  EXPECT_EQ(object.guard().rejectCount(), 1);
}

TEST(TwoPointObject, TheReconstructionIsJumpTestedToo) {
  TwoPointObject object = settled();  // at 30
  // The visible point is 149 away, the reconstruction 149 + 30.
  expectNear(object.seeOne({179, 0, 1000}, 1), 30, 0, 1000);
  EXPECT_EQ(object.guard().rejectCount(), 1);
  // 210 is out of reach for the point itself, its reconstruction at 180 is not.
  expectNear(object.seeOne({210, 0, 1000}, 2), 180, 0, 1000);
}

TEST(TwoPointObject, AfterAHundredRejectionsTheNextFrameIsAccepted) {
  TwoPointObject object = settled();
  for (int i = 1; i <= 100; ++i) {
    // Both kinds of frame count together.
    const PointF held = i % 2 == 0 ? midpointAt(object, 1000) : object.seeOne({1000, 0, 1000}, 2);
    ASSERT_EQ(held.x, 30.0f) << "rejection " << i;
  }
  EXPECT_EQ(object.guard().rejectCount(), 100);
  expectNear(object.seeOne({1000, 0, 1000}, 2), 970, 0, 1000);
  EXPECT_EQ(object.guard().rejectCount(), 0);
  expectNear(object.seeOne({0, 0, 1000}, 2), 970, 0, 1000);
}

TEST(TwoPointObject, TheUntestedFrameStillHasItsRatioTested) {
  TwoPointObject object = settled();
  for (int i = 1; i <= 100; ++i) midpointAt(object, 1000);
  const PointF held = both(object, {970, 0, 1000}, {1030, 0, 1000}, kByDistance, 16, 8);
  EXPECT_EQ(held.x, 30.0f);
  // The held position used the untested frame up.
  EXPECT_EQ(object.guard().rejectCount(), 0);
  EXPECT_EQ(both(object, {970, 0, 1000}, {1030, 0, 1000}, kByDistance, 16, 8).x, 30.0f);
  EXPECT_EQ(object.guard().rejectCount(), 1);
}

TEST(TwoPointObject, ReappearingIsNoJump) {
  TwoPointObject object = settled();
  object.forget();
  EXPECT_TRUE(object.fresh());
  EXPECT_EQ(midpointAt(object, 2000).x, 2000.0f);
}

TEST(BearingOf, IsTheUnsignedHorizontalAngleFromTheAxis) {
  EXPECT_EQ(bearingOf({0, 500, 1000}), 0.0f);
  EXPECT_NEAR(bearingOf({1000, 500, 1000}), 45, 1e-5);
  EXPECT_NEAR(bearingOf({-1000, 500, 1000}), 45, 1e-5);
  EXPECT_NEAR(bearingOf({1000, 0, -1000}), 45, 1e-5);
  EXPECT_NEAR(bearingOf({500, -7, 866.025404f}), 30, 1e-5);  // tan 30 = 0.57735
  EXPECT_NEAR(bearingOf({5, 0, 0}), 90, 1e-5);
}

}  // namespace
}  // namespace algorithm
