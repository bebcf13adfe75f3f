#include <alg_kit/estimate/BlobNoise.h>
#include <alg_kit/estimate/Smoother.h>
#include <alg_kit/rig/StereoRig.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <map>

namespace estimate {
namespace {

using Eigen::Vector3d;

struct Errors {
  double online = 0, smoothed = 0;
  long frames = 0;
};

sim::SimulatorOptions options(double noise) {
  sim::SimulatorOptions result;
  result.blobs.pixelNoise = noise;
  result.framing = sim::Framing::kStamped;
  return result;
}

TEST(Smoother, IsFarBetterThanTheEstimatorAndFindsTheNoise) {
  for (const int type : {0, 1}) {
    const auto calibration = rig::builtInRig().calibration;
    const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(type), options(0.05));
    Estimator estimator(type, calibration);
    Smoother smoother(type, calibration);
    std::vector<std::vector<Vector3d>> online(3), truth(3);
    for (int n = 0; n < 900; ++n) {
      const auto frame = simulator.frame(n);
      const int length = static_cast<int>(frame.payload.size());
      estimator.feed(2, frame.payload.data(), length);
      EXPECT_EQ(smoother.add(2, frame.payload.data(), length), static_cast<std::size_t>(n));
      for (int object = 0; object < 3; ++object) {
        const auto k = static_cast<std::size_t>(object);
        online[k].push_back(Vector3d(estimator.at(object).position));
        truth[k].push_back(rig::mirrored(frame.truth.objects[k].position));
      }
    }
    Errors errors;
    smoother.run([&](int object, std::size_t frame, const Estimate& estimate) {
      const auto k = static_cast<std::size_t>(object);
      if (frame < 90) return;
      errors.online += (online[k][frame] - truth[k][frame]).squaredNorm();
      errors.smoothed += (Vector3d(estimate.position) - truth[k][frame]).squaredNorm();
      ++errors.frames;
    });
    EXPECT_EQ(errors.frames, 3 * 810);
    EXPECT_LT(errors.smoothed, 0.25 * errors.online);  // squares: half the error
    EXPECT_NEAR(smoother.noise(), 0.05, 0.005);
  }
}

TEST(Smoother, GivesTheTwoPointObjectsDirection) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(1), options(0.1));
  Estimator estimator(1, rig::builtInRig().calibration);
  Smoother smoother(1, rig::builtInRig().calibration);
  std::vector<Vector3d> truth;
  double online = 0, smoothed = 0, stated = 0;
  for (int n = 0; n < 900; ++n) {
    const auto frame = simulator.frame(n);
    const int length = static_cast<int>(frame.payload.size());
    estimator.feed(2, frame.payload.data(), length);
    smoother.add(2, frame.payload.data(), length);
    truth.push_back(rig::mirrored(frame.truth.markers[3].position - frame.truth.markers[2].position)
                        .normalized());
    if (n >= 90) online += (Vector3d(estimator.at(2).direction) - truth.back()).squaredNorm();
  }
  int frames = 0;
  smoother.run([&](int object, std::size_t frame, const Estimate& estimate) {
    if (object != 2 || frame < 90) return;
    ASSERT_TRUE(estimate.hasDirection);
    smoothed += (Vector3d(estimate.direction) - truth[frame]).squaredNorm();
    stated += 2 * estimate.directionDeviation * estimate.directionDeviation;  // two axes across
    ++frames;
  });
  EXPECT_EQ(frames, 810);
  EXPECT_LT(smoothed, 0.5 * online);
  EXPECT_LT(smoothed, 2 * stated);
  EXPECT_GT(smoothed, 0.3 * stated);
}

TEST(Smoother, StatesLargerVariancesWhereSightingsMissMoreThanStated) {
  const auto variance = [](double noise) {
    const sim::Simulator simulator(rig::builtInRig(), sim::Scene::still(0), options(noise));
    EstimatorOptions stated;
    stated.noise = 0.05;
    Smoother smoother(0, simulator.rig().calibration, stated);
    for (int n = 0; n < 900; ++n) {
      const auto frame = simulator.frame(n);
      smoother.add(2, frame.payload.data(), static_cast<int>(frame.payload.size()));
    }
    double sum = 0;
    smoother.run([&](int, std::size_t frame, const Estimate& estimate) {
      if (frame < 400) sum += estimate.covariance[2][2];  // frames come from the last one
    });
    return sum;
  };
  // Twice the noise: sightings miss by four times what is stated.
  EXPECT_GT(variance(0.1), 2.5 * variance(0.05));
}

TEST(Smoother, TakesRaysThatMissByHundredsOfPixelsForNoNoise) {
  auto moved = rig::builtInRig();
  moved.calibration.rightIntrinsics[5] += 200;  // the centre's y: a camera that was knocked
  const sim::Simulator before(rig::builtInRig(), sim::Scene::still(0), options(0.05));
  const sim::Simulator after(moved, sim::Scene::still(0), options(0.05));
  Smoother smoother(0, rig::builtInRig().calibration);
  for (int n = 0; n < 30; ++n) {
    const auto frame = (n < 5 ? before : after).frame(n);
    smoother.add(2, frame.payload.data(), static_cast<int>(frame.payload.size()));
  }
  smoother.run([](int, std::size_t, const Estimate&) {});
  EXPECT_EQ(smoother.noise(), BlobNoise::kMost);
}

TEST(Smoother, FillsAGapFromBothSides) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, {}, 5, 5.5}};
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(0), given);
  Smoother smoother(0, rig::builtInRig().calibration);
  std::vector<Vector3d> truth;
  for (int n = 0; n < 900; ++n) {
    const auto frame = simulator.frame(n);
    smoother.add(2, frame.payload.data(), static_cast<int>(frame.payload.size()));
    truth.push_back(rig::mirrored(frame.truth.objects[0].position));
  }
  int bridged = 0;
  smoother.run([&](int object, std::size_t frame, const Estimate& estimate) {
    if (object != 0 || frame < 450 || frame >= 495) return;
    EXPECT_EQ(estimate.source, Source::kBridged);
    EXPECT_LT((Vector3d(estimate.position) - truth[frame]).norm(), 10) << frame;
    ++bridged;
  });
  EXPECT_EQ(bridged, 45);
}

TEST(Smoother, NumbersOnlyFramesAndSurvivesNone) {
  Smoother smoother(0, rig::builtInRig().calibration);
  const unsigned char byte = 0;
  EXPECT_FALSE(smoother.add(3, &byte, 1));
  EXPECT_FALSE(smoother.add(0, &byte, 0));
  EXPECT_EQ(smoother.add(0, &byte, 1), 0u);
  smoother.run([](int, std::size_t, const Estimate&) { FAIL(); });
}

}  // namespace
}  // namespace estimate
