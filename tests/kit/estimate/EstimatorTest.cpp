#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/rig/StereoRig.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include <tests/support/AllocationCounter.h>

namespace estimate {
namespace {

using Eigen::Vector3d;

sim::SimulatorOptions options(double noise = 0) {
  sim::SimulatorOptions result;
  result.blobs.pixelNoise = noise;
  result.framing = sim::Framing::kStamped;
  return result;
}

sim::Simulator moving(int type, const sim::SimulatorOptions& given) {
  return {rig::builtInRig(), sim::Scene::moving(type), given};
}

void feed(Estimator& estimator, const sim::Simulator& simulator, std::int64_t index) {
  const sim::Frame frame = simulator.frame(index);
  estimator.feed(simulator.streamType(), frame.payload.data(),
                 static_cast<int>(frame.payload.size()));
}

void feedUntil(Estimator& estimator, const sim::Simulator& simulator, std::int64_t end,
               std::int64_t begin = 0) {
  for (std::int64_t i = begin; i < end; ++i) feed(estimator, simulator, i);
}

Vector3d positionOf(const Estimate& estimate) {
  return Vector3d(estimate.position);
}

/// Delivered axes.
Vector3d truthOf(const sim::Simulator& simulator, std::int64_t index, int object) {
  return rig::mirrored(
      simulator.frame(index).truth.objects[static_cast<std::size_t>(object)].position);
}

double deviationOf(const Estimate& estimate) {
  return std::sqrt(estimate.covariance[0][0] + estimate.covariance[1][1] +
                   estimate.covariance[2][2]);
}

TEST(Estimator, KnowsNothingBeforeASecondFrameConfirmsTheFirst) {
  Estimator estimator(0, rig::builtInRig().calibration);
  const auto simulator = moving(0, options());
  EXPECT_EQ(estimator.at(0).source, Source::kNone);
  feed(estimator, simulator, 0);
  EXPECT_EQ(estimator.at(0).source, Source::kNone);
  feed(estimator, simulator, 1);
  EXPECT_EQ(estimator.at(0).source, Source::kMeasured);
}

TEST(Estimator, FollowsPerfectLightOfAllProductTypes) {
  for (const int type : {0, 1, 2}) {
    Estimator estimator(type, rig::builtInRig().calibration);
    const auto simulator = moving(type, options());
    feedUntil(estimator, simulator, 180);
    for (int object = 0; object < estimator.objectCount(); ++object) {
      const Estimate now = estimator.at(object);
      EXPECT_LT((positionOf(now) - truthOf(simulator, 179, object)).norm(), 0.5) << type << object;
      const Vector3d velocity =
          (truthOf(simulator, 180, object) - truthOf(simulator, 178, object)) * 45;
      EXPECT_LT((Vector3d(now.velocity) - velocity).norm(), 0.05 * velocity.norm() + 10);
      EXPECT_EQ(now.cameras, 2);
      EXPECT_EQ(now.age, 0);
      EXPECT_NEAR(now.time, 179 / 90.0, 1e-5);
    }
  }
}

TEST(Estimator, PredictsAMomentAhead) {
  Estimator estimator(0, rig::builtInRig().calibration);
  const auto simulator = moving(0, options());
  feedUntil(estimator, simulator, 180);
  const Estimate ahead = estimator.ahead(1, 3 / 90.0);
  EXPECT_EQ(ahead.source, Source::kPredicted);
  EXPECT_NEAR(ahead.time, 182 / 90.0, 1e-5);
  const double moved = (truthOf(simulator, 182, 1) - truthOf(simulator, 179, 1)).norm();
  EXPECT_LT((positionOf(ahead) - truthOf(simulator, 182, 1)).norm(), 0.2 * moved);
  EXPECT_GT(deviationOf(ahead), deviationOf(estimator.at(1)));
}

TEST(Estimator, AnswersNothingForMomentsThatItDoesNotPromise) {
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, moving(0, options()), 10);
  for (const double seconds : {-0.001, 0.11, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(estimator.ahead(0, seconds).source, Source::kNone);
  for (const int object : {-1, 3, 1000}) EXPECT_EQ(estimator.at(object).source, Source::kNone);
}

TEST(Estimator, BridgesAGapWithGrowingCovarianceAndThenGivesUp) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, {}, 2, 10}};
  const auto simulator = moving(0, given);
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 180);
  double deviation = deviationOf(estimator.at(0));
  for (int i = 180; i < 180 + 88; ++i) {
    feed(estimator, simulator, i);
    const Estimate now = estimator.at(0);
    ASSERT_EQ(now.source, Source::kBridged);
    EXPECT_EQ(now.cameras, 0);
    EXPECT_NEAR(now.age, (i - 179) / 90.0, 1e-5);
    EXPECT_GT(deviationOf(now), deviation);
    deviation = deviationOf(now);
    EXPECT_EQ(estimator.verdict(0).refusal, Refusal::kNotSeen);
    // The true place is within what is said.
    EXPECT_LT((positionOf(now) - truthOf(simulator, i, 0)).norm(), 4 * deviation);
  }
  feedUntil(estimator, simulator, 180 + 95, 180 + 88);
  EXPECT_EQ(estimator.at(0).source, Source::kNone);
  EXPECT_EQ(estimator.at(1).source, Source::kMeasured);
}

