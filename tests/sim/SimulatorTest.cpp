#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace sim {
namespace {

SimulatorOptions noisyOptions() {
  SimulatorOptions options;
  options.blobs.pixelNoise = 0.1;
  options.blobs.dropoutProbability = 0.1;
  options.blobs.splitProbability = 0.1;
  options.blobs.strayRate = 0.5;
  options.blobs.reflectionProbability = 0.1;
  options.faults.lossProbability = 0.05;
  options.faults.corruptProbability = 0.05;
  options.faults.wrongCheckProbability = 0.05;
  return options;
}

Simulator simulatorOf(const SimulatorOptions& options, int productType = 2) {
  return {rig::builtInRig(), Scene::moving(productType), options};
}

TEST(Simulator, SameSeedGivesTheSameBytes) {
  const Simulator a = simulatorOf(noisyOptions());
  const Simulator b = simulatorOf(noisyOptions());
  for (int n = 0; n < 300; ++n) EXPECT_EQ(a.frame(n).payload, b.frame(n).payload);
}

TEST(Simulator, AnotherSeedGivesOtherBytes) {
  SimulatorOptions other = noisyOptions();
  other.seed = 2;
  EXPECT_NE(simulatorOf(noisyOptions()).frame(0).payload, simulatorOf(other).frame(0).payload);
}

TEST(Simulator, FramesCanBeAskedForInAnyOrder) {
  const Simulator simulator = simulatorOf(noisyOptions());
  const Frame early = simulator.frame(17);
  Frame reused = simulator.frame(200);
  simulator.frame(17, reused);
  EXPECT_EQ(reused.payload, early.payload);
  EXPECT_EQ(reused.index, 17);
  EXPECT_EQ(reused.truth.time, early.truth.time);
  EXPECT_EQ(reused.blobs.size(), early.blobs.size());
}

TEST(Simulator, PlainFramingGivesTheDevicePacket) {
  const Simulator simulator = simulatorOf({});
  const Frame frame = simulator.frame(4);
  EXPECT_EQ(simulator.streamType(), 0);
  EXPECT_EQ(frame.payload, devicePacket(frame.blobs));
  EXPECT_EQ(frame.payload.size(), 2 + 12 * 12 + 1u);
}

TEST(Simulator, StampsCountMicroseconds) {
  SimulatorOptions options;
  options.framing = Framing::kStamped;
  const Simulator simulator = simulatorOf(options);
  EXPECT_EQ(simulator.streamType(), 2);
  EXPECT_EQ(simulator.frame(0).stamp, 0u);
  EXPECT_EQ(simulator.frame(1).stamp, 11111u);
  const Frame frame = simulator.frame(90);
  EXPECT_EQ(frame.stamp, 1000000u);
  EXPECT_EQ(frame.payload, frameType2(1000000, devicePacket(frame.blobs)));
}

TEST(Simulator, TruthIsTheScenesAtTheFramesTime) {
  const Simulator simulator = simulatorOf({}, 1);
  const Frame frame = simulator.frame(45);
  EXPECT_EQ(frame.truth.time, 0.5);
  const SceneState state = simulator.scene().at(0.5);
  ASSERT_EQ(frame.truth.markers.size(), state.markers.size());
  for (std::size_t i = 0; i < state.markers.size(); ++i)
    EXPECT_EQ(frame.truth.markers[i].position, state.markers[i].position);
}

TEST(Simulator, LostPacketsAreEmpty) {
  SimulatorOptions options;
  options.faults.lossProbability = 1;
  options.framing = Framing::kStamped;
  const Frame frame = simulatorOf(options).frame(0);
  EXPECT_TRUE(frame.lost);
  EXPECT_TRUE(frame.payload.empty());
  EXPECT_FALSE(frame.blobs.empty());
}

TEST(Simulator, CorruptedPacketsDifferInOneByte) {
  SimulatorOptions options;
  options.faults.corruptProbability = 1;
  const Simulator simulator = simulatorOf(options);
  for (int n = 0; n < 200; ++n) {
    const Frame frame = simulator.frame(n);
    const Bytes good = devicePacket(frame.blobs);
    ASSERT_TRUE(frame.corrupted);
    ASSERT_EQ(frame.payload.size(), good.size());
    int different = 0;
    for (std::size_t i = 0; i < good.size(); ++i) different += frame.payload[i] != good[i] ? 1 : 0;
    ASSERT_EQ(different, 1);
  }
}

TEST(Simulator, WrongCheckBytesLeaveTheRecords) {
  SimulatorOptions options;
  options.faults.wrongCheckProbability = 1;
  const Frame frame = simulatorOf(options).frame(0);
  Bytes good = devicePacket(frame.blobs);
  EXPECT_TRUE(frame.wrongCheck);
  EXPECT_NE(frame.payload.back(), good.back());
  good.back() = frame.payload.back();
  EXPECT_EQ(frame.payload, good);
}

TEST(Simulator, PacketIsCutToTheDevicesFrame) {
  SimulatorOptions options;
  options.blobs.strayRate = 100;
  const Frame frame = simulatorOf(options).frame(0);
  EXPECT_EQ(frame.blobs.size(), kMaxPacketRecords);
  EXPECT_GT(frame.blobsCut, 50);
  EXPECT_EQ(frame.payload.size(), 507u);
}

TEST(Simulator, RefusesOptionsThatMakeNoSense) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<SimulatorOptions> bad(12);
  bad[0].frameRate = 0;
  bad[1].frameRate = nan;
  bad[2].blobs.markerDiameter = 0;
  bad[3].blobs.pixelNoise = -0.1;
  bad[4].blobs.pixelNoise = nan;
  bad[5].blobs.dropoutProbability = 1.1;
  bad[6].blobs.splitProbability = -0.1;
  bad[7].blobs.reflectionProbability = nan;
  bad[8].blobs.strayRate = -1;
  bad[9].faults.lossProbability = 2;
  bad[10].faults.corruptProbability = -1;
  bad[11].faults.wrongCheckProbability = nan;
  for (std::size_t i = 0; i < bad.size(); ++i)
    EXPECT_THROW(simulatorOf(bad[i]), std::invalid_argument) << i;
}

