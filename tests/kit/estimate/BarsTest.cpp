// What docs/estimation.md promises, in short: bench_estimation holds all of it.
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/rig/StereoRig.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <tests/support/EstimationTrial.h>
#include <algorithm>

namespace {

using testing_support::TrialResult;

TrialResult tried(int type, const sim::Scene& scene, double noise, bool hard) {
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = noise;
  options.framing = type == 2 ? sim::Framing::kPlain : sim::Framing::kStamped;
  if (hard) {
    options.blobs.dropoutProbability = 0.05;
    options.blobs.strayRate = 0.3;
    sim::Occlusion hidden;
    hidden.from = 5;
    hidden.to = 6;
    options.blobs.occlusions.push_back(hidden);
  }
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  return testing_support::runTrial(*library, {rig::builtInRig(), scene, options}, 15, {});
}

class Bars : public testing::TestWithParam<int> {};

TEST_P(Bars, HoldOnMotion) {
  for (const bool hard : {false, true}) {
    const TrialResult r = tried(GetParam(), sim::Scene::moving(GetParam(), 3), 0.05, hard);
    const double more = hard ? 0.1 : 0;
    EXPECT_GT(r.frames, 1500);
    EXPECT_LT(r.online, (0.6 + more) * r.answered);
    EXPECT_LT(r.smoothed, (0.3 + more) * r.answered);
    EXPECT_LT(r.predicted, std::max((0.4 + more) * r.held, 1.25 * r.online));
    EXPECT_LT(std::abs(r.onlineLag), 0.002);
    EXPECT_GT(r.onlineNees, 0.7);
    EXPECT_LT(r.onlineNees, 1.4);
    EXPECT_GT(r.smoothedNees, 0.7);
    EXPECT_LT(r.smoothedNees, 1.4);
    EXPECT_LT(r.missing, r.frames / 500);
  }
}

TEST_P(Bars, HoldAtRest) {
  const TrialResult r = tried(GetParam(), sim::Scene::still(GetParam()), 0.05, false);
  EXPECT_LT(r.onlineJitter, 0.5 * r.answeredJitter);
  EXPECT_LT(r.smoothed, 0.3 * r.answered);
}

INSTANTIATE_TEST_SUITE_P(ProductTypes, Bars, testing::Values(0, 1, 2));

}  // namespace
