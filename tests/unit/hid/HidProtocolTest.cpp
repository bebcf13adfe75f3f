#include <alg_factory/hid/HidProtocol.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/PacketWriter.h>
#include <tests/support/RawBlobCompare.h>
#include <tests/support/RecordingLog.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace {

using hid::HidProtocol;
using hid::RawBlob;
using sim::Bytes;
using sim::withCheckByte;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr const char* kStartError = "alg: fpga: start byte error.\n";
constexpr const char* kNoDataError = "alg: fpga: no buffer data error.\n";
constexpr const char* kTypeError = "alg: fpga: type bit format error.\n";
constexpr const char* kFormatError = "alg: fpga: buffer data format error.\n";
constexpr const char* kCheckError = "alg: fpga: check byte error.\n";

// Start word, weight 16, `header`, sumX 100, sumY 200.
Bytes packetBody(std::uint8_t header = 0x02) {
  return {0xAA, 0x55, 0x10, 0, 0, header, 0x64, 0, 0, 0, 0xC8, 0, 0, 0};
}

// The first `count` bytes of that record behind a start word.
Bytes cutPacket(std::size_t count) {
  Bytes body = packetBody();
  body.resize(2 + count);
  return withCheckByte(body);
}

Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class HidProtocolTest : public testing::Test {
 protected:
  HidProtocolTest() {
    stage.setLogger(&log);
    stage.init(0);
    stage.configure(&input, &left, &right);
  }

  bool feed(const Bytes& packet) {
    input = packet;
    return stage.process();
  }

  void clear() {
    left.clear();
    right.clear();
    log.lines.clear();
  }

  // Leaves `value` in all 512 bytes of the frame.
  void fillFrame(std::uint8_t value) {
    feed(Bytes(512, value));
    clear();
  }

  testing_support::RecordingLog log;
  Bytes input;
  std::vector<RawBlob> left;
  std::vector<RawBlob> right;
  HidProtocol stage;
};

TEST_F(HidProtocolTest, DefaultRecordHasNoIdAndNoMoments) {
  EXPECT_EQ(RawBlob{}, (RawBlob{-1, 0, 0, 0}));
}

TEST_F(HidProtocolTest, InitSetsSixIdsForTypeTwoAndThreeForEveryOther) {
  for (const std::uint32_t type : {0u, 1u, 3u, 7u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(stage.init(2));
    EXPECT_EQ(stage.blobIdCount(), 6);
    EXPECT_TRUE(stage.init(type));
    EXPECT_EQ(stage.blobIdCount(), 3) << type;
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, SetUpOperationsSucceed) {
  EXPECT_TRUE(stage.setLogger(&log));
  EXPECT_TRUE(stage.prepare());
  EXPECT_TRUE(stage.configure(&input, &left, &right));
}

TEST_F(HidProtocolTest, ConfigureReturnsWhatPrepareReturns) {
  struct Unprepared : HidProtocol {
    bool prepare() override { return false; }
  } unprepared;
  EXPECT_FALSE(unprepared.configure(&input, &left, &right));
}

TEST_F(HidProtocolTest, EmptyPacketReturnsFalseQuietlyAndLeavesTheOutputs) {
  left.push_back({1, 2, 3, 4});
  EXPECT_FALSE(feed({}));
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(left, ElementsAre(RawBlob{1, 2, 3, 4}));
  EXPECT_THAT(right, IsEmpty());
}

TEST_F(HidProtocolTest, StartWordAloneReportsNoData) {
  EXPECT_TRUE(feed({0xAA, 0x55, 0xFF}));  // AA + 55 = FF
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kNoDataError)));
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(right, IsEmpty());
}

TEST_F(HidProtocolTest, MissingStartWordIsReported) {
  EXPECT_TRUE(feed({0x01, 0x02, 0x03}));  // 1 + 2 = 3
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kStartError)));
}