TEST(Simulator, InertialPayloadIsTheRecordOfTheDevicesObject) {
  const Simulator simulator = simulatorOf({});
  const auto& scene = simulator.scene();
  EXPECT_EQ(simulator.inertialPayloadOf(1, 90),
            inertialPayload(inertialRecord(scene, scene.objects()[1], 1.0)));
  EXPECT_THROW(simulator.inertialPayloadOf(6, 0), std::out_of_range);
}

TEST(Simulator, TheCamerasSeeWithTheTrueRigAndTheHostIsToldTheOther) {
  SimulatorOptions bent;
  bent.error.rotation = {0.5, 0, 0};
  const Simulator simulator = simulatorOf(bent);
  const auto given = rig::builtInRig().calibration;
  EXPECT_EQ(std::memcmp(&simulator.rig().calibration, &given, sizeof given), 0);
  const Simulator told(
      {simulator.trueCalibration(0), simulator.rig().width, simulator.rig().height},
      Scene::moving(2));
  EXPECT_EQ(simulator.frame(7).payload, told.frame(7).payload);
  EXPECT_NE(simulator.frame(7).payload, simulatorOf({}).frame(7).payload);
}

TEST(Simulator, ADriftGrowsFromNothingToAllOfIt) {
  SimulatorOptions drifting, bent;
  drifting.drift.rotation = bent.error.rotation = {0.5, 0.2, 0};
  drifting.driftSeconds = 2;
  const Simulator simulator = simulatorOf(drifting);
  EXPECT_EQ(simulator.frame(0).payload, simulatorOf({}).frame(0).payload);
  EXPECT_EQ(simulator.frame(180).payload, simulatorOf(bent).frame(180).payload);  // at 90 Hz
  EXPECT_NE(simulator.frame(90).payload, simulatorOf(bent).frame(90).payload);
}

}  // namespace
}  // namespace sim
