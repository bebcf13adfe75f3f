// Each test makes one mistake that people make, and expects to be told that one.
#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/KalibrFile.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/Random.h>
#include <sim/Simulator.h>
#include <tests/support/HandRig.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using algorithm::StereoCalibration;
using calibration::Finding;
using calibration::Geometry;
using calibration::LensModel;
using calibration::LoadedCalibration;
using calibration::ObservedPair;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

LoadedCalibration loaded(const StereoCalibration& c) {
  LoadedCalibration result;
  result.calibration = c;
  result.unit = "mm";
  return result;
}

std::vector<std::string> codes(const std::vector<Finding>& findings) {
  std::vector<std::string> result;
  for (const Finding& finding : findings) result.push_back(finding.code);
  return result;
}

std::vector<Finding> judged(const LoadedCalibration& c) {
  return calibration::judge(c, calibration::measure(c));
}

std::vector<Finding> judged(const LoadedCalibration& c, const std::vector<ObservedPair>& pairs) {
  auto findings = judged(c);
  calibration::judgeWithPairs(c, pairs, findings);
  return findings;
}

std::vector<std::string> codesOf(const StereoCalibration& c) {
  return codes(judged(loaded(c)));
}
std::vector<std::string> codesOf(const StereoCalibration& c,
                                 const std::vector<ObservedPair>& pairs) {
  return codes(judged(loaded(c), pairs));
}

/// What the rig's cameras see of moving markers, with some noise.
std::vector<ObservedPair> pairsSeenBy(const rig::StereoRig& rig, double noise = 0.1) {
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = noise;
  options.seed = 5;
  const sim::Simulator simulator(rig, sim::Scene::moving(2), options);
  std::vector<ObservedPair> pairs;
  for (int n = 0; n < 200; ++n) {
    const sim::Frame frame = simulator.frame(n);
    for (const sim::BlobRecord& l : frame.blobs)
      for (const sim::BlobRecord& r : frame.blobs)
        if (l.camera == rig::Camera::kLeft && r.camera == rig::Camera::kRight && l.id == r.id)
          pairs.push_back({{double{1} * l.sumX / l.weight, double{1} * l.sumY / l.weight},
                           {double{1} * r.sumX / r.weight, double{1} * r.sumY / r.weight},
                           8,
                           8});
  }
  return pairs;
}

/// Points all over the images, from near to far: where a wrong lens model shows.
std::vector<ObservedPair> pairsAllOver(const rig::StereoRig& rig) {
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  sim::Random random(6);
  std::vector<ObservedPair> pairs;
  while (pairs.size() < 500) {
    const double depth = random.uniform(250, 1500);
    const Eigen::Vector3d p_R(random.uniform(-1, 1) * depth, random.uniform(-1, 1) * depth, depth);
    const auto l = left.project(rig::rightToLeft(rig.calibration, p_R));
    const auto r = right.project(p_R);
    if (!l || !r) continue;
    const auto noisy = [&](const Eigen::Vector2d& p) {
      return algorithm::ImagePoint{p.x() + 0.1 * random.normal(), p.y() + 0.1 * random.normal()};
    };
    pairs.push_back({noisy(*l), noisy(*r), 8, 8});
  }
  return pairs;
}

StereoCalibration withTransform(StereoCalibration c, const Eigen::Matrix3d& R,
                                const Eigen::Vector3d& T) {
  rig::storeMatrix(R, c.rotation);
  for (int i = 0; i < 3; ++i) c.translation[i] = T[i];
  calibration::recomputeFundamental(c);
  return c;
}

Eigen::Matrix3d rotationOf(const StereoCalibration& c) {
  return rig::matrixFrom(c.rotation);
}
Eigen::Vector3d translationOf(const StereoCalibration& c) {
  return Eigen::Vector3d(c.translation);
}

std::vector<rig::StereoRig> rigs() {
  std::vector<rig::StereoRig> result = {rig::builtInRig()};
  const std::string measured = ALG_TEST_DATA "/tum_vi_camchain.yaml";
  if (std::filesystem::exists(measured))
    result.push_back(calibration::readKalibrCameraChain(measured));
  return result;
}

TEST(CalibrationCheck, FindsNothingWrongWithAGoodCalibration) {
  for (const rig::StereoRig& rig : rigs()) {
    EXPECT_THAT(codesOf(rig.calibration), IsEmpty());
    EXPECT_THAT(codesOf(rig.calibration, pairsSeenBy(rig)), IsEmpty());
  }
}

