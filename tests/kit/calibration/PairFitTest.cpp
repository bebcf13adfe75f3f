#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/PairFit.h>
#include <alg_kit/calibration/RawTriangulation.h>
#include <alg_kit/calibration/SampsonDistance.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/rig/RigError.h>
#include <gtest/gtest.h>
#include <tests/support/SeenPairs.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>

namespace calibration {
namespace {

using support::pairsAllOver;

double angleBetween(const algorithm::StereoCalibration& a, const algorithm::StereoCalibration& b) {
  const Eigen::AngleAxisd turn(rig::matrixFrom(a.rotation) *
                               rig::matrixFrom(b.rotation).transpose());
  return turn.angle() * 180 / 3.141592653589793;
}

TEST(Ray, OfAPixelMeetsThePointThatTheLensPutsThere) {
  const auto rig = rig::builtInRig();
  const auto& k = rig.calibration.leftIntrinsics;
  const auto& d = rig.calibration.leftDistortion;
  const double lens[8] = {k[0], k[4], k[2], k[5], d[0], d[1], d[2], d[3]};
  const auto camera = rig::cameraOf(rig, rig::Camera::kLeft);
  for (const Eigen::Vector3d& point :
       {Eigen::Vector3d(0.3, -0.2, 1), {0.7, 0.5, 1}, {-0.01, 0, 1}, {0, 0, 2}}) {
    const Eigen::Vector2d pixel = *camera.project(point);
    const auto ray = rayOf(pixel.x(), pixel.y(), lens);
    EXPECT_LT((ray.direction.normalized() - point.normalized()).norm(), 1e-12);
  }
}

TEST(Ray, TurnsWithThePixelAsDifferencesSay) {
  const double lens[8] = {380, 381, 320, 240, 0.02, -0.006, 0.002, -0.0005};
  for (const auto& [u, v] : {std::pair{320.001, 240.0}, {100.0, 400.0}, {600.0, 30.0}}) {
    const auto ray = rayOf(u, v, lens);
    constexpr double kStep = 1e-4;
    const Eigen::Vector3d perU =
        (rayOf(u + kStep, v, lens).direction - rayOf(u - kStep, v, lens).direction) / (2 * kStep);
    const Eigen::Vector3d perV =
        (rayOf(u, v + kStep, lens).direction - rayOf(u, v - kStep, lens).direction) / (2 * kStep);
    EXPECT_LT((ray.perPixel.col(0) - perU).norm(), 1e-9);
    EXPECT_LT((ray.perPixel.col(1) - perV).norm(), 1e-9);
  }
}

TEST(SampsonDistance, HasTheSpreadOfThePixelNoise) {
  const auto rig = rig::builtInRig();
  double sum = 0;
  const auto pairs = pairsAllOver(rig, 4000, 0.2, 1);
  for (const double d : sampsonDistances(rig.calibration, pairs)) sum += d * d;
  // The mean square of 4,000 draws is within 2.2 % of its own.
  EXPECT_NEAR(std::sqrt(sum / 4000), 0.2, 0.01);
}

TEST(SampsonDistance, ChangesWithEveryParameterAsDifferencesSay) {
  const auto rig = rig::builtInRig();
  const auto pair = pairsAllOver(rig, 1, 0.3, 2)[0];
  const auto gradient = sampsonGradient(rig.calibration, pair, kAllParameters);
  const auto ofThePose = sampsonGradient(rig.calibration, pair, kPoseParameters);
  for (int k = 0; k < kAllParameters; ++k) {
    Eigen::VectorXd step = Eigen::VectorXd::Zero(kAllParameters);
    step[k] = 1e-5;
    const double up = sampsonDistances(moved(rig.calibration, step), {pair})[0];
    const double down = sampsonDistances(moved(rig.calibration, -step), {pair})[0];
    const double slope = (up - down) / 2e-5;
    EXPECT_NEAR(gradient[k], slope, 1e-5 * (1 + std::abs(slope))) << k;
    if (k < kPoseParameters) {
      EXPECT_NEAR(ofThePose[k], slope, 1e-5 * (1 + std::abs(slope))) << k;
    }
  }
}

TEST(PairFit, FindsABendOfFiveDegreesAmongWrongPartners) {
  const auto rig = rig::builtInRig();
  rig::RigError error;
  error.rotation = {3, -3, 2.6};
  error.translation = {0, 2, -1};
  auto bent = rig;
  bent.calibration = rig::withError(rig.calibration, error);
  auto pairs = pairsAllOver(bent, 2000, 0.05, 3);
  // Every eighth partner is another marker's.
  for (std::size_t i = 0; i + 8 < pairs.size(); i += 8) pairs[i].right = pairs[i + 5].right;
  const PairFit fit = fitPairs(rig.calibration, pairs);
  EXPECT_TRUE(fit.converged);
  EXPECT_NEAR(fit.noise, 0.05, 0.005);
  EXPECT_GT(fit.outliers, 200u);
  EXPECT_LT(angleBetween(moved(rig.calibration, fit.change), bent.calibration), 0.02);
}

TEST(PairFit, TheSameInputGivesTheSameBits) {
  const auto rig = rig::builtInRig();
  const auto pairs = pairsAllOver(rig, 500, 0.1, 4);
  const PairFit a = fitPairs(rig.calibration, pairs), b = fitPairs(rig.calibration, pairs);
  EXPECT_EQ(a.change, b.change);
  EXPECT_EQ(a.covariance, b.covariance);
}

TEST(PairFit, StatedDeviationsAreThoseOfManyFits) {
  const auto rig = rig::builtInRig();
  double sum = 0;
  constexpr int kFits = 40;
  for (int seed = 0; seed < kFits; ++seed) {
    const PairFit fit =
        fitPairs(rig.calibration, pairsAllOver(rig, 400, 0.1, 100 + static_cast<unsigned>(seed)));
    sum += fit.change.dot(fit.covariance.ldlt().solve(fit.change));
  }
  // A chi squared of 200 degrees of freedom, divided by them: 1 within 0.1 (one deviation).
  EXPECT_NEAR(std::sqrt(sum / (5 * kFits)), 1, 0.2);
}

// Differences from a calibration that is degrees away are other parameters: where two look nearly
// alike, as turning inwards and moving forward do, they differ by many standard deviations.
TEST(PairFit, TheCovarianceIsThatOfDifferencesFromTheResult) {
  const rig::StereoRig given = rig::builtInRig();
  rig::RigError bend;
  bend.rotation = Eigen::Vector3d(3, -3, 2);
  bend.translation = Eigen::Vector3d(-2, 3, 3);
  rig::StereoRig truth = given;
  truth.calibration = rig::withError(given.calibration, bend);
  const auto pairs = pairsAllOver(truth, 3000, 0.05, 31);
  const PairFit far = fitPairs(given.calibration, pairs);
  const PairFit near = fitPairs(moved(given.calibration, far.change), pairs);
  ASSERT_LT(near.change.norm(), 1e-6);
  const Eigen::MatrixXd ratio = near.covariance.ldlt().solve(far.covariance);
  EXPECT_LT((ratio - Eigen::MatrixXd::Identity(kPoseParameters, kPoseParameters)).norm(), 1e-3);
}

TEST(PairFit, WhatNobodySawMovesOnlyAsFarAsItIsBelieved) {
  const auto rig = rig::builtInRig();
  PairFitOptions options;
  options.parameters = kAllParameters;
  options.believed = Eigen::VectorXd::Zero(kAllParameters);
  options.believed.tail(16).setConstant(1e-6);
  const PairFit fit = fitPairs(rig.calibration, pairsAllOver(rig, 500, 0.1, 5), options);
  EXPECT_LT(fit.change.tail(16).cwiseAbs().maxCoeff(), 1e-5);
  EXPECT_LT(fit.change.head(5).cwiseAbs().maxCoeff(), 0.01);
}

TEST(Moved, AgreesInFundamentalMatrixRotationAndTranslation) {
  const auto rig = rig::builtInRig();
  Eigen::VectorXd change(5);
  change << 0.01, -0.02, 0.005, 0.01, 0.02;
  const auto c = moved(rig.calibration, change);
  EXPECT_LT((rig::matrixFrom(c.fundamental) - rig::fundamentalFrom(c)).norm(), 1e-15);
  EXPECT_NEAR(baselineOf(c), baselineOf(rig.calibration), 1e-10);
  EXPECT_NEAR(angleBetween(c, rig.calibration) * 3.141592653589793 / 180, change.head(3).norm(),
              1e-9);
}

TEST(RawTriangulation, GivesBackWhatTheCamerasProject) {
  const auto rig = rig::builtInRig();
  const RawTriangulation triangulation(rig.calibration);
  for (const auto& seen : support::placesAllOver(rig, 200, 6)) {
    const auto result = triangulation(seen.pair.left, seen.pair.right);
    // The library's ten steps of undistortion leave some 1e-7 px.
    EXPECT_LT((result.position - seen.p_R).norm(), 1e-3 * seen.p_R.norm());
    EXPECT_LT(result.epipolarDistance, 1e-2);
  }
}

}  // namespace
}  // namespace calibration
