#include <gtest/gtest.h>
#include <sim/PacketWriter.h>

namespace sim {
namespace {

TEST(PacketWriter, WritesStartRecordsAndCheckByte) {
  // Check byte: AA + 55 + 10 + 02 + 64 + C8 = 0x23D.
  EXPECT_EQ(devicePacket({{2, rig::Camera::kLeft, 16, 100, 200}}),
            (Bytes{0xAA, 0x55, 0x10, 0, 0, 0x02, 0x64, 0, 0, 0, 0xC8, 0, 0, 0, 0x3D}));
}

TEST(PacketWriter, HeaderByteCarriesCameraAndId) {
  const Bytes packet = devicePacket({{2, rig::Camera::kRight, 16, 100, 200}});
  EXPECT_EQ(packet[5], 0x12);
  EXPECT_EQ(packet.back(), 0x4D);
}

TEST(PacketWriter, FieldsAreLittleEndian) {
  const Bytes packet = devicePacket({{0, rig::Camera::kLeft, 0x123456, 0x89ABCDEF, 0x01020304}});
  EXPECT_EQ(Bytes(packet.begin() + 2, packet.end() - 1),
            (Bytes{0x56, 0x34, 0x12, 0x00, 0xEF, 0xCD, 0xAB, 0x89, 0x04, 0x03, 0x02, 0x01}));
}

TEST(PacketWriter, EmptyPacketIsStartAndCheckByte) {
  EXPECT_EQ(devicePacket({}), (Bytes{0xAA, 0x55, 0xFF}));
}

TEST(PacketWriter, LeadingBytesAreCountedInTheCheckByte) {
  EXPECT_EQ(devicePacket({}, {0x01, 0x02}), (Bytes{0x01, 0x02, 0xAA, 0x55, 0x02}));
}

TEST(PacketWriter, KeptStorageGetsTheSameBytes) {
  const std::vector<BlobRecord> records = {{1, rig::Camera::kLeft, 5, 6, 7},
                                           {2, rig::Camera::kRight, 8, 9, 10}};
  Bytes packet(100, 0x77);
  writeDevicePacket(records, packet);
  EXPECT_EQ(packet, devicePacket(records));
}

TEST(PacketWriter, MostRecordsThatFitTheFrame) {
  const auto sizeWith = [](std::size_t records) {
    return devicePacket(std::vector<BlobRecord>(records)).size();
  };
  EXPECT_EQ(sizeWith(kMaxPacketRecords), 507u);
  EXPECT_LE(sizeWith(kMaxPacketRecords), kFrameBytes);
  EXPECT_GT(sizeWith(kMaxPacketRecords + 1), kFrameBytes);
}

TEST(PacketWriter, StampStandsBeforeThePacketInLittleEndian) {
  EXPECT_EQ(frameType2(0x01020304, {0xAA, 0x55, 0xFF}),
            (Bytes{0x04, 0x03, 0x02, 0x01, 0xAA, 0x55, 0xFF}));
}

TEST(PacketWriter, CorruptingAByteLeavesTheOthers) {
  const Bytes good = devicePacket({{2, rig::Camera::kLeft, 16, 100, 200}});
  Bytes bad = good;
  corruptByte(bad, 4, 0x80);
  EXPECT_EQ(bad[4], 0x80);
  bad[4] = good[4];
  EXPECT_EQ(bad, good);
  EXPECT_THROW(corruptByte(bad, bad.size()), std::out_of_range);
}

TEST(PacketWriter, SpoilingTheCheckByteLeavesTheRecords) {
  const Bytes good = devicePacket({{2, rig::Camera::kLeft, 16, 100, 200}});
  Bytes bad = good;
  spoilCheckByte(bad);
  EXPECT_NE(bad.back(), good.back());
  bad.back() = good.back();
  EXPECT_EQ(bad, good);
}

TEST(PacketWriter, CheckByteForAnyBytes) {
  EXPECT_EQ(withCheckByte({0xFF, 0x02}), (Bytes{0xFF, 0x02, 0x01}));
  EXPECT_EQ(withCheckByte({}), Bytes{0x00});
}

TEST(PacketWriter, InertialRecordHoldsAccelerometerBeforeGyroscope) {
  algorithm::InertialRecord record;
  record.q[0] = 1.0f;   // 3F800000
  record.p[2] = -2.0f;  // C0000000
  record.accelerometer[0] = -2;
  record.gyroscope[2] = 0x1234;
  const Bytes payload = inertialPayload(record);
  Bytes expected(kInertialBytes, 0);
  expected[10] = 0x80, expected[11] = 0x3F;
  expected[35] = 0xC0;
  expected[36] = 0xFE, expected[37] = 0xFF;
  expected[46] = 0x34, expected[47] = 0x12;
  EXPECT_EQ(payload, expected);
}

TEST(PacketWriter, SideHintIsFourBytes) {
  EXPECT_EQ(sideHintPayload(2), (Bytes{2, 0, 0, 0}));
  EXPECT_EQ(sideHintPayload(-1), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
}

}  // namespace
}  // namespace sim