TEST(Estimator, BeginsAnewWhereAnObjectReappears) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, {}, 2, 4}};
  const auto simulator = moving(0, given);
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 365);
  EXPECT_EQ(estimator.at(0).source, Source::kMeasured);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(simulator, 364, 0)).norm(), 20);
}

TEST(Estimator, OneCameraGoesOnWhereTheOtherIsBlind) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, rig::Camera::kLeft, 2, 3}};
  const auto simulator = moving(0, given);
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 210);
  const Estimate now = estimator.at(0);
  EXPECT_EQ(now.source, Source::kMeasured);
  EXPECT_EQ(now.cameras, 1);
  const Vector3d error = positionOf(now) - truthOf(simulator, 209, 0);
  EXPECT_LT(std::hypot(error.x(), error.y()), 25);  // the ray holds two of three numbers
  EXPECT_LT(error.norm(), 4 * deviationOf(now));
}

TEST(Estimator, DoesNotFollowOneCameraOnceTheDepthIsGuessed) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, rig::Camera::kLeft, 2, 2.95}};
  const auto simulator = moving(0, given);
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 264);
  const Estimate now = estimator.at(0);
  EXPECT_EQ(now.source, Source::kBridged);
  EXPECT_EQ(estimator.verdict(0).refusal, Refusal::kOneCamera);
  EXPECT_GT(deviationOf(now), 50);
  EXPECT_LT((positionOf(now) - truthOf(simulator, 263, 0)).norm(), 4 * deviationOf(now));
  feedUntil(estimator, simulator, 272, 264);
  EXPECT_EQ(estimator.at(0).cameras, 2);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(simulator, 271, 0)).norm(), 20);
}

// Whether the stamps say so or the host, by when packets came.
TEST(Estimator, FramesThatAreMissingAreTimeThatPasses) {
  for (const auto framing : {sim::Framing::kStamped, sim::Framing::kPlain}) {
    auto given = options(0.05);
    given.framing = framing;
    const auto simulator = moving(2, given);
    Estimator estimator(2, rig::builtInRig().calibration);
    for (int i = 0; i < 200; ++i) {
      if (i >= 180 && i < 189) continue;
      const sim::Frame frame = simulator.frame(i);
      estimator.feed(simulator.streamType(), frame.payload.data(),
                     static_cast<int>(frame.payload.size()), simulator.timeOf(i));
      if (i < 189) continue;
      EXPECT_NEAR(estimator.now(), i / 90.0, 1e-5);
      for (int object = 0; object < estimator.objectCount(); ++object) {
        EXPECT_EQ(estimator.at(object).source, Source::kMeasured);
        EXPECT_LT((positionOf(estimator.at(object)) - truthOf(simulator, i, object)).norm(), 20);
      }
    }
    EXPECT_EQ(estimator.verdict(0).counts[static_cast<int>(Refusal::kNone)], 191);
  }
}

