#include <alg_factory/stereo3d/Undistortion.h>

#include <cmath>
#include <iostream>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::ImagePoint;
using algorithm::undistort;
using testing_support::FisheyeCamera;

constexpr double kPi = 3.141592653589793;

struct Lens {
  double intrinsics[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  double distortion[8] = {};

  Lens() = default;
  explicit Lens(const FisheyeCamera& camera) {
    testing_support::storeByRows(camera.matrix(), intrinsics);
    for (std::size_t i = 0; i < 4; ++i) distortion[i] = camera.k[i];
  }

  std::vector<ImagePoint> undistorted(const std::vector<ImagePoint>& raw) const {
    std::vector<ImagePoint> result;
    undistort(intrinsics, distortion, raw, result);
    return result;
  }

  ImagePoint undistorted(const ImagePoint& raw) const {
    return undistorted(std::vector<ImagePoint>{raw}).at(0);
  }
};

/// The angle whose distorted radius is r, by halving [0, pi/2), where the radius grows with theta.
double thetaByBisection(const FisheyeCamera& camera, double r) {
  double low = 0, high = kPi / 2;
  for (int step = 0; step < 200; ++step) {
    const double middle = (low + high) / 2;
    (camera.distortedRadius(middle) < r ? low : high) = middle;
  }
  return (low + high) / 2;
}

// Ten steps leave an error of (slope of the step)^10 times the first one. With these lenses the
// slope stays below 0.06 within one radian, so 1e-8 px is a wide bound, and one step that used a
// wrong power or coefficient would be off by tenths of a pixel.
const FisheyeCamera kLenses[] = {
    {410, 395, 322, 247, {0.02, -0.006, 0.003, -0.0008}},
    {388, 402, 301, 233, {-0.01, 0.008, -0.004, 0.0006}},
    {191, 190, 255, 257, {0.0035, 0.0007, -0.002, 0.0002}},
};

TEST(Undistortion, AgreesWithBisectionOfTheLensEquation) {
  for (const FisheyeCamera& camera : kLenses) {
    const Lens lens(camera);
    for (double phi = 0; phi < 2 * kPi; phi += 0.37) {
      for (double r = 0.05; r < 1.0; r += 0.05) {
        const double x = r * std::cos(phi), y = r * std::sin(phi);
        const ImagePoint got = lens.undistorted({camera.fx * x + camera.cx,  //
                                                 camera.fy * y + camera.cy});
        const double pinholeRadius = std::tan(thetaByBisection(camera, r));
        EXPECT_NEAR(got.x, camera.fx * pinholeRadius * std::cos(phi) + camera.cx, 1e-8);
        EXPECT_NEAR(got.y, camera.fy * pinholeRadius * std::sin(phi) + camera.cy, 1e-8);
      }
    }
  }
}

TEST(Undistortion, UndoesTheForwardModelAtRandomDirections) {
  constexpr unsigned kSeed = 20417;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> slope(-0.9, 0.9);
  for (const FisheyeCamera& camera : kLenses) {
    std::vector<ImagePoint> raw, pinhole;
    for (int i = 0; i < 200; ++i) {
      const Eigen::Vector3d p(slope(random), slope(random), 1.0);
      raw.push_back(camera.fisheye(p));
      pinhole.push_back(camera.pinhole(p));
    }
    const auto got = Lens(camera).undistorted(raw);
    ASSERT_EQ(got.size(), pinhole.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_NEAR(got[i].x, pinhole[i].x, 1e-8);
      EXPECT_NEAR(got[i].y, pinhole[i].y, 1e-8);
    }
  }
}

TEST(Undistortion, EachCoefficientBelongsToItsPowerOfTheta) {
  // theta = 0.5: r = 0.5 (1 + 0.02 * 0.25^i) for the i-th coefficient alone, and the undistorted
  // radius is tan(0.5) = 0.5463024898437905.
  double power = 1;
  for (std::size_t i = 0; i < 4; ++i) {
    power *= 0.25;
    Lens lens;
    lens.distortion[i] = 0.02;
    EXPECT_NEAR(lens.undistorted({0.5 * (1 + 0.02 * power), 0}).x, 0.5463024898437905, 1e-14)
        << "coefficient " << i;
  }
}

TEST(Undistortion, LensWithoutDistortionMapsTheAngleToItsTangent) {
  // r = theta = pi/4 gives tan = 1; (0.6, 0.8) is a unit direction, so the point is
  // (0.6 * 100 + 7, 0.8 * 200 + 9).
  Lens lens;
  lens.intrinsics[0] = 100;
  lens.intrinsics[2] = 7;
  lens.intrinsics[4] = 200;
  lens.intrinsics[5] = 9;
  const ImagePoint got = lens.undistorted({0.6 * kPi / 4 * 100 + 7, 0.8 * kPi / 4 * 200 + 9});
  EXPECT_NEAR(got.x, 67, 1e-12);
  EXPECT_NEAR(got.y, 169, 1e-12);
}

TEST(Undistortion, TakesTenStepsEvenWhereTheyDoNotConverge) {
  // k1 = 1 and r = 1: theta <- 1 / (1 + theta^2) from 1 runs 1/2, 4/5, 25/41, 1681/2306, ... In
  // exact rational arithmetic the tenth is 0.6853735927163312 and its tangent 0.817587813660153;
  // nine steps would give 0.8046, eleven 0.8093, the solution of the equation 0.8126.
  Lens lens;
  lens.distortion[0] = 1;
  EXPECT_NEAR(lens.undistorted({1, 0}).x, 0.817587813660153, 1e-13);
}

TEST(Undistortion, PointsWithin1e8OfTheCentreStayWhereTheyAre) {
  // With k1 = 1e16 the radius 1e-8 is to the lens what 1 is to k1 = 1 (above), but tan is then the
  // identity: scaling would give 0.6853735927163312e-8.
  Lens lens;
  lens.distortion[0] = 1e16;
  EXPECT_EQ(lens.undistorted({1e-8, 0}).x, 1e-8);
  EXPECT_EQ(lens.undistorted({0, -1e-8}).y, -1e-8);
  EXPECT_NEAR(lens.undistorted({1.0000001e-8, 0}).x, 0.68537359e-8, 1e-14);
}

TEST(Undistortion, PrincipalPointKeepsItsCoordinatesExactly) {
  const Lens lens(kLenses[0]);
  const ImagePoint got = lens.undistorted({322, 247});
  EXPECT_EQ(got.x, 322);
  EXPECT_EQ(got.y, 247);
}

TEST(Undistortion, SkewAndTheLastFourCoefficientsAreNotRead) {
  const Lens plain(kLenses[0]);
  Lens other = plain;
  other.intrinsics[1] = 40;
  for (std::size_t i = 4; i < 8; ++i) other.distortion[i] = 0.5;
  const ImagePoint a = plain.undistorted({200, 400});
  const ImagePoint b = other.undistorted({200, 400});
  EXPECT_EQ(a.x, b.x);
  EXPECT_EQ(a.y, b.y);
}

TEST(Undistortion, ReplacesTheOutputAndKeepsTheOrder) {
  const Lens lens;
  std::vector<ImagePoint> output = {{5, 5}, {6, 6}, {7, 7}};
  undistort(lens.intrinsics, lens.distortion, {{kPi / 4, 0}, {0, 0}}, output);
  ASSERT_EQ(output.size(), 2u);
  EXPECT_NEAR(output[0].x, 1, 1e-15);
  EXPECT_EQ(output[1].x, 0);

  undistort(lens.intrinsics, lens.distortion, {}, output);
  EXPECT_TRUE(output.empty());
}

}  // namespace
