#include <alg_kit/estimate/MarkerSpacing.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/LU>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kHalf = 34;  // mm

PositionInformation measured(const Vector3d& offset, const Matrix3d& covariance) {
  PositionInformation result;
  result.at = offset;
  result.covariance = covariance;
  result.determined = true;
  return result;
}

/// Of two markers 68 mm apart, known as well as 1000 frames with a noise of 1 mm tell it: the
/// variance of an offset's square is 4 34^2 + 2 3 = 4630 mm^4, that of the mean 4.6.
MarkerSpacing known() {
  MarkerSpacing spacing;
  const Vector3d offset(kHalf, 0, 0);
  // The square of what was measured is larger by the covariance's trace on average.
  const Vector3d seen(std::sqrt(kHalf * kHalf + 3), 0, 0);
  for (int i = 0; i < 10000; ++i) spacing.add(measured(seen, Matrix3d::Identity()), offset);
  return spacing;
}

InteractingModels::Place place(const Vector3d& offset, double variance, double variance_z) {
  return {offset, Vector3d(variance, variance, variance_z).asDiagonal()};
}

struct Answer {
  double z = 0, variance = 0;
};

/// The z of an offset with what is said of it.
Answer zAfter(const InteractingModels::Place& before, const PositionInformation& said) {
  const Matrix3d covariance = (before.pp.inverse() + said.weight).inverse();
  return {before.p.z() + (covariance * said.pull).z(), covariance(2, 2)};
}

TEST(MarkerSpacing, SaysNothingBeforeItHasSeenAny) {
  EXPECT_FALSE(MarkerSpacing().informationAt(place({16, 0, 30}, 0.01, 100)));
}

// 16^2 + 30^2 = 34^2. What the square leaves open, 4 16^2 0.01 + 4.6, is 0.06^2 at 2 30 a mm.
TEST(MarkerSpacing, TellsTheLengthAlongALine) {
  const auto before = place({16, 0, 25}, 0.01, 30);
  const auto said = known().informationAt(before);
  ASSERT_TRUE(said);
  const Answer after = zAfter(before, *said);
  EXPECT_NEAR(after.z, 30, 0.02);
  EXPECT_NEAR(after.variance, 15 / 3600., 0.002);
  EXPECT_LT(said->weight.topLeftCorner(2, 2).norm(), 1e-9);
}

// At z = 30 and z = -30 with the odds e^(2 4 30 / 2400) = e^0.1: the mean is 30 tanh 0.05, and the
// variance that of two points so far from it.
TEST(MarkerSpacing, KeepsBothPointsWhereTheyAreAsLikely) {
  const auto before = place({16, 0, 4}, 0.01, 2400);
  const auto said = known().informationAt(before);
  ASSERT_TRUE(said);
  const Answer after = zAfter(before, *said);
  EXPECT_NEAR(after.z, 30 * std::tanh(0.05), 0.01);
  EXPECT_NEAR(after.variance, 900 - after.z * after.z, 1);
}

// At two standard deviations the wrong point may be the right one.
TEST(MarkerSpacing, DoesNotChooseBetweenPointsThatAreNotFarApart) {
  EXPECT_FALSE(known().informationAt(place({16, 0, 28}, 0.01, 225)));
}

TEST(MarkerSpacing, SaysNothingThatIsKnownAsWell) {
  EXPECT_FALSE(known().informationAt(place({16, 0, 30}, 0.01, 0.003)));
}

// Beyond a half's length across, no point of the line is on the sphere: the nearest is at 0.
TEST(MarkerSpacing, OfWhatIsLongerThanItIsSaysThatItLiesAcross) {
  const auto before = place({34.1, 0, 6}, 0.01, 400);
  const auto said = known().informationAt(before);
  ASSERT_TRUE(said);
  const Answer after = zAfter(before, *said);
  EXPECT_NEAR(after.z, 0, 0.5);
  EXPECT_LT(after.variance, 10);
}

// The lengths that are measured with such noise are 42 mm on average.
TEST(MarkerSpacing, IsNotMisledByNoiseThatIsAsLargeAsItself) {
  sim::Random random(7);
  const Vector3d offset(30, 0, 16);
  Matrix3d covariance = Vector3d(1, 1, 900).asDiagonal();
  MarkerSpacing spacing;
  double length = 0;
  for (int i = 0; i < 5000; ++i) {
    const Vector3d noise(random.normal(), random.normal(), 30 * random.normal());
    spacing.add(measured(offset + noise, covariance), offset);
    length += (offset + noise).norm() / 5000;
  }
  EXPECT_GT(length, 41);
  const auto before = place({30, 0, 12}, 0.01, 12);
  const auto said = spacing.informationAt(before);
  ASSERT_TRUE(said);
  EXPECT_NEAR(zAfter(before, *said).z, 16, 4);
}

TEST(MarkerSpacing, ForgetsWithinAFewThousandFrames) {
  MarkerSpacing spacing = known();
  const Vector3d shorter(20, 0, 0);
  for (int i = 0; i < 8000; ++i)
    spacing.add(measured(shorter, 1e-6 * Matrix3d::Identity()), shorter);
  const auto before = place({12, 0, 14}, 0.01, 12);
  const auto said = spacing.informationAt(before);
  ASSERT_TRUE(said);
  EXPECT_NEAR(zAfter(before, *said).z, 16, 0.05);
}

}  // namespace
}  // namespace estimate