TEST_F(HidProtocolTest, MissingStartWordDecodesNothing) {
  Bytes body = packetBody();
  body[0] = 0xAB;
  EXPECT_TRUE(feed(withCheckByte(body)));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kStartError)));
  EXPECT_THAT(left, IsEmpty());
}

TEST_F(HidProtocolTest, SwappedStartBytesAreNoStartWord) {
  EXPECT_TRUE(feed({0x55, 0xAA, 0xFF}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kStartError)));
}

TEST_F(HidProtocolTest, CheckErrorTakesPrecedenceOverEveryOtherReport) {
  const Bytes noStart = {0x01, 0x02, 0x04};
  const Bytes noData = {0xAA, 0x55, 0x00};
  Bytes cut = cutPacket(6);
  ++cut.back();
  for (const Bytes& packet : {noStart, noData, cut}) {
    clear();
    EXPECT_TRUE(feed(packet));
    EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError)));
  }
  fillFrame(0xF0);
  EXPECT_TRUE(feed({0xAA, 0x55, 0xFF, 0x00}));  // would report the type bits
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError)));
}

TEST_F(HidProtocolTest, RecordOfTheLeftCamera) {
  // FF + 10 + 02 + 64 + C8 = 0x23D
  EXPECT_TRUE(feed({0xAA, 0x55, 0x10, 0, 0, 0x02, 0x64, 0, 0, 0, 0xC8, 0, 0, 0, 0x3D}));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(right, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, RecordOfTheRightCamera) {
  EXPECT_TRUE(feed({0xAA, 0x55, 0x10, 0, 0, 0x12, 0x64, 0, 0, 0, 0xC8, 0, 0, 0, 0x4D}));
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(right, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, InvalidCameraSlidesOnQuietlyToACutRecord) {
  // After 22 and 64 the header is 00 with ten bytes left: a record without its last bytes.
  EXPECT_TRUE(feed({0xAA, 0x55, 0x10, 0, 0, 0x22, 0x64, 0, 0, 0, 0xC8, 0, 0, 0, 0x5D}));
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(right, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, InvalidCameraSlidesOnQuietlyToTheEnd) {
  // Every header is bad up to the check byte: FF + 10 + 22 + 4 * 64 + 4 * C8 = 0x5E1. The bytes
  // behind it are zero.
  EXPECT_TRUE(
      feed({0xAA, 0x55, 0x10, 0, 0, 0x22, 0x64, 0x64, 0x64, 0x64, 0xC8, 0xC8, 0xC8, 0xC8, 0xE1}));
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(right, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, IdsAtOrAboveTheCountYieldNoRecord) {
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x03))));
  EXPECT_THAT(left, IsEmpty());
  stage.init(2);
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x03))));
  EXPECT_THAT(left, ElementsAre(RawBlob{3, 16, 100, 200}));
  clear();
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x05))));
  EXPECT_THAT(left, ElementsAre(RawBlob{5, 16, 100, 200}));
  clear();
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x06))));
  EXPECT_THAT(left, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, EachEditOfTheHeaderByteChangesTheRecordAsItShould) {
  stage.init(2);
  for (int header = 0; header < 256; ++header) {
    clear();
    EXPECT_TRUE(feed(withCheckByte(packetBody(static_cast<std::uint8_t>(header)))));
    const bool valid = (header & 0x0F) < 6;
    EXPECT_THAT(left, SizeIs(valid && header >> 4 == 0 ? 1 : 0)) << header;
    EXPECT_THAT(right, SizeIs(valid && header >> 4 == 1 ? 1 : 0)) << header;
    EXPECT_THAT(log.lines, IsEmpty()) << header;
  }
}

TEST_F(HidProtocolTest, MomentsAreUnsignedAndLittleEndian) {
  EXPECT_TRUE(feed(withCheckByte(
      {0xAA, 0x55, 0xFD, 0xFE, 0xFF, 0x00, 0x01, 0x02, 0x03, 0x84, 0xFF, 0xFF, 0xFF, 0xFF})));
  EXPECT_THAT(left, ElementsAre(RawBlob{0, 0xFFFEFD, 0x84030201, 0xFFFFFFFF}));
}

