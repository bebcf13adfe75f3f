#include <alg_kit/estimate/Information.h>
#include <alg_kit/estimate/PixelEquations.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

Vector3d somePoint(sim::Random& random) {
  return {random.uniform(-900, 900), random.uniform(-700, 700), random.uniform(600, 3000)};
}

TEST(PixelEquations, SeePointsWhereTheRigsCamerasImageThem) {
  const rig::StereoRig pair = rig::builtInRig();
  const PixelEquations equations(pair.calibration);
  const auto left = cameraOf(pair, rig::Camera::kLeft), right = cameraOf(pair, rig::Camera::kRight);
  sim::Random random(1);
  int compared = 0;
  for (int i = 0; i < 1000; ++i) {
    const Vector3d point = somePoint(random);
    if (const auto image = right.project(point)) {
      EXPECT_LT((equations.project(kRight, point)->pixel - *image).norm(), 1e-9);
      ++compared;
    }
    if (const auto image = left.project(rig::rightToLeft(pair.calibration, point))) {
      EXPECT_LT((equations.project(kLeft, point)->pixel - *image).norm(), 1e-9);
      ++compared;
    }
  }
  EXPECT_GT(compared, 500);
}

TEST(PixelEquations, JacobianIsTheDifferenceQuotient) {
  const PixelEquations equations(rig::builtInRig().calibration);
  sim::Random random(2);
  for (int i = 0; i < 200; ++i) {
    Vector3d point = somePoint(random);
    if (i == 0) point = Vector3d(0, 0, 1500);  // on the right camera's axis
    for (const int camera : {kLeft, kRight})
      for (int axis = 0; axis < 3; ++axis) {
        const Vector3d step = Vector3d::Unit(axis) * 0.01;
        const Vector2d quotient = (equations.project(camera, point + step)->pixel -
                                   equations.project(camera, point - step)->pixel) /
                                  0.02;
        EXPECT_LT((equations.project(camera, point)->jacobian.col(axis) - quotient).norm(), 1e-6);
      }
  }
}

TEST(PixelEquations, RayMeetsThePointAndTriangulationFindsIt) {
  const PixelEquations equations(rig::builtInRig().calibration);
  sim::Random random(3);
  for (int i = 0; i < 500; ++i) {
    const Vector3d point = somePoint(random);
    Sighting sighting;
    for (const int camera : {kLeft, kRight}) {
      sighting.pixel[camera] = equations.project(camera, point)->pixel;
      const Vector3d ray = *equations.rayOf(camera, *sighting.pixel[camera]);
      const Vector3d toPoint = point - equations.centreOf(camera);
      EXPECT_LT(ray.normalized().cross(toPoint.normalized()).norm(), 1e-9);
    }
    EXPECT_LT((*equations.triangulate(sighting) - point).norm(), 1e-6);
  }
}

TEST(PixelEquations, DoNotSeeBehindTheCamera) {
  const PixelEquations equations(rig::builtInRig().calibration);
  EXPECT_FALSE(equations.project(kRight, Vector3d(0, 0, -100)));
  EXPECT_FALSE(equations.project(kLeft, Vector3d(0, 0, -100)));
}

// Depth from a baseline b at the distance z: sigma_z = z^2 / (f b) * sqrt(2) sigma.
TEST(PixelEquations, InformationIsLongInDepthAndShortAcross) {
  const auto calibration =
      rig::makeCalibration({400, 400, 320, 240}, Eigen::Vector4d::Zero(), {400, 400, 320, 240},
                           Eigen::Vector4d::Zero(), Eigen::Matrix3d::Identity(), {-100, 0, 0});
  const PixelEquations equations(calibration);
  const Vector3d point(-50, 0, 2000);  // in the middle between the cameras
  Sighting sighting;
  for (const int camera : {kLeft, kRight})
    sighting.pixel[camera] = equations.project(camera, point)->pixel;
  const double noise = 0.1;
  const Eigen::Matrix3d covariance =
      equations.information(sighting, point, noise)->weight.inverse();
  EXPECT_NEAR(std::sqrt(covariance(2, 2)), 2000 * 2000 / (400 * 100.0) * std::sqrt(2) * noise, 0.1);
  EXPECT_NEAR(std::sqrt(covariance(1, 1)), 2000 / 400.0 * noise / std::sqrt(2), 1e-3);
}

TEST(PixelEquations, WhatARayMissesIsOneNumberOfNoise) {
  const PixelEquations equations(rig::builtInRig().calibration);
  sim::Random random(4);
  double sum = 0;
  const int count = 4000;
  for (int i = 0; i < count; ++i) {
    const Vector3d point = somePoint(random);
    Sighting sighting;
    for (const int camera : {kLeft, kRight})
      sighting.pixel[camera] = equations.project(camera, point)->pixel +
                               0.1 * Vector2d(random.normal(), random.normal());
    sum += raysMiss(*equations.information(sighting, point, 0.1));
  }
  EXPECT_NEAR(sum / count, 1, 5 * std::sqrt(2.0 / count));  // chi-square of one degree of freedom
}

}  // namespace
}  // namespace estimate