/// A packet of the simulator with one object's blobs moved by some pixels.
/// @param down  the left camera's blobs; the right camera's go up by as much
sim::Bytes displaced(const sim::Simulator& simulator, std::int64_t index, int object, double left,
                     double right, double down = 0) {
  sim::Frame frame = simulator.frame(index);
  for (sim::BlobRecord& blob : frame.blobs)
    if (blob.id == object) {
      const double by = blob.camera == rig::Camera::kLeft ? left : right;
      const double lower = blob.camera == rig::Camera::kLeft ? down : -down;
      blob.sumX = static_cast<std::uint32_t>(blob.sumX + by * blob.weight);
      blob.sumY = static_cast<std::uint32_t>(blob.sumY + lower * blob.weight);
    }
  return sim::frameType2(frame.stamp, sim::devicePacket(frame.blobs));
}

TEST(Estimator, RefusesLightThatIsOffTheTrackAndSaysWhy) {
  const auto simulator = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 180);
  const auto bytes = displaced(simulator, 180, 0, 20, 20);
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  const Verdict verdict = estimator.verdict(0);
  EXPECT_EQ(verdict.refusal, Refusal::kOffTrack);
  EXPECT_GT(verdict.value, verdict.limit);
  EXPECT_EQ(verdict.counts[static_cast<int>(Refusal::kOffTrack)], 1);
  EXPECT_EQ(estimator.at(0).source, Source::kBridged);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(simulator, 180, 0)).norm(), 15);
  EXPECT_EQ(estimator.at(1).source, Source::kMeasured);
}

TEST(Estimator, RefusesRaysThatMissEachOtherAndSaysByHowMuch) {
  const auto simulator = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 180);
  const auto bytes = displaced(simulator, 180, 0, 0, 0, 20);
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  const Verdict verdict = estimator.verdict(0);
  EXPECT_EQ(verdict.refusal, Refusal::kRaysApart);
  EXPECT_GT(verdict.value, verdict.limit);
  EXPECT_EQ(verdict.counts[static_cast<int>(Refusal::kRaysApart)], 1);
  EXPECT_EQ(estimator.at(0).source, Source::kBridged);
}

TEST(Estimator, BeginsNoTrackOutOfRangeAndSaysHowFar) {
  const auto simulator = moving(0, options());
  Estimator estimator(0, rig::builtInRig().calibration);
  const Vector3d truth = truthOf(simulator, 0, 0);
  const algorithm::StereoCalibration& c = rig::builtInRig().calibration;
  const double focal = c.leftIntrinsics[0], baseline = Vector3d(c.translation).norm();
  const double apart = focal * baseline / -truth.z() - focal * baseline / 6000;  // px
  const auto bytes = displaced(simulator, 0, 0, -apart, 0);
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  const Verdict verdict = estimator.verdict(0);
  EXPECT_EQ(verdict.refusal, Refusal::kOutOfRange);
  EXPECT_GT(verdict.value, 4500);
  EXPECT_EQ(verdict.limit, 4500);
  EXPECT_EQ(estimator.verdict(1).refusal, Refusal::kNone);
}

TEST(Estimator, UsesTheOneCameraThatFits) {
  const auto simulator = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 180);
  const auto bytes = displaced(simulator, 180, 0, 30, 0);
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(estimator.at(0).source, Source::kMeasured);
  EXPECT_EQ(estimator.at(0).cameras, 1);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(simulator, 180, 0)).norm(), 15);
}

