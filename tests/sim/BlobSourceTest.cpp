#include <gtest/gtest.h>
#include <sim/BlobSource.h>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

double centreX(const BlobRecord& blob) {
  return 1.0 * blob.sumX / blob.weight;
}
double centreY(const BlobRecord& blob) {
  return 1.0 * blob.sumY / blob.weight;
}

// The even whole diameter that the decoder's side derives from a weight.
int wholeDiameter(const BlobRecord& blob) {
  return 2 * static_cast<int>(std::sqrt(blob.weight / 110.0 / 3.141592653589793) + 0.5);
}

struct Observation {
  SceneState state;
  std::vector<BlobRecord> blobs;
};

Observation observe(const BlobOptions& options, int productType = 2, double time = 0,
                    std::uint64_t seed = 1) {
  Observation result;
  result.state = Scene::moving(productType).at(time);
  Random random(seed);
  BlobSource(rig::builtInRig(), options)
      .observe(result.state, objectCount(productType), random, result.blobs);
  return result;
}

TEST(BlobRecord, WeightIsTheAreaTimes110AndMomentsAreRounded) {
  const BlobRecord blob = blobRecord(3, rig::Camera::kRight, {10.25, 20.5, 4});
  EXPECT_EQ(blob.id, 3);
  EXPECT_EQ(blob.camera, rig::Camera::kRight);
  EXPECT_EQ(blob.weight, 1382u);  // pi / 4 * 16 * 110 = 1382.3
  EXPECT_EQ(blob.sumX, 14166u);   // 14165.5
  EXPECT_EQ(blob.sumY, 28331u);
}

TEST(BlobRecord, SaturatesAtItsFields) {
  EXPECT_EQ(blobRecord(0, rig::Camera::kLeft, {10, 10, 1e6}).weight, 0xFFFFFFu);
  const BlobRecord far = blobRecord(0, rig::Camera::kLeft, {4000, 2000, 1e6});
  EXPECT_NEAR(centreX(far), 4000, 1e-3);
  EXPECT_NEAR(centreY(far), 2000, 1e-3);
  EXPECT_EQ(blobRecord(0, rig::Camera::kLeft, {10, 10, 0}).weight, 1u);
}

TEST(BlobSource, PerfectSensorReportsEveryMarkerWhereItProjects) {
  const rig::StereoRig rig = rig::builtInRig();
  const auto [state, blobs] = observe({}, 2, 3.3);
  ASSERT_EQ(blobs.size(), 2 * state.markers.size());
  for (std::size_t i = 0; i < state.markers.size(); ++i) {
    const auto& marker = state.markers[i];
    EXPECT_TRUE(marker.inLeft && marker.inRight);
    const auto left = rig::cameraOf(rig, rig::Camera::kLeft)
                          .project(rig::rightToLeft(rig.calibration, marker.position));
    const auto right = rig::cameraOf(rig, rig::Camera::kRight).project(marker.position);
    const BlobRecord& leftBlob = blobs[2 * i];
    const BlobRecord& rightBlob = blobs[2 * i + 1];
    EXPECT_EQ(leftBlob.camera, rig::Camera::kLeft);
    EXPECT_EQ(rightBlob.camera, rig::Camera::kRight);
    EXPECT_EQ(leftBlob.id, marker.objectId);
    EXPECT_EQ(rightBlob.id, marker.objectId);
    const double rounding = 0.51 / leftBlob.weight;
    EXPECT_NEAR(centreX(leftBlob), left->x(), rounding);
    EXPECT_NEAR(centreY(leftBlob), left->y(), rounding);
    EXPECT_NEAR(centreX(rightBlob), right->x(), 0.51 / rightBlob.weight);
    EXPECT_NEAR(centreY(rightBlob), right->y(), 0.51 / rightBlob.weight);
  }
}

TEST(BlobSource, NoiseHasTheDeviationAskedFor) {
  BlobOptions noisy;
  noisy.pixelNoise = 0.5;
  const auto clean = observe({}).blobs;
  double sum = 0;
  double squares = 0;
  int count = 0;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    const auto blobs = observe(noisy, 2, 0, seed).blobs;
    ASSERT_EQ(blobs.size(), clean.size());
    for (std::size_t i = 0; i < blobs.size(); ++i) {
      const double d = centreX(blobs[i]) - centreX(clean[i]);
      sum += d;
      squares += d * d;
      ++count;
    }
  }
  EXPECT_NEAR(sum / count, 0, 5 * 0.5 / std::sqrt(count));
  EXPECT_NEAR(std::sqrt(squares / count), 0.5, 0.02);
}

TEST(BlobSource, DroppedMarkersAreMarkedUnseen) {
  BlobOptions options;
  options.dropoutProbability = 1;
  const auto [state, blobs] = observe(options);
  EXPECT_TRUE(blobs.empty());
  for (const auto& marker : state.markers) EXPECT_FALSE(marker.inLeft || marker.inRight);
}

TEST(BlobSource, DropoutsComeAtTheirRate) {
  BlobOptions options;
  options.dropoutProbability = 0.25;
  double seen = 0;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed)
    seen += static_cast<double>(observe(options, 2, 0, seed).blobs.size());
  EXPECT_NEAR(seen / 12000, 0.75, 5 * std::sqrt(0.25 * 0.75 / 12000));
}

