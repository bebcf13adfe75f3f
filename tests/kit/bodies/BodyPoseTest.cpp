#include <alg_kit/bodies/BodyPose.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>
#include <Eigen/LU>

namespace {

using bodies::Body;
using bodies::BodyFrame;
using bodies::BodyPose;
using bodies::MarkerEnd;
using bodies::RigidMotion;
using testing_support::builtInCameras;
using testing_support::drawMotion;
using testing_support::firstMarkers;
using testing_support::hide;
using testing_support::kNoise;
using testing_support::seen;
using testing_support::sixMarkers;

/// Position and rotation by which the pose is off.
Eigen::Matrix<double, 6, 1> errorOf(const BodyPose& pose, const RigidMotion& truth) {
  const Eigen::AngleAxisd turn(pose.motion.orientation * truth.orientation.conjugate());
  Eigen::Matrix<double, 6, 1> error;
  error << pose.motion.position - truth.position, turn.angle() * turn.axis();
  return error;
}

TEST(BodyPose, IsExactWithoutNoise) {
  sim::Random random(1);
  for (int i = 0; i < 20; ++i) {
    const RigidMotion truth = drawMotion(random);
    const auto pose = bodies::poseOf(sixMarkers(), seen(sixMarkers(), truth, 0, random),
                                     builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    EXPECT_LT(errorOf(*pose, truth).norm(), 1e-6);
    EXPECT_EQ(pose->markers, 6);
    EXPECT_LT(pose->residual, 1e-6);
  }
}

// The squared error in the stated covariance has the mean 6.
TEST(BodyPose, ErrorsAreAsLargeAsTheCovarianceSays) {
  sim::Random random(2);
  constexpr int kPoses = 500;
  double sum = 0, residual2 = 0;
  for (int i = 0; i < kPoses; ++i) {
    const RigidMotion truth = drawMotion(random);
    const auto pose = bodies::poseOf(sixMarkers(), seen(sixMarkers(), truth, kNoise, random),
                                     builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    const auto error = errorOf(*pose, truth);
    sum += error.dot(pose->covariance.inverse() * error);
    residual2 += pose->residual * pose->residual;
  }
  EXPECT_NEAR(sum / kPoses / 6, 1, 0.1);
  // 24 numbers, of which 6 went into the pose.
  EXPECT_NEAR(residual2 / kPoses, kNoise * kNoise * 18 / 24, 0.1 * kNoise * kNoise);
}

TEST(BodyPose, DisplacedMarkerIsLeftOutAndNamed) {
  sim::Random random(3);
  for (std::size_t wrong = 0; wrong < 6; ++wrong) {
    Body bent = sixMarkers();
    bent.markers[wrong].position.y() += 20;
    const RigidMotion truth = drawMotion(random);
    const auto pose =
        bodies::poseOf(sixMarkers(), seen(bent, truth, kNoise, random), builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    EXPECT_EQ(pose->markers, 5);
    for (std::size_t i = 0; i < 6; ++i)
      EXPECT_EQ(pose->ends[i], i == wrong ? MarkerEnd::kOffShape : MarkerEnd::kUsed) << i;
    const auto error = errorOf(*pose, truth);
    EXPECT_LT(error.dot(pose->covariance.inverse() * error), 40);
  }
}

TEST(BodyPose, SwappedMarkersAreLeftOutAndNamed) {
  sim::Random random(8);
  for (int i = 0; i < 50; ++i) {
    Body swapped = sixMarkers();
    std::swap(swapped.markers[1].position, swapped.markers[4].position);
    const RigidMotion truth = drawMotion(random);
    const auto pose = bodies::poseOf(sixMarkers(), seen(swapped, truth, kNoise, random),
                                     builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    EXPECT_EQ(pose->markers, 4);
    EXPECT_EQ(pose->ends[1], MarkerEnd::kOffShape);
    EXPECT_EQ(pose->ends[4], MarkerEnd::kOffShape);
  }
}

TEST(BodyPose, ThreeMarkersThatDoNotFitGiveNone) {
  sim::Random random(4);
  Body bent = firstMarkers(3);
  bent.markers[1].position.x() += 20;
  const BodyFrame frame = seen(bent, drawMotion(random), kNoise, random);
  EXPECT_FALSE(bodies::poseOf(firstMarkers(3), frame, builtInCameras(), kNoise));
  EXPECT_TRUE(bodies::poseOf(bent, frame, builtInCameras(), kNoise));
}

TEST(BodyPose, NeedsThreeMarkersOffOneLineSeenByBothCameras) {
  sim::Random random(5);
  const RigidMotion truth = drawMotion(random);
  BodyFrame frame = seen(firstMarkers(3), truth, 0, random);
  EXPECT_TRUE(bodies::poseOf(firstMarkers(3), frame, builtInCameras(), kNoise));
  frame.markers[1].pixel[estimate::kLeft].reset();
  EXPECT_FALSE(bodies::poseOf(firstMarkers(3), frame, builtInCameras(), kNoise));
  Body line = firstMarkers(3);
  for (int i = 0; i < 3; ++i) line.markers[static_cast<std::size_t>(i)].position = {30.0 * i, 0, 0};
  EXPECT_FALSE(bodies::poseOf(line, seen(line, truth, 0, random), builtInCameras(), kNoise));
}

TEST(BodyPose, MarkerThatOneCameraSawHelps) {
  sim::Random random(6);
  BodyFrame frame = seen(firstMarkers(4), drawMotion(random), kNoise, random);
  BodyFrame without = frame;
  hide(without, 3);
  frame.markers[3].pixel[estimate::kRight].reset();
  const auto with = bodies::poseOf(firstMarkers(4), frame, builtInCameras(), kNoise);
  const auto less = bodies::poseOf(firstMarkers(4), without, builtInCameras(), kNoise);
  ASSERT_TRUE(with && less);
  EXPECT_EQ(with->ends[3], MarkerEnd::kOneCamera);
  EXPECT_EQ(less->ends[3], MarkerEnd::kNotSeen);
  EXPECT_LT((with->covariance.topLeftCorner<3, 3>().trace()),
            (less->covariance.topLeftCorner<3, 3>().trace()));
}

TEST(BodyPose, RaysThatMissEachOtherAreNoMarker) {
  sim::Random random(7);
  BodyFrame frame = seen(firstMarkers(5), drawMotion(random), kNoise, random);
  frame.markers[2].pixel[estimate::kLeft]->y() += 3;
  const auto pose = bodies::poseOf(firstMarkers(5), frame, builtInCameras(), kNoise);
  ASSERT_TRUE(pose);
  EXPECT_EQ(pose->ends[2], MarkerEnd::kRaysApart);
  EXPECT_EQ(pose->markers, 4);
}

TEST(BodyPose, DeliveredAxesHaveYAndZNegated) {
  BodyPose pose;
  pose.motion.position = {1, 2, 3};
  pose.motion.orientation = Eigen::AngleAxisd(0.3, Eigen::Vector3d(1, 2, 3).normalized());
  pose.covariance(0, 1) = pose.covariance(1, 0) = 5;
  pose.covariance(4, 5) = pose.covariance(5, 4) = 7;
  const BodyPose result = bodies::delivered(pose);
  for (const Eigen::Vector3d& p : {Eigen::Vector3d(0, 0, 0), Eigen::Vector3d(4, 5, 6)}) {
    const Eigen::Vector3d before = pose.motion * p, after = result.motion * p;
    EXPECT_NEAR((after - Eigen::Vector3d(before.x(), -before.y(), -before.z())).norm(), 0, 1e-12);
  }
  EXPECT_EQ(result.covariance(0, 1), -5);
  EXPECT_EQ(result.covariance(4, 5), 7);
}

}  // namespace
