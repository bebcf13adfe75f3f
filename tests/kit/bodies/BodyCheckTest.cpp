#include <alg_kit/bodies/BodyCheck.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>

#include <utility>

namespace {

using bodies::Body;
using bodies::FramePoints;
using bodies::ShapeCheck;
using testing_support::firstMarkers;
using testing_support::kNoise;
using testing_support::sixMarkers;

constexpr double kTolerance = 1;

std::vector<FramePoints> framesOf(const Body& body, std::uint64_t seed) {
  sim::Random random(seed);
  std::vector<FramePoints> frames;
  for (int i = 0; i < 200; ++i)
    frames.push_back(testing_support::pointsIn(
        testing_support::seen(body, testing_support::drawMotion(random), kNoise, random), kNoise));
  return frames;
}

TEST(BodyCheck, SameShapeIsTheSame) {
  const ShapeCheck check = bodies::checkShape(sixMarkers(), framesOf(sixMarkers(), 1), kTolerance);
  EXPECT_TRUE(check.same);
  for (const bodies::MarkerShift& marker : check.markers) {
    EXPECT_TRUE(marker.seen);
    EXPECT_FALSE(marker.moved);
    EXPECT_LT(marker.shift, 0.5);
  }
}

TEST(BodyCheck, MovedMarkerIsNamedWithItsShift) {
  for (std::size_t wrong = 0; wrong < 6; ++wrong) {
    Body bent = sixMarkers();
    bent.markers[wrong].position += Eigen::Vector3d(0, 12, 16);  // by 20
    const ShapeCheck check = bodies::checkShape(sixMarkers(), framesOf(bent, 2), kTolerance);
    EXPECT_FALSE(check.same);
    EXPECT_TRUE(check.known);
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(check.markers[i].moved, i == wrong) << i;
    EXPECT_NEAR(check.markers[wrong].shift, 20, 0.5);
  }
}

TEST(BodyCheck, TwoSwappedMarkersAreNamed) {
  Body swapped = sixMarkers();
  std::swap(swapped.markers[1].position, swapped.markers[4].position);
  const ShapeCheck check = bodies::checkShape(sixMarkers(), framesOf(swapped, 3), kTolerance);
  EXPECT_FALSE(check.same);
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(check.markers[i].moved, i == 1 || i == 4) << i;
}

TEST(BodyCheck, OfThreeMarkersNobodyCanTellWhichMoved) {
  Body bent = firstMarkers(3);
  bent.markers[2].position.x() += 20;
  const ShapeCheck check = bodies::checkShape(firstMarkers(3), framesOf(bent, 4), kTolerance);
  EXPECT_FALSE(check.same);
  EXPECT_FALSE(check.known);
}

TEST(BodyCheck, ShiftBelowTheToleranceDoesNotCount) {
  Body bent = sixMarkers();
  bent.markers[2].position.x() += 2;
  const auto frames = framesOf(bent, 5);
  EXPECT_FALSE(bodies::checkShape(sixMarkers(), frames, 1).same);
  EXPECT_TRUE(bodies::checkShape(sixMarkers(), frames, 5).same);
}

}  // namespace
