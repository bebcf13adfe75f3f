#include <alg_kit/calibration/Refinement.h>
#include <alg_kit/rig/RigError.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/support/SeenPairs.h>

#include <Eigen/Dense>
#include <cstring>

namespace calibration {
namespace {

using support::pairsAllOver;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

LoadedCalibration loadedFrom(const rig::StereoRig& rig) {
  LoadedCalibration loaded;
  loaded.calibration = rig.calibration;
  loaded.unit = "mm";
  loaded.width = rig.width;
  loaded.height = rig.height;
  return loaded;
}

rig::StereoRig bentRig(const rig::RigError& error) {
  auto rig = rig::builtInRig();
  rig.calibration = rig::withError(rig.calibration, error);
  return rig;
}

TEST(Refinement, PutsABendRightAndSaysByHowMuch) {
  rig::RigError error;
  error.rotation = {0.3, -0.4, 0.25};
  const auto bent = bentRig(error);
  const auto result = refine(loadedFrom(rig::builtInRig()), pairsAllOver(bent, 2000, 0.05, 1));
  EXPECT_THAT(result.refusal, IsEmpty());
  EXPECT_TRUE(result.changed);
  EXPECT_EQ(result.pairs, 2000u);
  EXPECT_NEAR(static_cast<double>(result.heldBack), 400, 7);
  EXPECT_NEAR(result.rotation, 0.559, 4 * result.rotationDeviation);
  EXPECT_LT(result.rotationDeviation, 0.02);
  EXPECT_LT(result.direction, 4 * result.directionDeviation);
  EXPECT_NEAR(result.noise, 0.05, 0.005);
  EXPECT_GT(result.before.medianResidual, 10 * result.after.medianResidual);
  // Noise of 0.05 px leaves about 0.05 px between a point and its line (sqrt(2) times 0.67), more
  // towards the edges, which undistortion stretches.
  EXPECT_GT(result.after.medianResidual, 0.045);
  EXPECT_LT(result.after.medianResidual, 0.075);
  ASSERT_EQ(result.expected.size(), 3u);
  EXPECT_GT(result.expected[1].before, 5 * result.expected[1].after());
  EXPECT_LT(result.expected[1].fromCalibration, result.expected[1].fromNoise);
  EXPECT_THAT(result.undetermined, IsEmpty());
  EXPECT_NEAR(baselineOf(result.calibration), baselineOf(bent.calibration), 1e-9);
}

TEST(Refinement, LeavesAPerfectCalibrationAlone) {
  const auto rig = rig::builtInRig();
  for (unsigned seed = 1; seed <= 5; ++seed) {
    const auto result = refine(loadedFrom(rig), pairsAllOver(rig, 2000, 0.05, seed));
    EXPECT_THAT(result.refusal, IsEmpty());
    EXPECT_FALSE(result.changed);
    EXPECT_EQ(std::memcmp(&result.calibration, &rig.calibration, sizeof rig.calibration), 0);
  }
}

/// Markers that stay within 150 mm, 1.5 m away.
std::vector<ObservedPair> pairsOfAHand(const rig::StereoRig& rig, std::size_t count,
                                       unsigned seed) {
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  sim::Random random(seed);
  const auto noisy = [&](const Eigen::Vector2d& p) {
    return algorithm::ImagePoint{p.x() + 0.05 * random.normal(), p.y() + 0.05 * random.normal()};
  };
  std::vector<ObservedPair> pairs;
  while (pairs.size() < count) {
    const double x = random.uniform(-150, 150), y = random.uniform(-150, 150);
    const Eigen::Vector3d p_R(x, y, 1500 + random.uniform(-150, 150));
    const auto l = left.project(rig::rightToLeft(rig.calibration, p_R)), r = right.project(p_R);
    if (l && r) pairs.push_back({noisy(*l), noisy(*r), 8, 8});
  }
  return pairs;
}

// Such markers are explained nearly as well by cameras that stand degrees apart.
TEST(Refinement, PutsNothingIntoThePlaceOfACalibrationThatExplainsMore) {
  const auto rig = rig::builtInRig();
  for (unsigned seed = 1; seed <= 10; ++seed) {
    const auto result = refine(loadedFrom(rig), pairsOfAHand(rig, 3000, seed));
    EXPECT_FALSE(result.changed) << seed << ": " << result.direction << " degrees, median "
                                 << result.before.medianResidual << " to "
                                 << result.after.medianResidual;
  }
}

TEST(Refinement, RefusesAStillMarker) {
  rig::RigError error;
  error.rotation = {0.3, -0.4, 0.25};
  const auto bent = bentRig(error);
  const auto one = support::placesAllOver(bent, 1, 3)[0].pair;
  sim::Random random(4);
  std::vector<ObservedPair> pairs;
  for (int i = 0; i < 2000; ++i) {
    ObservedPair pair = one;
    for (double* const x : {&pair.left.x, &pair.left.y, &pair.right.x, &pair.right.y})
      *x += 0.05 * random.normal();
    pairs.push_back(pair);
  }
  const auto result = refine(loadedFrom(rig::builtInRig()), pairs);
  EXPECT_THAT(result.refusal, HasSubstr("do not determine"));
  EXPECT_THAT(result.undetermined, Not(IsEmpty()));
  EXPECT_THAT(result.advice, Not(IsEmpty()));
  // A few strays must not seem to settle what the marker leaves open.
  const auto strays = pairsAllOver(bent, 12, 0.05, 5);
  pairs.insert(pairs.end(), strays.begin(), strays.end());
  EXPECT_THAT(refine(loadedFrom(rig::builtInRig()), pairs).refusal, Not(IsEmpty()));
}

TEST(Refinement, RefusesOrNamesWhatTheMiddleOfTheImageLeavesOpen) {
  rig::RigError error;
  error.rotation = {0.3, -0.4, 0.25};
  const auto bent = bentRig(error);
  std::vector<ObservedPair> pairs;
  for (const auto& place : support::placesAllOver(bent, 60000, 6, 0.05))
    if (std::abs(place.pair.right.x - 320) < 40 && std::abs(place.pair.right.y - 240) < 40)
      pairs.push_back(place.pair);
  ASSERT_GT(pairs.size(), 500u);
  const auto result = refine(loadedFrom(rig::builtInRig()), pairs);
  EXPECT_THAT(result.undetermined, Not(IsEmpty()));
  EXPECT_THAT(result.advice, Not(IsEmpty()));
}

TEST(Refinement, RefusesFewPairsAndAnotherRigsPairs) {
  const auto rig = rig::builtInRig();
  EXPECT_THAT(refine(loadedFrom(rig), pairsAllOver(rig, 49, 0.05, 7)).refusal,
              HasSubstr("at least 50"));
  EXPECT_THAT(refine(loadedFrom(rig), {}).refusal, HasSubstr("found 0"));
  // Left and right of different moments belong to no pair of cameras.
  auto pairs = pairsAllOver(rig, 1000, 0.05, 8);
  const auto others = pairsAllOver(rig, 1000, 0.05, 9);
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i].right = others[i].right;
  EXPECT_THAT(refine(loadedFrom(rig), pairs).refusal, HasSubstr("no pair of such cameras"));
}

TEST(Refinement, SurvivesPixelsThatAreNoPlaces) {
  const auto rig = rig::builtInRig();
  auto pairs = pairsAllOver(rig, 1000, 0.05, 10);
  pairs[3].left.x = 1e300;
  pairs[4].right.y = -1e300;
  pairs[5].left.y = std::numeric_limits<double>::infinity();
  pairs[6].right.x = std::numeric_limits<double>::quiet_NaN();
  const auto result = refine(loadedFrom(rig), pairs);
  EXPECT_THAT(result.refusal, IsEmpty());
  EXPECT_FALSE(result.changed);
}

TEST(Refinement, WithIntrinsicsFindsAFocalErrorAsFarAsTheDataGo) {
  rig::RigError error;
  error.focal = {0.4, -0.4};
  const auto bent = bentRig(error);
  RefineOptions options;
  options.intrinsics = true;
  const auto result =
      refine(loadedFrom(rig::builtInRig()), pairsAllOver(bent, 1500, 0.05, 11), options);
  EXPECT_THAT(result.refusal, IsEmpty());
  EXPECT_TRUE(result.changed);
  ASSERT_EQ(result.parameters.size(), 21u);
  // The difference of the focal lengths shows; what both have in common hardly does.
  const double difference = result.parameters[5].change - result.parameters[13].change;
  EXPECT_NEAR(difference, 0.004 * (381.2 + 379.6), 0.6);
  EXPECT_LT(result.after.medianResidual, 0.075);
  for (const FittedParameter& p : result.parameters) {
    if (p.believed > 0) {
      EXPECT_LT(p.deviation, 1.05 * p.believed) << p.name;
    }
  }
}

TEST(Wand, TheTwoPointObjectGivesTheLengthOfTheBaseline) {
  const auto rig = rig::builtInRig();
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  std::vector<TwoPointView> views;
  for (const auto& place : support::placesAllOver(rig, 400, 12)) {
    const Eigen::Vector3d other = place.p_R + Eigen::Vector3d(0, 68, 0);
    const auto l = left.project(rig::rightToLeft(rig.calibration, other));
    const auto r = right.project(other);
    if (!l || !r) continue;
    // The right camera lists them the other way round.
    views.push_back({{place.pair.left, {l->x(), l->y()}}, {{r->x(), r->y()}, place.pair.right}});
  }
  const auto stretched = withBaseline(rig.calibration, 1.02 * baselineOf(rig.calibration));
  const WandLength wand = wandLength(stretched, views);
  EXPECT_EQ(wand.views, views.size());
  EXPECT_NEAR(wand.length, 1.02 * 68, 0.01);
  EXPECT_EQ(wandLength(stretched, {}).views, 0u);
}

}  // namespace
}  // namespace calibration
