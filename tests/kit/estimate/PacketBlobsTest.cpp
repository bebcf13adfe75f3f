#include <alg_kit/estimate/Candidates.h>
#include <alg_kit/estimate/PacketBlobs.h>
#include <gtest/gtest.h>
#include <sim/PacketWriter.h>
#include <sim/Random.h>

namespace estimate {
namespace {

using sim::BlobRecord;
using sim::Bytes;

bool read(const Bytes& packet, PacketBlobs& blobs, int ids = 3) {
  return readPacket(packet.data(), packet.size(), ids, blobs);
}

TEST(PacketBlobs, AreThoseThatTheDeviceWrote) {
  const Bytes packet = sim::devicePacket(
      {{2, rig::Camera::kLeft, 1000, 250500, 120250}, {0, rig::Camera::kRight, 7, 14, 21}},
      {1, 2, 3});
  PacketBlobs blobs;
  ASSERT_TRUE(read(packet, blobs));
  ASSERT_EQ(blobs.count, 2u);
  EXPECT_EQ(blobs.blobs[0].camera, 0);
  EXPECT_EQ(blobs.blobs[0].id, 2);
  EXPECT_EQ(blobs.blobs[0].weight, 1000);
  EXPECT_EQ(blobs.blobs[0].sumX, 250500);
  EXPECT_EQ(blobs.blobs[0].sumY, 120250);
  EXPECT_EQ(blobs.blobs[1].camera, 1);
}

TEST(PacketBlobs, LeaveOutBlobsWithoutLightAndOfOtherIds) {
  const Bytes packet =
      sim::devicePacket({{0, rig::Camera::kLeft, 0, 5, 5}, {5, rig::Camera::kLeft, 9, 9, 9}});
  PacketBlobs blobs;
  ASSERT_TRUE(read(packet, blobs, 6));
  EXPECT_EQ(blobs.count, 1u);
  ASSERT_TRUE(read(packet, blobs, 3));
  EXPECT_EQ(blobs.count, 0u);
}

TEST(PacketBlobs, AreRefusedWithAnyByteChanged) {
  const Bytes packet = sim::devicePacket({{1, rig::Camera::kLeft, 1000, 250500, 120250}});
  PacketBlobs blobs;
  for (std::size_t i = 0; i < packet.size(); ++i) {
    Bytes corrupt = packet;
    sim::corruptByte(corrupt, i, 0x10);
    EXPECT_FALSE(read(corrupt, blobs)) << i;
  }
}

TEST(PacketBlobs, AnyBytesAreSafe) {
  sim::Random random(8);
  PacketBlobs blobs;
  for (int i = 0; i < 20000; ++i) {
    Bytes bytes(static_cast<std::size_t>(random.index(700)));
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random.bits());
    if (bytes.size() > 2 && random.chance(0.7)) {
      bytes[0] = 0xAA;
      bytes[1] = 0x55;
      bytes.pop_back();
      bytes = sim::withCheckByte(bytes);
    }
    read(bytes, blobs);
    ASSERT_LE(blobs.count, kMostBlobs);
    for (std::size_t k = 0; k < blobs.count; ++k) {
      ASSERT_LT(blobs.blobs[k].id, 3);
      ASSERT_LT(blobs.blobs[k].camera, 2);
      ASSERT_GT(blobs.blobs[k].weight, 0);
    }
  }
}

TEST(Candidates, TwoHalvesAreAMarkerAtTheCentreOfTheirLight) {
  CandidateList list;
  list.add({0, 0, 3000, 3000 * 100.0, 3000 * 50.0});  // 6 px wide
  list.add({0, 0, 1000, 1000 * 103.0, 1000 * 50.0});  // 4 px wide
  list.add({0, 0, 1000, 1000 * 300.0, 1000 * 50.0});
  list.addMerged();
  EXPECT_EQ(list.size(), 4u);
  const Candidate* const whole = list.nearest({100.75, 50});
  EXPECT_NEAR(whole->pixel.x(), 100.75, 1e-12);
  EXPECT_EQ(whole->weight, 4000);
  EXPECT_NEAR(list.nearest({100.75, 50}, whole->blobs)->pixel.x(), 300, 1e-12);
}

}  // namespace
}  // namespace estimate