TEST_F(HidProtocolTest, RecordsKeepTheirOrderPerCamera) {
  using rig::Camera;
  EXPECT_TRUE(feed(sim::devicePacket({{2, Camera::kLeft, 1, 10, 20},
                                      {0, Camera::kRight, 2, 11, 21},
                                      {1, Camera::kLeft, 3, 12, 22},
                                      {2, Camera::kRight, 4, 13, 23},
                                      {2, Camera::kLeft, 5, 14, 24}})));
  EXPECT_THAT(left,
              ElementsAre(RawBlob{2, 1, 10, 20}, RawBlob{1, 3, 12, 22}, RawBlob{2, 5, 14, 24}));
  EXPECT_THAT(right, ElementsAre(RawBlob{0, 2, 11, 21}, RawBlob{2, 4, 13, 23}));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, RecordWithoutWeightIsStillDelivered) {
  EXPECT_TRUE(feed(withCheckByte({0xAA, 0x55, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})));
  EXPECT_THAT(left, ElementsAre(RawBlob{0, 0, 0, 0}));
}

TEST_F(HidProtocolTest, RecordCutAfterSixBytesIsReported) {
  // FF + 10 + 02 + 64 = 0x175
  EXPECT_TRUE(feed({0xAA, 0x55, 0x10, 0x00, 0x00, 0x02, 0x64, 0x00, 0x75}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kFormatError)));
  EXPECT_THAT(left, IsEmpty());
}

TEST_F(HidProtocolTest, RecordCutAfterNineBytesIsDroppedQuietly) {
  // FF + 10 + 02 + 64 + C8 = 0x23D
  EXPECT_TRUE(feed({0xAA, 0x55, 0x10, 0x00, 0x00, 0x02, 0x64, 0x00, 0x00, 0x00, 0xC8, 0x3D}));
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(left, IsEmpty());
}

TEST_F(HidProtocolTest, EveryLengthOfACutRecordEndsInItsOwnWay) {
  for (std::size_t count = 0; count <= 12; ++count) {
    clear();
    EXPECT_TRUE(feed(cutPacket(count)));
    EXPECT_THAT(left, SizeIs(count == 12 ? 1 : 0)) << count;
    if (count == 0) {
      EXPECT_THAT(log.lines, ElementsAre(Pair(3, kNoDataError)));
    } else if (count >= 4 && count <= 7) {
      EXPECT_THAT(log.lines, ElementsAre(Pair(3, kFormatError))) << count;
    } else {
      EXPECT_THAT(log.lines, IsEmpty()) << count;
    }
  }
}

TEST_F(HidProtocolTest, CutRecordBehindAWholeOneKeepsTheWholeOne) {
  EXPECT_TRUE(feed(withCheckByte(concat({packetBody(), {0x05, 0, 0, 0x01, 0x09}}))));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kFormatError)));
}

TEST_F(HidProtocolTest, BadHeaderBeforeAGoodRecordReportsNothing) {
  // One stray byte: its header position holds the third weight byte, 20.
  EXPECT_TRUE(
      feed(withCheckByte({0xAA, 0x55, 0x77, 0x10, 0, 0x20, 0x02, 0x64, 0, 0, 0, 0xC8, 0, 0, 0})));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 0x200010, 100, 200}));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, StaleByteBehindTheCheckByteDecidesTheTypeReport) {
  const Bytes packet = {0xAA, 0x55, 0xFF, 0xFE};
  EXPECT_TRUE(feed(packet));  // on a new object the frame is zero
  EXPECT_THAT(log.lines, IsEmpty());

  feed(withCheckByte({0, 0, 0, 0, 0, 0xF0, 0}));  // leaves F0 as the second byte behind
  clear();
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kTypeError)));

  feed(withCheckByte({0, 0, 0, 0, 0xF0, 0, 0xF0}));  // the first and the third do not matter
  clear();
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, StaleByteBehindTheCheckByteCompletesAStartWord) {
  const Bytes packet = {0x56, 0x54, 0xAA};  // 56 + 54 = AA, the check byte
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kStartError)));
  feed({0, 0, 0, 0x55});
  clear();
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kNoDataError)));
}

