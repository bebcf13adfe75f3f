#include <gtest/gtest.h>
#include <sim/InertialSource.h>
#include <sim/Pi.h>

namespace sim {
namespace {

Scene sceneWith(SmoothMotion::Sums sums) {
  SceneObject object;
  object.mount = {10, 20, 1000};
  object.markers = {Eigen::Vector3d::Zero()};
  object.motion = SmoothMotion(std::move(sums));
  return Scene(0, {object});
}

algorithm::InertialRecord recordOf(const Scene& scene, double seconds) {
  return inertialRecord(scene, scene.objects()[0], seconds);
}

TEST(InertialSource, AtRestOnlyTheSupportAgainstGravityIsMeasured) {
  const auto record = recordOf(sceneWith({}), 1);
  EXPECT_EQ(record.accelerometer[0], 0);
  EXPECT_EQ(record.accelerometer[1], -2048);  // 1 g upwards; y points down
  EXPECT_EQ(record.accelerometer[2], 0);
  for (const auto count : record.gyroscope) EXPECT_EQ(count, 0);
  EXPECT_EQ(record.p[0], 10);
  EXPECT_EQ(record.p[2], 1000);
  EXPECT_EQ(record.q[3], 1);  // x, y, z, w
}

TEST(InertialSource, TenDegreesPerSecondAre164Counts) {
  SmoothMotion::Sums sums;
  constexpr double kFrequency = 0.1;
  sums.yaw = {{10 * kPi / 180 / (2 * kPi * kFrequency), kFrequency, 0}};  // steepest at t = 0
  const auto record = recordOf(sceneWith(sums), 0);
  EXPECT_EQ(record.gyroscope[0], 0);
  EXPECT_EQ(record.gyroscope[1], 164);
  EXPECT_EQ(record.gyroscope[2], 0);
}

TEST(InertialSource, AccelerationOfOneGAlongXIs2048Counts) {
  SmoothMotion::Sums sums;
  constexpr double kOmega = 2 * kPi * 0.5;
  sums.x = {{9810 / (kOmega * kOmega), 0.5, -kPi / 2}};  // at its lowest point, pushed to +x
  const auto record = recordOf(sceneWith(sums), 0);
  EXPECT_NEAR(record.accelerometer[0], 2048, 2);
  EXPECT_EQ(record.accelerometer[1], -2048);
}

TEST(InertialSource, ForcesAreMeasuredInTheBodysFrame) {
  SmoothMotion::Sums sums;
  sums.roll = {{kPi / 2, 0.25, 0}};  // at t = 1 turned by a quarter about z, and at rest
  const auto record = recordOf(sceneWith(sums), 1);
  EXPECT_NEAR(record.accelerometer[0], -2048, 1);  // the body's x points down
  EXPECT_NEAR(record.accelerometer[1], 0, 1);
}

TEST(InertialSource, CountsSaturate) {
  SmoothMotion::Sums sums;
  sums.x = {{1000, 30, -kPi / 2}};
  EXPECT_EQ(recordOf(sceneWith(sums), 0).accelerometer[0], 32767);
}

}  // namespace
}  // namespace sim