TEST(BlobSource, HalvesOfASplitBlobOverlapAroundItsCentre) {
  BlobOptions options;
  options.splitProbability = 1;
  const auto whole = observe({}).blobs;
  const auto halves = observe(options).blobs;
  ASSERT_EQ(halves.size(), 2 * whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const BlobRecord& a = halves[2 * i];
    const BlobRecord& b = halves[2 * i + 1];
    EXPECT_EQ(a.id, whole[i].id);
    EXPECT_EQ(b.id, whole[i].id);
    EXPECT_EQ(b.camera, whole[i].camera);
    EXPECT_NEAR(1.0 * a.weight + b.weight, whole[i].weight, 2);
    EXPECT_NEAR((centreX(a) + centreX(b)) / 2, centreX(whole[i]), 2e-3);
    EXPECT_NEAR((centreY(a) + centreY(b)) / 2, centreY(whole[i]), 2e-3);
    const double distance = std::hypot(centreX(a) - centreX(b), centreY(a) - centreY(b));
    EXPECT_GT(distance, 0.5);
    EXPECT_LT(distance, (wholeDiameter(a) + wholeDiameter(b)) * 0.5);  // or they are not merged
  }
}

TEST(BlobSource, BlobsTooSmallToOverlapAreNotSplit) {
  BlobOptions options;
  options.splitProbability = 1;
  options.markerDiameter = 4;  // about 1 px
  EXPECT_EQ(observe(options).blobs.size(), 12u);
}

TEST(BlobSource, OcclusionHidesOneMarkerFromOneCameraForAWhile) {
  BlobOptions options;
  options.occlusions = {{2, 1, rig::Camera::kLeft, 1.0, 2.0}};
  const auto seen = [&](double time) {
    const auto state = observe(options, 1, time).state;
    return state.markers[3].inLeft;
  };
  EXPECT_TRUE(seen(0.99));
  EXPECT_FALSE(seen(1.0));
  EXPECT_FALSE(seen(1.99));
  EXPECT_TRUE(seen(2.0));
  const auto state = observe(options, 1, 1.5).state;
  EXPECT_TRUE(state.markers[3].inRight);
  EXPECT_TRUE(state.markers[2].inLeft);
  EXPECT_TRUE(state.markers[1].inLeft);
}

TEST(BlobSource, OcclusionOfAnObjectHidesAllItsMarkersFromBothCameras) {
  BlobOptions options;
  options.occlusions = {{2, std::nullopt, std::nullopt, 0, 1}};
  const auto [state, blobs] = observe(options, 1, 0.5);
  EXPECT_EQ(blobs.size(), 4u);
  for (const auto& blob : blobs) EXPECT_NE(blob.id, 2);
}

TEST(BlobSource, HidingAMarkerLeavesTheOthersUnchanged) {
  BlobOptions options;
  options.pixelNoise = 0.3;
  const auto all = observe(options).blobs;
  options.occlusions = {{0, std::nullopt, std::nullopt, 0, 1}};
  const auto rest = observe(options).blobs;
  ASSERT_EQ(rest.size() + 2, all.size());
  for (std::size_t i = 0; i < rest.size(); ++i) {
    EXPECT_EQ(rest[i].sumX, all[i + 2].sumX);
    EXPECT_EQ(rest[i].sumY, all[i + 2].sumY);
  }
}

TEST(BlobSource, StrayBlobsComeAtTheirRateInsideTheImageWithKnownIds) {
  BlobOptions options;
  options.strayRate = 1.5;
  int strays = 0;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    const auto blobs = observe(options, 0, 0, seed).blobs;
    ASSERT_GE(blobs.size(), 6u);
    strays += static_cast<int>(blobs.size()) - 6;
    for (std::size_t i = 6; i < blobs.size(); ++i) {
      ASSERT_GE(blobs[i].id, 0);
      ASSERT_LT(blobs[i].id, 3);
      ASSERT_LT(centreX(blobs[i]), 640.01);
      ASSERT_LT(centreY(blobs[i]), 480.01);
    }
  }
  EXPECT_NEAR(strays / 2000.0, 1.5, 5 * std::sqrt(1.5 / 2000));
}

TEST(BlobSource, ReflectionsCarryTheMarkersIdAndLessWeight) {
  BlobOptions options;
  options.reflectionProbability = 1;
  const auto blobs = observe(options, 0).blobs;
  ASSERT_EQ(blobs.size(), 12u);
  for (std::size_t i = 0; i < blobs.size(); i += 4) {
    for (std::size_t k = 1; k < 4; ++k) EXPECT_EQ(blobs[i + k].id, blobs[i].id);
    EXPECT_LT(blobs[i + 2].weight, blobs[i].weight);
    const double distance = std::hypot(centreX(blobs[i]) - centreX(blobs[i + 2]),
                                       centreY(blobs[i]) - centreY(blobs[i + 2]));
    EXPECT_GT(distance, 10);
    EXPECT_LT(distance, 60);
  }
}

TEST(BlobSource, MarkersOutOfSightAreUnseen) {
  SceneState state;
  state.markers.resize(1);
  state.markers[0].position = {0, 0, -1000};
  Random random(1);
  std::vector<BlobRecord> blobs(3);
  BlobSource(rig::builtInRig(), {}).observe(state, 3, random, blobs);
  EXPECT_TRUE(blobs.empty());
  EXPECT_FALSE(state.markers[0].inLeft);
}

// The right camera is in the origin; the marker lies on its axis and faces it but for 40 degrees.
TEST(BlobSource, MarkerIsUnseenBeyondItsEmissionAngle) {
  SceneState state;
  MarkerTruth marker;
  marker.position = {0, 0, 1500};
  marker.facing = {std::sin(0.698), 0, -std::cos(0.698)};
  state.markers = {marker};
  for (const double angle : {39.0, 41.0}) {
    BlobOptions options;
    options.emissionAngle = angle;
    Random random(1);
    std::vector<BlobRecord> blobs;
    BlobSource(rig::builtInRig(), options).observe(state, 3, random, blobs);
    EXPECT_EQ(state.markers[0].inRight, angle > 40) << angle;
  }
}

}  // namespace
}  // namespace sim
