#include <alg_factory/stereo3d/Triangulation.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::Blob2DPoint;
using algorithm::midpoint;
using algorithm::PairPoint;
using algorithm::StereoPoint;
using algorithm::StereoRays;
using algorithm::triangulate;
using testing_support::blob;
using testing_support::FisheyePair;

static_assert(sizeof(StereoPoint) == 64 && offsetof(StereoPoint, z) == 16 &&
                  offsetof(StereoPoint, leftX) == 24 && offsetof(StereoPoint, rightY) == 48 &&
                  offsetof(StereoPoint, diameter) == 56 && offsetof(StereoPoint, id) == 60,
              "field order");

StereoRays raysOf(const FisheyePair& pair) {
  return {pair.rotation * pair.left.matrix().inverse(), pair.right.matrix().inverse(),
          pair.translation};
}

/// The points of blobs in twos: left, right, left, right.
std::vector<PairPoint> triangulated(const StereoRays& rays, const std::vector<Blob2DPoint>& twos) {
  std::vector<algorithm::BlobPair> pairs;
  for (std::size_t i = 0; i + 1 < twos.size(); i += 2) pairs.push_back({&twos[i], &twos[i + 1]});
  std::vector<PairPoint> points(1);  // must not survive
  algorithm::NoObserver nobody;
  triangulate(rays, pairs, points, nobody);
  return points;
}

/// Pixels are directions: both camera matrices and the rotation are the identity.
StereoRays plainRays(double x, double y, double z) {
  return {Eigen::Matrix3d::Identity(), Eigen::Matrix3d::Identity(), Eigen::Vector3d(x, y, z)};
}

/// A pair whose midpoint is (0, 0, z) without any rounding, and its rays. dR = (0, 0, 1),
/// dL = (1/8, 0, 1), T = (-z/8, 0, 0): the normal matrix is [1, 1; 1, 65/64], its determinant 1/64,
/// its inverse [65, -64; -64, 64]; with (dR.T, dL.T) = (0, -z/64) it gives t = z and s = z.
struct ExactDepth {
  StereoRays rays;
  std::vector<Blob2DPoint> pair = {blob(0.125, 0, 2, 0), blob(0, 0, 2, 0)};

  explicit ExactDepth(double z) : rays(plainRays(-z / 8, 0, 0)) {}

  std::vector<PairPoint> points() const { return triangulated(rays, pair); }
};

TEST(Midpoint, OfProjectionsIsThePointItself) {
  constexpr unsigned kSeed = 4711;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> across(-900, 900), depth(50, 4500);
  for (const FisheyePair& pair : {FisheyePair(), testing_support::unlikePair()}) {
    const StereoRays rays = raysOf(pair);
    for (int i = 0; i < 500; ++i) {
      const Eigen::Vector3d p(across(random), across(random), depth(random));
      const auto l = pair.left.pinhole(pair.inLeftFrame(p));
      const auto r = pair.right.pinhole(p);
      const Eigen::Vector3d got = midpoint(rays, blob(l.x, l.y, 2, 0), blob(r.x, r.y, 2, 0));
      EXPECT_LT((got - p).norm(), 1e-6) << p.transpose();
    }
  }
}

TEST(Midpoint, OfSkewRaysIsHalfwayAlongTheirCommonPerpendicular) {
  // The right ray is the z axis. The left one starts at (-100, 8, 0) with direction (0.1, 0, 1) and
  // passes the axis 8 above (0, 0, 1000); the segment between is perpendicular to both.
  const Eigen::Vector3d p = midpoint(plainRays(-100, 8, 0), blob(0.1, 0, 2, 0), blob(0, 0, 2, 0));
  EXPECT_NEAR(p.x(), 0, 1e-9);
  EXPECT_NEAR(p.y(), 4, 1e-9);
  EXPECT_NEAR(p.z(), 1000, 1e-9);
}

TEST(Midpoint, OfRandomRaysIsTheClosestPointToBoth) {
  // The sum of squared distances to two lines is least at the midpoint of the shortest segment, so
  // any step away from it must not lower the sum.
  constexpr unsigned kSeed = 99;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> slope(-0.5, 0.5), offset(-50, 50);
  for (int i = 0; i < 200; ++i) {
    const StereoRays rays = plainRays(offset(random), offset(random), offset(random));
    const Eigen::Vector3d dL(slope(random), slope(random), 1), dR(slope(random), slope(random), 1);
    const auto cost = [&](const Eigen::Vector3d& p) {
      return (p - rays.leftCentreInRight).cross(dL).squaredNorm() / dL.squaredNorm() +
             p.cross(dR).squaredNorm() / dR.squaredNorm();
    };
    const Eigen::Vector3d p =
        midpoint(rays, blob(dL.x(), dL.y(), 2, 0), blob(dR.x(), dR.y(), 2, 0));
    for (int axis = 0; axis < 3; ++axis) {
      for (const double step : {-0.01, 0.01}) {
        EXPECT_LE(cost(p), cost(p + step * Eigen::Vector3d::Unit(axis)));
      }
    }
  }
}