TEST_F(HidProtocolTest, LeadingBytesAreSkippedButCounted) {
  // 11 + 22 + 23D = 0x270
  EXPECT_TRUE(feed(concat({{0x11, 0x22}, packetBody(), {0x70}})));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(log.lines, IsEmpty());
  clear();
  EXPECT_TRUE(feed(concat({{0x11, 0x22}, packetBody(), {0x3D}})));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError)));
}

TEST_F(HidProtocolTest, FirstHalfOfAStartWordMayRepeatBeforeIt) {
  EXPECT_TRUE(feed(withCheckByte(concat({{0xAA}, packetBody()}))));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
}

TEST_F(HidProtocolTest, RecordsOfAPacketWithAWrongCheckByteAreStillDelivered) {
  Bytes packet = withCheckByte(packetBody());
  sim::spoilCheckByte(packet);
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError)));
}

TEST_F(HidProtocolTest, EveryEditedByteOutsideTheCheckByteBreaksTheCheck) {
  const Bytes packet = withCheckByte(packetBody());
  for (std::size_t i = 0; i < packet.size(); ++i) {
    clear();
    Bytes edited = packet;
    sim::corruptByte(edited, i, 0x40);
    EXPECT_TRUE(feed(edited));
    EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError))) << i;
  }
}

TEST_F(HidProtocolTest, RecordsAccumulateAcrossPackets) {
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x02))));
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x11))));
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x00))));
  EXPECT_THAT(left, ElementsAre(RawBlob{2, 16, 100, 200}, RawBlob{0, 16, 100, 200}));
  EXPECT_THAT(right, ElementsAre(RawBlob{1, 16, 100, 200}));
}

TEST_F(HidProtocolTest, TakesThePacketByExchangingStorage) {
  input = withCheckByte(packetBody());
  const std::uint8_t* first = input.data();
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(input, IsEmpty());
  input = withCheckByte(packetBody());
  EXPECT_NE(input.data(), first);  // the stage holds it
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(input, IsEmpty());
  EXPECT_EQ(input.data(), first);  // and hands it back with the next packet
  EXPECT_GE(input.capacity(), 15u);
}

TEST_F(HidProtocolTest, WithoutAnInputThePacketLastTakenIsDecodedAgain) {
  EXPECT_TRUE(feed(withCheckByte(packetBody())));
  stage.configure(nullptr, &left, &right);
  EXPECT_TRUE(stage.process());
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(left, SizeIs(3));
  EXPECT_EQ(left[2], (RawBlob{2, 16, 100, 200}));
}

TEST_F(HidProtocolTest, WithoutAnInputANewStageHasNothingToDecode) {
  HidProtocol fresh;
  EXPECT_FALSE(fresh.process());
}

TEST_F(HidProtocolTest, AnEmptyInputReplacesThePacketLastTaken) {
  EXPECT_TRUE(feed(withCheckByte(packetBody())));
  EXPECT_FALSE(feed({}));
  stage.configure(nullptr, &left, &right);
  EXPECT_FALSE(stage.process());
  EXPECT_THAT(left, SizeIs(1));
}

TEST_F(HidProtocolTest, ConfigureRedirectsTheOutputs) {
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x02))));
  std::vector<RawBlob> otherLeft;
  std::vector<RawBlob> otherRight;
  stage.configure(&input, &otherLeft, &otherRight);
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x01))));
  EXPECT_TRUE(feed(withCheckByte(packetBody(0x10))));
  EXPECT_THAT(left, SizeIs(1));
  EXPECT_THAT(otherLeft, ElementsAre(RawBlob{1, 16, 100, 200}));
  EXPECT_THAT(otherRight, ElementsAre(RawBlob{0, 16, 100, 200}));
}