TEST(CalibrationCheck, SaysThatTheTranslationIsInverted) {
  for (const rig::StereoRig& rig : rigs()) {
    const auto& c = rig.calibration;
    const auto wrong = withTransform(c, rotationOf(c), -translationOf(c));
    EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)), ElementsAre("translation-inverted"));
  }
  // Without a recording the axes tell: they would lean apart.
  const auto& c = rig::builtInRig().calibration;
  const auto findings = judged(loaded(withTransform(c, rotationOf(c), -translationOf(c))));
  ASSERT_THAT(codes(findings), ElementsAre("translation-inverted"));
  EXPECT_THAT(findings[0].text, HasSubstr("translation seems inverted"));
}

TEST(CalibrationCheck, SaysThatTheTranslationIsTheOtherCamerasCentre) {
  for (const rig::StereoRig& rig : rigs()) {
    const auto& c = rig.calibration;
    const auto wrong =
        withTransform(c, rotationOf(c), -rotationOf(c).transpose() * translationOf(c));
    EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)), ElementsAre("translation-inverted"));
  }
}

TEST(CalibrationCheck, TellsAnInvertedSignFromTheOtherCamerasCentre) {
  // Axes that lean towards each other by 14 degrees: the two translations differ in depth too.
  rig::StereoRig rig = rig::builtInRig();
  const Eigen::Matrix3d R = Eigen::AngleAxisd(0.25, Eigen::Vector3d::UnitY()).toRotationMatrix();
  const Eigen::Vector3d T(-100, 0, 0);
  rig.calibration = withTransform(rig.calibration, R, T);
  const auto pairs = pairsAllOver(rig);
  const std::string otherCentre = "the right camera's centre in the left camera's frame";
  const auto sign = judged(loaded(withTransform(rig.calibration, R, -T)), pairs);
  ASSERT_THAT(codes(sign), ElementsAre("translation-inverted"));
  EXPECT_THAT(sign[0].text, testing::Not(HasSubstr(otherCentre)));
  const auto centre = judged(loaded(withTransform(rig.calibration, R, -R.transpose() * T)), pairs);
  ASSERT_THAT(codes(centre), ElementsAre("translation-inverted"));
  EXPECT_THAT(centre[0].text, HasSubstr(otherCentre));
}

TEST(CalibrationCheck, SaysThatTheWholeTransformIsInverted) {
  for (const rig::StereoRig& rig : rigs()) {
    const auto& c = rig.calibration;
    const auto wrong =
        withTransform(c, rotationOf(c).transpose(), -rotationOf(c).transpose() * translationOf(c));
    EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)), ElementsAre("transform-inverted"));
  }
}

TEST(CalibrationCheck, SaysThatTheCamerasAreSwapped) {
  for (const rig::StereoRig& rig : rigs())
    EXPECT_THAT(codesOf(calibration::withCamerasSwapped(rig.calibration), pairsSeenBy(rig)),
                ElementsAre("cameras-swapped"));
  // Without a recording the axes tell: they lean towards each other.
  const auto findings =
      judged(loaded(calibration::withCamerasSwapped(rig::builtInRig().calibration)));
  ASSERT_THAT(codes(findings), ElementsAre("cameras-swapped"));
  EXPECT_THAT(findings[0].text, HasSubstr("cameras seem swapped"));
}

TEST(CalibrationCheck, SaysThatTheDevicesCamerasAreSwapped) {
  for (const rig::StereoRig& rig : rigs()) {
    auto pairs = pairsSeenBy(rig);
    for (ObservedPair& pair : pairs) std::swap(pair.left, pair.right);
    EXPECT_THAT(codesOf(rig.calibration, pairs), ElementsAre("cameras-swapped"));
  }
}

TEST(CalibrationCheck, DoesNotTellInvertedFromSwappedWhereNothingTells) {
  // Parallel axes, equal cameras: both mistakes give the same numbers.
  rig::StereoRig rig{testing_support::handCalibration(), 512, 512};
  const auto wrong = withTransform(rig.calibration, Eigen::Matrix3d::Identity(),
                                   {testing_support::kBaseline, 0, 0});
  EXPECT_THAT(codesOf(wrong), ElementsAre("translation-inverted-or-cameras-swapped"));
  EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)),
              ElementsAre("translation-inverted-or-cameras-swapped"));
}

TEST(CalibrationCheck, SaysThatTheUnitIsMetres) {
  for (const rig::StereoRig& rig : rigs()) {
    const auto& c = rig.calibration;
    const auto wrong = withTransform(c, rotationOf(c), translationOf(c) / 1000);
    EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)), ElementsAre("unit-metres"));
    const auto findings = judged(loaded(wrong));
    ASSERT_THAT(codes(findings), ElementsAre("unit-metres"));
    EXPECT_THAT(findings[0].text, HasSubstr("seems to be metres"));
  }
}