TEST(Triangulate, PointAtExactly10IsDropped) {
  const double justAbove = std::nextafter(10.0, 11.0);
  EXPECT_TRUE(ExactDepth(10.0).points().empty());
  ASSERT_EQ(ExactDepth(justAbove).points().size(), 1u);
  EXPECT_EQ(ExactDepth(justAbove).points()[0].z, justAbove);
}

TEST(Triangulate, PointBehindTheRightCameraIsDropped) {
  EXPECT_TRUE(ExactDepth(-1000.0).points().empty());
}

TEST(Triangulate, ParallelRaysGiveNothingFinite) {
  const StereoRays rays = plainRays(-100, 0, 0);
  const std::vector<Blob2DPoint> pair = {blob(0.25, 0, 2, 0), blob(0.25, 0, 2, 0)};
  EXPECT_FALSE(midpoint(rays, pair[0], pair[1]).allFinite());
  for (const PairPoint& p : triangulated(rays, pair)) {
    EXPECT_EQ(p.z, std::numeric_limits<double>::infinity());
  }
}

TEST(Triangulate, GivesThePointsOfAllPairsWithIdAndPair) {
  // Rays meet where x = 0: s = 100 / slope; y = 0.25 s. The second pair meets behind the camera.
  for (const std::size_t count : {2u, 4u, 6u, 8u}) {
    std::vector<Blob2DPoint> twos = {blob(0.125, 0.25, 4, 1), blob(0, 0.25, 7, 1),  //
                                     blob(-0.25, 0.5, 2, 1),  blob(0, 0.5, 2, 1),
                                     blob(0.25, 0.25, 2, 2),  blob(0, 0.25, 2, 2),
                                     blob(0.5, 0.25, 2, 5),   blob(0, 0.25, 2, 5)};
    twos.resize(count);
    const auto points = triangulated(plainRays(-100, 0, 0), twos);
    const std::vector<PairPoint> expected = {
        {0, 200, 800, 1, 0}, {0, 100, 400, 2, 2}, {0, 50, 200, 5, 3}};
    ASSERT_EQ(points.size(), count <= 4 ? 1 : count / 2 - 1);
    for (std::size_t i = 0; i < points.size(); ++i) {
      EXPECT_NEAR(points[i].x, expected[i].x, 1e-9);
      EXPECT_NEAR(points[i].y, expected[i].y, 1e-9);
      EXPECT_NEAR(points[i].z, expected[i].z, 1e-9);
      EXPECT_EQ(points[i].id, expected[i].id);
      EXPECT_EQ(points[i].pair, expected[i].pair);
    }
  }
}

TEST(Triangulate, APairIsTheSameAloneAndBesideAnother) {
  const std::vector<Blob2DPoint> a = {blob(0.123, 0.251, 4, 1), blob(0.017, 0.249, 7, 1)};
  const std::vector<Blob2DPoint> b = {blob(0.321, 0.512, 4, 2), blob(0.071, 0.498, 7, 2)};
  const StereoRays rays = raysOf(testing_support::unlikePair());
  const auto both = triangulated(rays, {a[0], a[1], b[0], b[1]});
  const auto alone = triangulated(rays, b);
  ASSERT_EQ(both.size(), 2u);
  ASSERT_EQ(alone.size(), 1u);
  EXPECT_EQ(both[1].x, alone[0].x);
  EXPECT_EQ(both[1].y, alone[0].y);
  EXPECT_EQ(both[1].z, alone[0].z);
  const Eigen::Vector3d single = midpoint(rays, b[0], b[1]);
  EXPECT_EQ(alone[0].z, single.z());
}

TEST(Triangulate, NoPairsGiveNoPoints) {
  EXPECT_TRUE(triangulated(plainRays(-100, 0, 0), {}).empty());
}

TEST(StereoPoint, HoldsBothCentresTheMeanDiameterAndTheId) {
  const Blob2DPoint left = blob(0.125, 0.25, 4, 4), right = blob(0.5, 0.75, 7, 4);
  StereoPoint p;
  setStereoPoint({1, 2, 3, 4, 9}, {&left, &right}, p);
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 2);
  EXPECT_EQ(p.z, 3);
  EXPECT_EQ(p.leftX, 0.125);
  EXPECT_EQ(p.leftY, 0.25);
  EXPECT_EQ(p.rightX, 0.5);
  EXPECT_EQ(p.rightY, 0.75);
  EXPECT_EQ(p.diameter, 5);  // 11 / 2
  EXPECT_EQ(p.id, 4);
}

TEST(RaysFrom, AreTheInversesOfTheCameraMatrices) {
  const FisheyePair pair = testing_support::unlikePair();
  const StereoRays rays = algorithm::raysFrom(pair.calibration());
  const StereoRays expected = raysOf(pair);
  EXPECT_TRUE(rays.leftRayInRight.isApprox(expected.leftRayInRight, 1e-14));
  EXPECT_TRUE(rays.rightRay.isApprox(expected.rightRay, 1e-14));
  EXPECT_EQ(rays.leftCentreInRight, expected.leftCentreInRight);
}

}  // namespace
