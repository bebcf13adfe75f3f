#include <alg_kit/bodies/BodySmoother.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>
#include <Eigen/LU>

namespace {

using bodies::BodyFrame;
using bodies::RigidMotion;
using bodies::TrackedPose;
using testing_support::builtInCameras;
using testing_support::hide;
using testing_support::kNoise;
using testing_support::kPeriod;
using testing_support::seen;
using testing_support::sixMarkers;

RigidMotion handIn(std::size_t frame) {
  return testing_support::handAt(static_cast<double>(frame) * kPeriod);
}

std::vector<BodyFrame> handFrames(std::size_t count) {
  std::vector<BodyFrame> frames;
  sim::Random random(1);
  for (std::size_t i = 0; i < count; ++i) {
    frames.push_back(seen(sixMarkers(), handIn(i), kNoise, random));
    frames.back().elapsed = kPeriod;
  }
  return frames;
}

TEST(BodySmoother, ErrorsAreAsLargeAsTheCovarianceSaysAndFarBelowTheFilters) {
  constexpr std::size_t kFrames = 1500, kWarmUp = 90;
  const auto frames = handFrames(kFrames);
  double online = 0, smoothed = 0, nees = 0;
  bodies::BodyFilter filter(sixMarkers());
  for (std::size_t i = 0; i < kFrames; ++i) {
    filter.feed(frames[i], builtInCameras(), kNoise);
    const auto error = bodies::differenceOf(filter.now().pose.motion, handIn(i));
    if (i >= kWarmUp) online += error.head<3>().squaredNorm();
  }
  std::size_t expected = kFrames;
  bodies::smoothBody(sixMarkers(), frames, builtInCameras(), kNoise, {},
                     [&](std::size_t i, const TrackedPose& pose) {
                       EXPECT_EQ(i, --expected);  // from the last to the first
                       const auto error = bodies::differenceOf(pose.pose.motion, handIn(i));
                       if (i < kWarmUp) return;
                       smoothed += error.head<3>().squaredNorm();
                       nees += error.dot(pose.pose.covariance.inverse() * error) / 6;
                     });
  EXPECT_EQ(expected, 0u);
  EXPECT_LT(smoothed, online / 2);
  EXPECT_GT(nees / (kFrames - kWarmUp), 0.7);
  EXPECT_LT(nees / (kFrames - kWarmUp), 1.4);
}

// What comes after a gap says where the body was in it.
TEST(BodySmoother, GapIsBridgedFromBothEnds) {
  auto frames = handFrames(300);
  for (std::size_t i = 150; i < 180; ++i)
    for (int id = 0; id < 6; ++id) hide(frames[i], id);
  bodies::BodyFilter filter(sixMarkers());
  std::vector<double> online(frames.size()), smoothed(frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    filter.feed(frames[i], builtInCameras(), kNoise);
    online[i] = (filter.now().pose.motion.position - handIn(i).position).norm();
  }
  bodies::smoothBody(sixMarkers(), frames, builtInCameras(), kNoise, {},
                     [&](std::size_t i, const TrackedPose& pose) {
                       smoothed[i] = (pose.pose.motion.position - handIn(i).position).norm();
                       if (i >= 150 && i < 180) {
                         EXPECT_EQ(pose.source, estimate::Source::kBridged);
                       }
                     });
  EXPECT_GT(online[179], 15);
  EXPECT_LT(smoothed[179], online[179] / 5);
  EXPECT_LT(smoothed[165], 12);
}

// The last frame has nothing after it.
TEST(BodySmoother, LastFrameIsTheFilters) {
  const auto frames = handFrames(120);
  bodies::BodyFilter filter(sixMarkers());
  for (const BodyFrame& frame : frames) filter.feed(frame, builtInCameras(), kNoise);
  bodies::smoothBody(sixMarkers(), frames, builtInCameras(), kNoise, {},
                     [&](std::size_t i, const TrackedPose& pose) {
                       if (i + 1 < frames.size()) return;
                       const auto apart =
                           bodies::differenceOf(pose.pose.motion, filter.now().pose.motion);
                       EXPECT_LT(apart.norm(), 1e-9);
                     });
}

}  // namespace