TEST(CalibrationCheck, SaysThatTheFileGivesRadtan) {
  LoadedCalibration c = loaded(rig::builtInRig().calibration);
  c.left = {LensModel::kRadialTangential, true, "radtan"};
  const auto findings = judged(c);
  ASSERT_THAT(codes(findings), ElementsAre("distortion-model"));
  EXPECT_THAT(findings[0].text, HasSubstr("left camera is wrong: the file gives the "
                                          "radial-tangential model (radtan"));
}

/// k1, k2 of the radial-tangential model that fit a fisheye lens best up to `widest` radians: what
/// a calibration with the wrong model would find.
void fitRadtan(const double (&fisheye)[8], double widest, double (&radtan)[8]) {
  constexpr int kSamples = 200;
  Eigen::MatrixXd A(kSamples, 2);
  Eigen::VectorXd b(kSamples);
  for (int i = 0; i < kSamples; ++i) {
    const double theta = widest * (i + 1) / kSamples;
    const double t2 = theta * theta;
    const double distorted =
        theta * (1 + t2 * (fisheye[0] + t2 * (fisheye[1] + t2 * (fisheye[2] + t2 * fisheye[3]))));
    const double r = std::tan(theta);
    A(i, 0) = r * r * r;
    A(i, 1) = r * r * r * r * r;
    b(i) = distorted - r;
  }
  const Eigen::Vector2d k = A.colPivHouseholderQr().solve(b);
  std::fill_n(radtan, 8, 0.0);
  radtan[0] = k[0];
  radtan[1] = k[1];
}

TEST(CalibrationCheck, SuspectsRadtanCoefficientsByTheirSize) {
  const rig::StereoRig rig = rig::builtInRig();
  auto wrong = rig.calibration;
  fitRadtan(rig.calibration.leftDistortion, 0.7, wrong.leftDistortion);
  fitRadtan(rig.calibration.rightDistortion, 0.7, wrong.rightDistortion);
  const auto findings = judged(loaded(wrong));
  ASSERT_THAT(codes(findings), ElementsAre("distortion-model", "distortion-model"));
  EXPECT_THAT(findings[0].text, HasSubstr("left camera seems wrong"));
  EXPECT_THAT(findings[0].text, HasSubstr("radtan"));
}

TEST(CalibrationCheck, RecognisesRadtanCoefficientsByTheRecording) {
  // A lens so near to a perspective one that its coefficients look innocent.
  rig::StereoRig rig = rig::builtInRig();
  for (auto* k : {&rig.calibration.leftDistortion, &rig.calibration.rightDistortion}) {
    std::fill_n(*k, 8, 0.0);
    (*k)[0] = 0.2;
  }
  auto wrong = rig.calibration;
  fitRadtan(rig.calibration.leftDistortion, 0.7, wrong.leftDistortion);
  fitRadtan(rig.calibration.rightDistortion, 0.7, wrong.rightDistortion);
  ASSERT_GT(wrong.leftDistortion[0], -1.0 / 6.0);
  EXPECT_THAT(codesOf(wrong), IsEmpty());
  const auto pairs = pairsAllOver(rig);
  EXPECT_THAT(codesOf(rig.calibration, pairs), IsEmpty());
  const auto findings = judged(loaded(wrong), pairs);
  ASSERT_THAT(codes(findings), ElementsAre("distortion-model"));
  EXPECT_THAT(findings[0].text, HasSubstr("read as radial-tangential (radtan)"));
}

TEST(CalibrationCheck, SuspectsARecordThatUsesTheOtherFourCoefficients) {
  auto c = rig::builtInRig().calibration;
  c.leftDistortion[4] = 0.01;
  const auto record = calibration::readRecord(calibration::recordBytes(c), "rig.bin");
  EXPECT_THAT(codes(judged(record)), ElementsAre("distortion-model"));
}

TEST(CalibrationCheck, SaysThatTheLensModelEndsBeforeTheImage) {
  auto c = rig::builtInRig().calibration;
  c.leftDistortion[1] = -0.5;
  EXPECT_THAT(codesOf(c), ElementsAre("distortion-model"));
}

TEST(CalibrationCheck, MeasuresHowFarTheFundamentalMatrixIsOff) {
  // Lines are the rows; moved by two pixels they miss by two in both images.
  auto c = testing_support::handCalibration();
  EXPECT_NEAR(calibration::epipolarErrorOfFundamental(c), 0, 1e-9);
  c.fundamental[8] = -2;
  EXPECT_NEAR(calibration::epipolarErrorOfFundamental(c), 2, 1e-9);
  EXPECT_THAT(codesOf(c), ElementsAre("fundamental"));
}

