#include <alg_kit/rig/FisheyeCamera.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/Geometry>
#include <cmath>

namespace rig {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kIntrinsics[9] = {200, 0, 256, 0, 210, 250, 0, 0, 1};
constexpr double kStraight[8] = {};
constexpr double kDistorted[8] = {0.02, -0.006, 0.002, -0.0005, 9, 9, 9, 9};

TEST(FisheyeCamera, OpticalAxisMeetsThePrincipalPoint) {
  const FisheyeCamera camera(kIntrinsics, kDistorted, 512, 512);
  EXPECT_EQ(*camera.project({0, 0, 1000}), Eigen::Vector2d(256, 250));
}

TEST(FisheyeCamera, WithoutDistortionThePixelGrowsWithTheAngle) {
  const FisheyeCamera camera(kIntrinsics, kStraight, 512, 512);
  const auto pixel = camera.project({7, 0, 7});  // 45 degrees
  ASSERT_TRUE(pixel);
  EXPECT_NEAR(pixel->x(), 256 + 200 * kPi / 4, 1e-10);
  EXPECT_NEAR(pixel->y(), 250, 1e-10);
}

TEST(FisheyeCamera, AgreesWithTheModelInPolarForm) {
  const FisheyeCamera camera(kIntrinsics, kDistorted, 512, 512);
  sim::Random random(21);
  int compared = 0;
  for (int i = 0; i < 2000; ++i) {
    const double theta = random.uniform(0.001, 1.2);
    const double phi = random.uniform(0, 2 * kPi);
    const double range = random.uniform(100, 4000);
    const auto pixel =
        camera.project({range * std::sin(theta) * std::cos(phi),
                        range * std::sin(theta) * std::sin(phi), range * std::cos(theta)});
    const double thetaD = theta + kDistorted[0] * std::pow(theta, 3) +
                          kDistorted[1] * std::pow(theta, 5) + kDistorted[2] * std::pow(theta, 7) +
                          kDistorted[3] * std::pow(theta, 9);
    const double x = 256 + 200 * thetaD * std::cos(phi);
    const double y = 250 + 210 * thetaD * std::sin(phi);
    ASSERT_EQ(pixel.has_value(), x >= 0 && x < 512 && y >= 0 && y < 512);
    if (!pixel) continue;
    EXPECT_NEAR(pixel->x(), x, 1e-9);
    EXPECT_NEAR(pixel->y(), y, 1e-9);
    ++compared;
  }
  EXPECT_GT(compared, 1000);
}

TEST(FisheyeCamera, SeesNothingBehindIt) {
  const FisheyeCamera camera(kIntrinsics, kStraight, 512, 512);
  EXPECT_FALSE(camera.project({0, 0, -1000}));
  EXPECT_FALSE(camera.project({10, 10, 0}));
  EXPECT_FALSE(camera.project({0, 0, std::nan("")}));
}

TEST(FisheyeCamera, SeesNothingOutsideTheImage) {
  const FisheyeCamera camera(kIntrinsics, kStraight, 300, 512);
  EXPECT_TRUE(camera.project({1, 0, 10}));
  EXPECT_FALSE(camera.project({10, 0, 10}));  // x = 256 + 157
}

TEST(FisheyeCamera, SeesNothingWhereTheLensFoldsBack) {
  // theta - 0.5 theta^3 falls beyond theta = sqrt(2 / 3) = 0.816.
  const double folding[8] = {-0.5};
  const FisheyeCamera camera(kIntrinsics, folding, 512, 512);
  EXPECT_TRUE(camera.project({std::tan(0.81), 0, 1}));
  EXPECT_FALSE(camera.project({std::tan(0.82), 0, 1}));
}

TEST(FisheyeCamera, BallOnTheAxisFillsItsAngle) {
  const double round[9] = {200, 0, 256, 0, 200, 256, 0, 0, 1};
  const FisheyeCamera camera(round, kStraight, 512, 512);
  EXPECT_NEAR(camera.imageOf({0, 0, 1000}, 40)->diameter, 200 * 0.04, 1e-12);
}

TEST(FisheyeCamera, ImagedAreaIsThatOfAProjectedRing) {
  const FisheyeCamera camera(kIntrinsics, kDistorted, 512, 512);
  constexpr double kAngle = 1e-4;  // half the angle that the ball fills
  for (const Eigen::Vector3d& point :
       {Eigen::Vector3d(300, -200, 900), Eigen::Vector3d(-900, 400, 800),
        Eigen::Vector3d(5, 3, 2000)}) {
    const Eigen::Vector3d direction = point.normalized();
    const Eigen::Vector3d side = direction.unitOrthogonal();
    const Eigen::Vector3d up = direction.cross(side);
    double area = 0;
    constexpr int kCorners = 720;
    for (int i = 0; i < kCorners; ++i) {
      const auto corner = [&](int k) {
        const double angle = 2 * kPi * k / kCorners;
        return *camera.project(direction +
                               std::tan(kAngle) * (std::cos(angle) * side + std::sin(angle) * up));
      };
      const Eigen::Vector2d a = corner(i);
      const Eigen::Vector2d b = corner(i + 1);
      area += (a.x() * b.y() - b.x() * a.y()) / 2;
    }
    const double diameter = camera.imageOf(point, 2 * kAngle * point.norm())->diameter;
    EXPECT_NEAR(kPi / 4 * diameter * diameter / std::abs(area), 1, 1e-4);
  }
}

}  // namespace
}  // namespace rig