// One camera's light after a gap may be a stray: the object may be in a good part of the image.
TEST(Estimator, OnlyBothCamerasEndAGap) {
  auto given = options(0.05);
  given.blobs.occlusions = {{0, {}, {}, 2, 10}};
  const auto occluded = moving(0, given), seen = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, occluded, 200);
  sim::Frame frame = seen.frame(200);
  frame.blobs.erase(std::remove_if(frame.blobs.begin(), frame.blobs.end(),
                                   [](const sim::BlobRecord& blob) {
                                     return blob.id == 0 && blob.camera == rig::Camera::kRight;
                                   }),
                    frame.blobs.end());
  const auto bytes = sim::frameType2(frame.stamp, sim::devicePacket(frame.blobs));
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(estimator.at(0).source, Source::kBridged);
  EXPECT_EQ(estimator.verdict(0).refusal, Refusal::kOneCamera);
  feed(estimator, seen, 201);
  EXPECT_EQ(estimator.at(0).cameras, 2);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(seen, 201, 0)).norm(), 20);
}

TEST(Estimator, GoesWhereAnObjectWasPut) {
  const auto simulator = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 180);
  for (int i = 180; i < 190; ++i) {
    const auto bytes = displaced(simulator, i, 0, 40, 40);
    estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  }
  EXPECT_EQ(estimator.at(0).source, Source::kMeasured);
  // 40 px of 380 at 1430 mm.
  EXPECT_NEAR((positionOf(estimator.at(0)) - truthOf(simulator, 189, 0)).x(), 150, 15);
}

TEST(Estimator, PassesOverCorruptAndLatePackets) {
  const auto simulator = moving(0, options(0.05));
  Estimator estimator(0, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 100);
  sim::Bytes bytes = simulator.frame(100).payload;
  sim::corruptByte(bytes, bytes.size() - 3);
  estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
  EXPECT_EQ(estimator.verdict(0).refusal, Refusal::kBadPacket);
  EXPECT_EQ(estimator.at(0).source, Source::kBridged);
  EXPECT_NEAR(estimator.now(), 100 / 90.0, 1e-5);
  feed(estimator, simulator, 98);
  EXPECT_EQ(estimator.verdict(0).refusal, Refusal::kLate);
  EXPECT_NEAR(estimator.now(), 100 / 90.0, 1e-5);
  feedUntil(estimator, simulator, 104, 101);
  EXPECT_LT((positionOf(estimator.at(0)) - truthOf(simulator, 103, 0)).norm(), 15);
}

TEST(Estimator, FindsTheBlobNoiseByItself) {
  for (const double noise : {0.02, 0.1}) {
    Estimator estimator(2, rig::builtInRig().calibration);
    feedUntil(estimator, moving(2, options(noise)), 900);
    EXPECT_NEAR(estimator.noise(), noise, 0.15 * noise);
  }
}

/// From the two-point object's first marker to its second, delivered axes.
Vector3d trueDirection(const sim::Simulator& simulator, std::int64_t index) {
  const auto frame = simulator.frame(index);
  return rig::mirrored(frame.truth.markers[3].position - frame.truth.markers[2].position)
      .normalized();
}

TEST(Estimator, GivesTheTwoPointObjectsDirection) {
  const auto simulator = moving(1, options(0.02));
  Estimator estimator(1, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 400);
  const Estimate now = estimator.at(2);
  ASSERT_TRUE(now.hasDirection);
  EXPECT_NEAR(now.halfLength, sim::kPairSpacing / 2, 1);
  const double angle = std::acos(Vector3d(now.direction).dot(trueDirection(simulator, 399)));
  EXPECT_LT(angle, 4 * now.directionDeviation);
  EXPECT_LT(now.directionDeviation, 0.1);
  EXPECT_FALSE(estimator.at(0).hasDirection);
}

TEST(Estimator, PredictsTheTwoPointObjectsDirection) {
  const auto simulator = moving(1, options(0.02));
  Estimator estimator(1, rig::builtInRig().calibration);
  double predicted = 0, held = 0;
  for (int i = 0; i < 900; ++i) {
    feed(estimator, simulator, i);
    if (i < 90) continue;
    const Vector3d later = trueDirection(simulator, i + 9);
    predicted += (Vector3d(estimator.ahead(2, 0.1).direction) - later).squaredNorm();
    held += (trueDirection(simulator, i) - later).squaredNorm();
  }
  EXPECT_LT(predicted, 0.5 * held) << predicted << " " << held;
}