TEST(CalibrationCheck, NamesTheFundamentalMatrixOnceWhereTheRecordingBlamesItToo) {
  const rig::StereoRig rig = rig::builtInRig();
  auto wrong = rig.calibration;
  // Belongs to the exchanged images.
  rig::storeMatrix(rig::matrixFrom(rig.calibration.fundamental).transpose(), wrong.fundamental);
  EXPECT_THAT(codesOf(wrong, pairsSeenBy(rig)), ElementsAre("fundamental"));
}

TEST(CalibrationCheck, SaysThatTheRotationIsNone) {
  auto c = testing_support::handCalibration();
  c.rotation[0] = 1.01;
  EXPECT_NEAR(calibration::measure(loaded(c)).rotationDeviation, 1.01 * 1.01 - 1, 1e-12);
  EXPECT_THAT(codesOf(c), testing::Contains("rotation"));
  c.rotation[0] = -1;
  EXPECT_NEAR(calibration::measure(loaded(c)).rotationDeterminant, -1, 1e-12);
  EXPECT_THAT(codesOf(c), testing::Contains("rotation"));
}

TEST(CalibrationCheck, MeasuresTheHandRig) {
  const Geometry g = calibration::measure(loaded(testing_support::handCalibration()));
  EXPECT_DOUBLE_EQ(g.baseline, 100);
  EXPECT_NEAR(g.rotationAngle, 0, 1e-9);
  EXPECT_NEAR(g.convergence, 0, 1e-9);
  // r = theta, 256 px per radian, the centre in the middle of what is taken as 512 px: 1 radian to
  // either side, sqrt(2) to a corner.
  EXPECT_EQ(g.width, 512);
  EXPECT_FALSE(g.sizeStated);
  EXPECT_NEAR(g.left.horizontal, 2 * 180 / M_PI, 1e-6);
  EXPECT_NEAR(g.right.vertical, 2 * 180 / M_PI, 1e-6);
  EXPECT_NEAR(g.left.diagonal, 2 * std::sqrt(2.0) * 180 / M_PI, 1e-6);
}

TEST(CalibrationCheck, InvertsTheLensFormula) {
  const double k[8] = {0.021, -0.0064, 0.0018, -0.0005};
  for (double theta = 0; theta < 1.4; theta += 0.1) {
    const double t2 = theta * theta;
    const double r = theta * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
    const auto angle = rig::angleAtRadius(k, r);
    ASSERT_TRUE(angle);
    EXPECT_NEAR(*angle, theta, 1e-9);
  }
  // theta - theta^3 / 2 grows up to sqrt(2 / 3), where it is 0.544.
  const double folding[8] = {-0.5};
  EXPECT_TRUE(rig::angleAtRadius(folding, 0.54));
  EXPECT_FALSE(rig::angleAtRadius(folding, 0.55));
}

TEST(CalibrationCheck, MeasuresPairsOfTheRig) {
  const rig::StereoRig rig = rig::builtInRig();
  const auto clean = calibration::fit(rig.calibration, pairsSeenBy(rig, 0));
  EXPECT_GT(clean.pairs, 500u);
  EXPECT_LT(clean.medianResidual, 0.01);
  EXPECT_EQ(clean.accepted, 1);
  EXPECT_EQ(clean.inFront, 1);
  EXPECT_NEAR(clean.medianDepth, 1500, 300);
  // Noise of 0.5 px in y of either image: the residual is normal with 0.5 sqrt(2) px (and a little
  // more, since undistortion magnifies), half of it below 0.6745 standard deviations.
  const auto noisy = calibration::fit(rig.calibration, pairsSeenBy(rig, 0.5));
  EXPECT_GT(noisy.medianResidual, 0.4);
  EXPECT_LT(noisy.medianResidual, 0.6);
}

TEST(CalibrationCheck, SaysThatARecordingIsOfAnotherRig) {
  const std::vector<rig::StereoRig> all = rigs();
  if (all.size() < 2) GTEST_SKIP() << "no measured calibration";
  EXPECT_THAT(codesOf(all[1].calibration, pairsSeenBy(all[0])),
              ElementsAre("recording-unexplained"));
}

TEST(CalibrationCheck, SaysThatARecordingIsTooShort) {
  const rig::StereoRig rig = rig::builtInRig();
  auto pairs = pairsSeenBy(rig);
  pairs.resize(19);
  EXPECT_THAT(codesOf(rig.calibration, pairs), ElementsAre("few-pairs"));
}

}  // namespace
