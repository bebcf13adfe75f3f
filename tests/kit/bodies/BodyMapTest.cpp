#include <alg_kit/bodies/BodyMap.h>

#include <alg_kit/bodies/BodyPose.h>
#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>
#include <cmath>

namespace {

using testing_support::builtInCameras;
using testing_support::kNoise;
using testing_support::sixMarkers;

// Poses drawn at the same distance, anyhow turned, scatter as the map says.
TEST(BodyMap, ErrorsAreThoseOfDrawnPoses) {
  constexpr int kPoses = 600;
  const auto map = bodies::expectedErrors(sixMarkers(), builtInCameras(), kNoise, {1500});
  ASSERT_EQ(map.size(), 1u);
  sim::Random random(9);
  bodies::Body centred = sixMarkers();
  for (auto& marker : centred.markers) marker.position -= bodies::meanOf(sixMarkers());
  Eigen::Matrix<double, 6, 1> squares = Eigen::Matrix<double, 6, 1>::Zero();
  for (int i = 0; i < kPoses; ++i) {
    auto truth = testing_support::drawMotion(random);
    truth.position = 0.5 * builtInCameras().centreOf(estimate::kLeft) + Eigen::Vector3d(0, 0, 1500);
    const auto pose = bodies::poseOf(centred, testing_support::seen(centred, truth, kNoise, random),
                                     builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    squares += bodies::differenceOf(truth, pose->motion).cwiseAbs2() / kPoses;
  }
  EXPECT_NEAR(std::sqrt((squares[0] + squares[1]) / 2) / map[0].across, 1, 0.1);
  EXPECT_NEAR(std::sqrt(squares[2]) / map[0].depth, 1, 0.1);
  EXPECT_NEAR(57.2958 * std::sqrt(squares[5]) / map[0].aboutView, 1, 0.15);
  EXPECT_NEAR(57.2958 * std::sqrt((squares[3] + squares[4]) / 2) / map[0].aboutAcross, 1, 0.15);
}

TEST(BodyMap, WiderBodyTurnsLessWrong) {
  bodies::Body wide = sixMarkers();
  for (auto& marker : wide.markers) marker.position *= 2;
  const auto small = bodies::expectedErrors(sixMarkers(), builtInCameras(), 0.05, {1000, 2000});
  const auto large = bodies::expectedErrors(wide, builtInCameras(), 0.05, {1000, 2000});
  ASSERT_EQ(small.size(), 2u);
  EXPECT_NEAR(large[1].aboutView / small[1].aboutView, 0.5, 0.05);
  EXPECT_LT(large[1].depth, small[1].depth);      // its size in the images tells its distance too
  EXPECT_GT(small[1].depth, 3 * small[0].depth);  // with the square of the distance
}

}  // namespace