TEST(Estimator, KeepsTheMiddleWhileOneOfTwoMarkersIsHidden) {
  auto given = options(0.02);
  given.blobs.occlusions = {{2, 1, {}, 3, 3.5}};
  const auto simulator = moving(1, given);
  Estimator estimator(1, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 300);
  const Estimate now = estimator.at(2);
  EXPECT_EQ(now.source, Source::kMeasured);
  EXPECT_LT((positionOf(now) - truthOf(simulator, 299, 2)).norm(), 4 * deviationOf(now));
  EXPECT_LT((positionOf(now) - truthOf(simulator, 299, 2)).norm(), 17);  // half way to the marker
}

// The other camera sees both, and both see the first marker: its depth is the object's.
TEST(Estimator, KeepsTheDepthWhileOneCameraMissesOneOfTwoMarkers) {
  for (const auto camera : {rig::Camera::kLeft, rig::Camera::kRight}) {
    auto given = options(0.02);
    given.blobs.occlusions = {{2, 1, camera, 3, 3.5}};
    const auto simulator = moving(1, given);
    Estimator estimator(1, rig::builtInRig().calibration);
    feedUntil(estimator, simulator, 270);
    const double before = deviationOf(estimator.at(2));
    for (int i = 270; i < 310; ++i) {
      feed(estimator, simulator, i);
      const Estimate now = estimator.at(2);
      ASSERT_EQ(now.source, Source::kMeasured);
      EXPECT_EQ(now.cameras, 2);
      EXPECT_LT((positionOf(now) - truthOf(simulator, i, 2)).norm(), 4 * deviationOf(now)) << i;
    }
    EXPECT_LT(deviationOf(estimator.at(2)), 15 * before);
  }
}

// As at the image's border: one camera loses both markers, and then has one of them back. The
// markers' distance from each other tells how far the middle is from the one that both see.
TEST(Estimator, KnowsTheMiddleAtOnceWhenBothCamerasSeeOneOfTwoMarkersAgain) {
  for (const auto camera : {rig::Camera::kLeft, rig::Camera::kRight})
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
      auto given = options(0.02);
      given.seed = seed;
      given.blobs.occlusions = {{2, {}, camera, 3, 3.25}, {2, 1, camera, 3, 3.4}};
      const auto simulator = moving(1, given);
      Estimator estimator(1, rig::builtInRig().calibration);
      feedUntil(estimator, simulator, 294);
      for (int i = 294; i < 304; ++i) {
        feed(estimator, simulator, i);
        const Estimate now = estimator.at(2);
        ASSERT_EQ(now.cameras, 2);
        const double error = (positionOf(now) - truthOf(simulator, i, 2)).norm();
        EXPECT_LT(error, 3) << i;
        EXPECT_LT(error, 4 * deviationOf(now)) << i;
        EXPECT_LT(deviationOf(now), 2) << i;
      }
    }
}

// Each camera sees another marker: with an offset that is no longer measured the depth would
// follow.
TEST(Estimator, KnowsThatTheDepthIsUncertainWhileEachCameraSeesAnotherOfTwoMarkers) {
  auto given = options(0.02);
  given.blobs.occlusions = {{2, 1, rig::Camera::kLeft, 3, 3.5},
                            {2, 0, rig::Camera::kRight, 3, 3.5}};
  const auto simulator = moving(1, given);
  Estimator estimator(1, rig::builtInRig().calibration);
  feedUntil(estimator, simulator, 270);
  for (int i = 270; i < 300; ++i) {
    feed(estimator, simulator, i);
    const Estimate now = estimator.at(2);
    ASSERT_EQ(now.source, Source::kMeasured) << i;
    const double error = (positionOf(now) - truthOf(simulator, i, 2)).norm();
    EXPECT_LT(error, 4 * deviationOf(now)) << i;
    EXPECT_LT(error, 20) << i;
  }
}