TEST_F(HidProtocolTest, SettingUpAgainKeepsTheFrame) {
  fillFrame(0xF0);
  stage.init(2);
  stage.configure(&input, &left, &right);
  EXPECT_TRUE(feed({0xAA, 0x55, 0xFF, 0xFE}));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kTypeError)));
}

TEST_F(HidProtocolTest, ReportsGoToTheLoggerSetLast) {
  testing_support::RecordingLog second;
  stage.setLogger(&second);
  feed({0xAA, 0x55, 0xFF});
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(second.texts(), ElementsAre(kNoDataError));
}

TEST_F(HidProtocolTest, PacketThatFillsTheFrameIsDecodedWhole) {
  // 5 leading bytes, start word, 42 records, check byte: 5 + 2 + 504 + 1 = 512.
  const std::vector<sim::BlobRecord> records(42, {1, rig::Camera::kRight, 7, 8, 9});
  const Bytes packet = sim::devicePacket(records, Bytes(5, 0x01));
  ASSERT_THAT(packet, SizeIs(512));
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(right, SizeIs(42));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, LongerPacketIsCutToItsFirst512Bytes) {
  const std::vector<sim::BlobRecord> records(42, {1, rig::Camera::kRight, 7, 8, 9});
  const Bytes whole = sim::devicePacket(records, Bytes(5, 0x01));
  // 65536 + 15 would be 15 if the length were kept to 16 bits before the cut.
  for (const std::size_t length : {513u, 514u, 516u, 1024u, 65536u, 65551u, 70000u}) {
    clear();
    Bytes packet = whole;
    packet.resize(length, 0xF0);
    EXPECT_TRUE(feed(packet));
    EXPECT_THAT(right, SizeIs(42)) << length;
    EXPECT_THAT(log.lines, IsEmpty()) << length;
  }
}

TEST_F(HidProtocolTest, CheckByteOfACutPacketIsItsByte511) {
  const std::vector<sim::BlobRecord> records(43, {1, rig::Camera::kRight, 7, 8, 9});
  const Bytes packet = sim::devicePacket(records);
  ASSERT_THAT(packet, SizeIs(519));
  // Byte 511 is the header's neighbour: 2 + 42 * 12 = 506 starts the last record, 511 is the second
  // byte of its sumX, 0, while the sum is not.
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(right, SizeIs(42));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kCheckError)));
}

TEST_F(HidProtocolTest, ReadsPastTheFrameSeeZero) {
  // AA 55 in bytes 508 and 509: the only header is byte 513, behind the frame.
  const Bytes packet = withCheckByte(concat({Bytes(508, 0), {0xAA, 0x55, 0xFF}}));
  ASSERT_THAT(packet, SizeIs(512));
  feed(Bytes(600, 0xF0));  // what lies behind 512 bytes of a longer packet is not kept
  clear();
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(HidProtocolTest, StartWordIsNotCompletedPastTheFrame) {
  // 511 bytes whose sum is AA, so that the check byte in 511 is AA.
  Bytes packet(510, 0);
  packet.push_back(0xAA);
  packet = withCheckByte(packet);
  ASSERT_EQ(packet.back(), 0xAA);
  feed(Bytes(600, 0x55));
  clear();
  EXPECT_TRUE(feed(packet));
  EXPECT_THAT(log.lines, ElementsAre(Pair(3, kStartError)));
}

TEST_F(HidProtocolTest, ShorterPacketKeepsTheFrameBehindIt) {
  fillFrame(0x30);
  feed({0xAA, 0x55, 0xFF});
  EXPECT_EQ(stage.frame()[2], 0xFF);
  EXPECT_EQ(stage.frame()[3], 0x30);
  EXPECT_EQ(stage.frame()[511], 0x30);
}

}  // namespace