// Of objects that lay still, 5 mm in one frame: the fastest model allows that, however unlikely the
// model was.
TEST(Estimator, FollowsAJumpOfTwoMarkersAsOfOne) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::still(1), options(0.02));
  for (const int object : {0, 2}) {
    Estimator estimator(1, rig::builtInRig().calibration);
    feedUntil(estimator, simulator, 180);
    const double before = estimator.at(object).position[0];
    const auto bytes = displaced(simulator, 180, object, 1.4, 1.4);
    estimator.feed(2, bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(estimator.verdict(object).refusal, Refusal::kNone) << object;
    EXPECT_NEAR(estimator.at(object).position[0] - before, 5.2, 0.5) << object;
  }
}

TEST(Estimator, RefusesWhatItCannotWorkWith) {
  algorithm::StereoCalibration calibration = rig::builtInRig().calibration;
  EXPECT_THROW(Estimator(3, calibration), std::invalid_argument);
  EXPECT_THROW(Estimator(0, algorithm::StereoCalibration()), std::invalid_argument);
  EstimatorOptions negative;
  negative.noise = -1;
  EXPECT_THROW(Estimator(0, calibration, negative), std::invalid_argument);
  EstimatorOptions standing;
  standing.frameRate = 0;
  EXPECT_THROW(Estimator(0, calibration, standing), std::invalid_argument);
  calibration.translation[1] = std::numeric_limits<double>::infinity();
  EXPECT_THROW(Estimator(0, calibration), std::invalid_argument);
}

TEST(Estimator, AnyPayloadIsSafe) {
  sim::Random random(12);
  Estimator estimator(1, rig::builtInRig().calibration);
  for (int i = 0; i < 3000; ++i) {
    sim::Bytes bytes{0xAA, 0x55};
    const int records = random.index(43);
    for (int k = 0; k < 12 * records; ++k)
      bytes.push_back(static_cast<std::uint8_t>(random.bits()));
    for (std::size_t k = 5; k < bytes.size(); k += 12) bytes[k] = random.chance(0.5) ? 2 : 0x12;
    bytes = sim::withCheckByte(bytes);
    estimator.feed(0, bytes.data(), static_cast<int>(bytes.size()));
    const Estimate now = estimator.at(2);
    for (const double value : now.position) ASSERT_TRUE(std::isfinite(value));
    for (const auto& row : now.covariance)
      for (const double value : row) ASSERT_TRUE(std::isfinite(value));
  }
  estimator.feed(0, nullptr, 5);
  const unsigned char byte = 0;
  for (const int length : {-1, 0, 1}) estimator.feed(0, &byte, length);
  for (const int type : {1, 3, 4, 5, 6, -1}) estimator.feed(type, &byte, 1);
}

TEST(Estimator, AllocatesNothingWhileItRuns) {
  if (!ALG_COUNTS_ALLOCATIONS) GTEST_SKIP() << "allocations are not counted here";
  auto given = options(0.05);
  given.blobs.strayRate = 2;
  given.blobs.dropoutProbability = 0.1;
  const auto simulator = moving(1, given);
  std::vector<sim::Bytes> payloads;
  for (int i = 0; i < 300; ++i) payloads.push_back(simulator.frame(i).payload);
  Estimator estimator(1, rig::builtInRig().calibration);
  const long before = testing_support::allocations();
  double sum = 0;
  for (const sim::Bytes& payload : payloads) {
    estimator.feed(2, payload.data(), static_cast<int>(payload.size()));
    for (int object = 0; object < 3; ++object) sum += estimator.ahead(object, 0.03).position[0];
  }
  EXPECT_EQ(testing_support::allocations(), before);
  EXPECT_TRUE(std::isfinite(sum));
}

}  // namespace
}  // namespace estimate
