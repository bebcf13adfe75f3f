#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include <tests/support/Host.h>

namespace {

using algorithm::InertialRecord;
using algorithm::ResultBlock;
using algorithm::TrackedPoint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::Bytes;
using testing_support::closed;
using testing_support::Host;
using testing_support::kExact;
using testing_support::kSmall;
using testing_support::packetOf;
using testing_support::stamped;

constexpr char kUnknownStream[] = "alg: unknown stream types for current product type!\n";
constexpr char kCheckByte[] = "alg: fpga: check byte error.\n";

InertialRecord numberedRecord(float first) {
  InertialRecord record;
  for (int i = 0; i < 3; ++i) record.p[i] = first + static_cast<float>(i);
  for (int i = 0; i < 4; ++i) record.q[i] = first + static_cast<float>(3 + i);
  for (int i = 0; i < 3; ++i) record.accelerometer[i] = 2048;
  for (int i = 0; i < 3; ++i) record.gyroscope[i] = 164;
  return record;
}

std::vector<float> hostValues(const TrackedPoint& record) {
  std::vector<float> values(record.hostPosition, record.hostPosition + 3);
  values.insert(values.end(), record.hostOrientation, record.hostOrientation + 4);
  return values;
}

TEST(InputStream, RefusesUnknownStreamTypesWithOneMessage) {
  Host host(0);
  const Bytes packet = packetOf({{0, 0, 0, 1000}});
  for (const int type :
       {6, -1, 255, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    host.log.lines.clear();
    EXPECT_FALSE(host.input(type, packet));
    EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, kUnknownStream)));
  }
  EXPECT_THAT(host.data.blocks, IsEmpty());
}

TEST(InputStream, StreamTypesAreTheSameForAllProductTypes) {
  for (const int productType : {0, 1, 2}) {
    Host host(productType);
    EXPECT_FALSE(host.input(6, Bytes(64, 0)));
    EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, kUnknownStream)));
    for (const int type : {1, 3, 4, 5}) EXPECT_TRUE(host.input(type, Bytes(64, 0)));
    EXPECT_TRUE(host.see({{0, 0, 0, 1000}}));
    EXPECT_TRUE(host.seeAt(1, {{0, 0, 0, 1000}}));
  }
}

TEST(InputStream, TestsTheProductTypeFirst) {
  Host host(3);
  host.log.lines.clear();
  EXPECT_FALSE(host.input(6, Bytes(64, 0)));
  EXPECT_FALSE(host.alg->InputStream(-1, nullptr, 0, -1));
  EXPECT_THAT(host.log.texts(),
              ElementsAre("alg: unknown project type!\n", "alg: unknown project type!\n"));
}

TEST(InputStream, UnknownStreamTypeIsReportedForANullBufferToo) {
  Host host(0);
  EXPECT_FALSE(host.alg->InputStream(6, nullptr, 0, -1));
  EXPECT_THAT(host.log.texts(), ElementsAre(kUnknownStream));
}

TEST(InputStream, EmptyPacketIsTrueAndDeliversNothing) {
  Host host(2);
  host.see({{0, 0, 0, 1000}});
  const algorithm::PoseAnswer before = host.pose(0);
  const Bytes packet = packetOf({{0, 50, 0, 1000}});
  EXPECT_TRUE(host.alg->InputStream(0, packet.data(), 0, 0));
  EXPECT_TRUE(host.alg->InputStream(0, nullptr, 0, 0));
  EXPECT_TRUE(host.alg->InputStream(0, nullptr, 12, 0));
  EXPECT_EQ(host.data.blocks.size(), 1u);
  EXPECT_THAT(host.log.lines, IsEmpty());
  const algorithm::PoseAnswer after = host.pose(0);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

TEST(InputStream, DeliversTheWholeBlockOncePerPacket) {
  Host host(0);
  host.see({{0, 0, 0, 1000}});
  host.see({{0, 0, 0, 1000}});
  host.seeAt(5, {{0, 0, 0, 1000}});
  EXPECT_THAT(host.data.offsets, ElementsAre(0, 0, 0));
  EXPECT_THAT(host.data.lengths, ElementsAre(528, 528, 528));
}

TEST(InputStream, PayloadStartsAtTheOffset) {
  Host host(0);
  const Bytes packet = packetOf({{1, 30, 20, 1000}});
  const int length = static_cast<int>(packet.size());
  Bytes around(100 + packet.size() + 50, 0xAA);
  std::copy(packet.begin(), packet.end(), around.begin() + 100);

  EXPECT_TRUE(host.alg->InputStream(0, around.data(), 100, length));
  EXPECT_TRUE(host.alg->InputStream(0, around.data() + 120, -20, length));
  EXPECT_TRUE(host.alg->InputStream(0, around.data() + around.size(), -50 - length, length));
  ASSERT_EQ(host.data.blocks.size(), 3u);
  for (const ResultBlock& block : host.data.blocks) {
    EXPECT_EQ(block.records[1].id, 1);
    EXPECT_NEAR(block.records[1].x, 30, kExact);
  }
  EXPECT_THAT(host.log.lines, IsEmpty());
}

TEST(InputStream, OffsetAppliesToEveryStreamType) {
  Host host(0);
  const InertialRecord record = numberedRecord(1);
  Bytes bytes(200, 0);
  std::memcpy(bytes.data() + 77, &record, sizeof record);
  EXPECT_TRUE(host.alg->InputStream(3, bytes.data(), 77, 56));
  EXPECT_TRUE(host.alg->InputStream(4, bytes.data() + 100, -23, 56));
  host.see({});
  EXPECT_THAT(hostValues(host.data.last().records[0]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  EXPECT_THAT(hostValues(host.data.last().records[1]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

// What a refused payload must leave as it is: the block, its header stamp and its inertial values,
// the latest frame stamp, and the side hint.
TEST(InputStream, RefusesUnusablePayloadsSilentlyAndChangesNothing) {
  Host host(1);
  host.alg->SetFilterMode(0, 1, nullptr);
  constexpr double kY = 10, kZ = 800;
  // The pair moves, so that a filtered answer differs from an unfiltered one.
  for (const double x : {-20, -10, 0}) {
    host.seeAt(1000000, {{2, x - 34, kY, kZ, kSmall}, {2, x + 34, kY, kZ, kSmall}});
  }
  const InertialRecord record = numberedRecord(1);
  host.inertial(3, record);
  host.inertial(4, record);
  host.log.lines.clear();
  const std::size_t blocks = host.data.blocks.size();
  const algorithm::PoseAnswer before = host.pose(2, 1000001);
  ASSERT_EQ(before.id, 2);
  ASSERT_GT(std::fabs(before.filtered[0] - before.raw[0]), 1);

  for (int type = 1; type <= 5; ++type) {
    EXPECT_FALSE(host.alg->InputStream(type, nullptr, 0, 64)) << type;
    EXPECT_FALSE(host.alg->InputStream(type, nullptr, 0, 0)) << type;
  }
  EXPECT_FALSE(host.alg->InputStream(0, nullptr, 0, 1));
  EXPECT_FALSE(host.alg->InputStream(0, nullptr, 64, 27));

  Bytes other(64, 0);  // as a hint: the second point; as a stamp: 2 us
  other[0] = 2;
  for (int type = 0; type <= 5; ++type) {
    EXPECT_FALSE(host.alg->InputStream(type, other.data(), 0, -1)) << type;
    EXPECT_FALSE(host.alg->InputStream(type, other.data(), 0, std::numeric_limits<int>::min()))
        << type;
    EXPECT_FALSE(host.alg->InputStream(type, nullptr, 0, -1)) << type;
  }
  for (int length = 0; length < 4; ++length) {
    EXPECT_FALSE(host.alg->InputStream(2, other.data(), 0, length));
  }

  EXPECT_THAT(host.log.lines, IsEmpty());
  EXPECT_EQ(host.data.blocks.size(), blocks);
  const algorithm::PoseAnswer after = host.pose(2, 1000001);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << "block and stamp";
  // One point visible, the hint unset: the nearer point of the pair, so the midpoint stays at 0.
  host.see({{2, -34, kY, kZ, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, 0, 0.05) << "hint";
  EXPECT_THAT(hostValues(host.data.last().records[0]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  EXPECT_THAT(hostValues(host.data.last().records[1]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST(InputStream, DoesNotCompareTheLengthOfSamplesWithTheirRecords) {
  Host host(0);
  const InertialRecord record = numberedRecord(1);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  for (const int type : {1, 3, 4, 5}) EXPECT_TRUE(host.alg->InputStream(type, bytes, 0, 0));
  EXPECT_TRUE(host.alg->InputStream(1, bytes, 0, 100000));
  host.see({});
  EXPECT_THAT(hostValues(host.data.last().records[0]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  EXPECT_THAT(hostValues(host.data.last().records[1]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST(InputStream, StampedPacketWritesItsStampIntoTheHeader) {
  Host host(0);
  host.seeAt(0x01020304, {{0, 0, 0, 1000}});
  EXPECT_EQ(host.data.last().header, 0x01020304u);
  host.seeAt(0xFFFFFFFF, {{0, 0, 0, 1000}});
  EXPECT_EQ(host.data.last().header, 0x00000000FFFFFFFFu) << "widened with zeros";
  host.see({{0, 0, 0, 1000}});
  EXPECT_EQ(host.data.last().header, 0u) << "an unstamped packet has none";
}

TEST(InputStream, StampedPacketTracksAsAnUnstampedOneDoes) {
  Host host(2);
  host.see({{4, 30, 20, 1000}});
  host.seeAt(9, {{4, 30, 20, 1000}});
  for (const ResultBlock& block : host.data.blocks) {
    EXPECT_EQ(block.records[4].id, 4);
    EXPECT_NEAR(block.records[4].x, 30, kExact);
  }
}

// Four zero bytes follow a stamped packet through the decoder, which takes the last of them for the
// check byte: nearly every stamped packet is reported, and its records count all the same.
TEST(InputStream, StampedPacketIsReportedOnceForItsTrailingBytes) {
  Host host(0);
  const Bytes packet = packetOf({{0, 0, 0, 1000}});
  ASSERT_NE(2 * packet.back() % 256, 0);
  host.input(2, stamped(1, packet));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, kCheckByte)));
  EXPECT_EQ(host.data.last().records[0].id, 0);
}

// Twice 128 is 0 modulo 256: with the right check byte 128 the longer sum is 0, as is the byte it
// is compared with. What is left to report are the four bytes behind the records.
TEST(InputStream, StampedPacketWhoseDoubledSumVanishesIsReportedForItsFormat) {
  Host host(0);
  Bytes bytes = packetOf({{0, 0, 0, 1000}});
  bytes.pop_back();
  std::uint8_t sum = 0;
  for (const auto byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
  bytes.insert(bytes.begin(), static_cast<std::uint8_t>(128 - sum));  // a leading byte
  const Bytes packet = closed(bytes);
  ASSERT_EQ(packet.back(), 128);
  host.input(2, stamped(1, packet));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, "alg: fpga: buffer data format error.\n")));
  EXPECT_EQ(host.data.last().records[0].id, 0);
}

// A packet is cut to the 512 bytes of the decoder's frame: the four trailing zeros of a stamped one
// of full length fall off, and its check byte is found.
TEST(InputStream, StampedPacketOfFullLengthIsDecodedRight) {
  Host host(0);
  Bytes packet(485, 0x11);  // leading bytes
  const Bytes end = packetOf({{0, 30, 0, 1000}});
  packet.insert(packet.end(), end.begin(), end.end() - 1);
  packet = closed(packet);
  ASSERT_EQ(packet.size(), 512u);
  host.input(2, stamped(1, packet));
  EXPECT_THAT(host.log.lines, IsEmpty());
  EXPECT_NEAR(host.data.last().records[0].x, 30, kExact);
}

TEST(InputStream, PacketBeyondTheFrameIsCut) {
  Host host(0);
  Bytes packet = packetOf({{0, 30, 0, 1000}});
  ASSERT_EQ(packet.size(), 27u);  // start word, two records, check byte
  packet.resize(600, 0);
  packet[511] = static_cast<std::uint8_t>(2 * packet[26]);  // sum of the first 511 bytes
  EXPECT_TRUE(host.input(0, packet));
  EXPECT_EQ(host.data.last().records[0].id, 0);
  for (const auto& text : host.log.texts()) EXPECT_NE(text, kCheckByte);

  EXPECT_TRUE(host.input(0, Bytes(100000, 0xAA)));
  EXPECT_EQ(host.data.blocks.size(), 2u);
}

// The stamp alone leaves four zeros of a packet: no start word, and the sum of zeros is right.
TEST(InputStream, StampWithoutPacketDeliversABlockWithoutObjects) {
  Host host(0);
  host.see({{0, 0, 0, 1000}});
  EXPECT_TRUE(host.input(2, {0x78, 0x56, 0x34, 0x12}));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, "alg: fpga: start byte error.\n")));
  ASSERT_EQ(host.data.blocks.size(), 2u);
  EXPECT_EQ(host.data.last().header, 0x12345678u);
  for (const TrackedPoint& record : host.data.last().records) EXPECT_EQ(record.id, -1);
}

TEST(InputStream, ReportsEveryFaultOfAPacketOnceAndDeliversABlock) {
  Host host(0);
  const struct {
    Bytes packet;
    const char* message;
  } cases[] = {
      {{0x01, 0x02, 0x03}, "alg: fpga: start byte error.\n"},
      {{0xAA, 0x55, 0xFF}, "alg: fpga: no buffer data error.\n"},
      // AA + 55 + 10 + 02 + 64 = 0x175
      {{0xAA, 0x55, 0x10, 0x00, 0x00, 0x02, 0x64, 0x00, 0x75},
       "alg: fpga: buffer data format error.\n"},
      {{0xAA, 0x55, 0x00}, kCheckByte},
  };
  std::size_t blocks = 0;
  for (const auto& [packet, message] : cases) {
    host.log.lines.clear();
    EXPECT_TRUE(host.input(0, packet));
    EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, message)));
    EXPECT_EQ(host.data.blocks.size(), ++blocks);
  }
  // The header byte that is examined lies two bytes behind this packet: byte 5 of the one before.
  host.input(0, closed({0, 0, 0, 0, 0, 0xF0}));
  host.log.lines.clear();
  EXPECT_TRUE(host.input(0, closed({0xAA, 0x55, 0xFF})));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, "alg: fpga: type bit format error.\n")));
}

TEST(InputStream, RecordsOfAPacketWithAWrongCheckByteCount) {
  Host host(0);
  Bytes packet = packetOf({{1, 30, 0, 1000}});
  packet.back() ^= 0x01;
  EXPECT_TRUE(host.input(0, packet));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, kCheckByte)));
  EXPECT_EQ(host.data.last().records[1].id, 1);
}

TEST(InputStream, MirrorsYAndZAndLeavesX) {
  Host host(0);
  host.see({{0, 12.5, 2.5, 1000}, {1, -12.5, -2.5, 900}});
  const ResultBlock& block = host.data.last();
  EXPECT_NEAR(block.records[0].x, 12.5, kExact);
  EXPECT_NEAR(block.records[0].y, -2.5, kExact);
  EXPECT_NEAR(block.records[0].z, -1000, kExact);
  EXPECT_NEAR(block.records[1].x, -12.5, kExact);
  EXPECT_NEAR(block.records[1].y, 2.5, kExact);
  EXPECT_NEAR(block.records[1].z, -900, kExact);
}

// Every record is mirrored in every block, the untouched ones too, and always from the
// stabilisation's own values: zero becomes minus zero and stays so.
TEST(InputStream, UntouchedRecordsHoldMinusZero) {
  Host host(2);
  for (int n = 0; n < 3; ++n) {
    host.see({{0, 0, 0, 1000}});
    for (int k = 6; k < 10; ++k) {
      const TrackedPoint& record = host.data.last().records[k];
      EXPECT_EQ(record.id, -1);
      EXPECT_EQ(record.x, 0.0f);
      EXPECT_FALSE(std::signbit(record.x));
      EXPECT_EQ(record.y, 0.0f);
      EXPECT_TRUE(std::signbit(record.y)) << "block " << n << " record " << k;
      EXPECT_EQ(record.z, 0.0f);
      EXPECT_TRUE(std::signbit(record.z)) << "block " << n << " record " << k;
    }
  }
}

// An object that is gone keeps its old position in the block, mirrored once, not once per block.
TEST(InputStream, VanishedObjectKeepsItsPosition) {
  Host host(2);
  host.see({{0, 10, 20, 1000}, {1, 0, 0, 1000}});
  for (int n = 0; n < 3; ++n) {
    host.see({{1, 0, 0, 1000}});
    const TrackedPoint& record = host.data.last().records[0];
    EXPECT_EQ(record.id, -1);
    EXPECT_NEAR(record.y, -20, kExact);
    EXPECT_NEAR(record.z, -1000, kExact);
  }
}

TEST(InputStream, InertialValuesTravelWithTheNextBlock) {
  Host host(0);
  EXPECT_TRUE(host.inertial(3, numberedRecord(1)));
  EXPECT_TRUE(host.inertial(4, numberedRecord(11)));
  EXPECT_THAT(host.data.blocks, IsEmpty()) << "nothing is delivered for them";
  host.see({{0, 5, 0, 1000}});
  const ResultBlock& block = host.data.last();
  EXPECT_THAT(hostValues(block.records[0]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  EXPECT_THAT(hostValues(block.records[1]), ElementsAre(11, 12, 13, 14, 15, 16, 17));
  EXPECT_EQ(block.records[0].id, 0);
  EXPECT_NEAR(block.records[0].x, 5, kExact);
  for (int k = 2; k < 10; ++k) {
    EXPECT_THAT(hostValues(block.records[k]), ElementsAre(0, 0, 0, 0, 0, 0, 0));
  }
}

TEST(InputStream, InertialValuesSurviveStabilisationResults) {
  Host host(2);
  host.inertial(3, numberedRecord(1));
  host.see({{0, 0, 0, 1000}});
  host.see({});  // object 0 is gone
  host.seeAt(5, {{0, 0, 0, 1000}});
  EXPECT_THAT(hostValues(host.data.last().records[0]), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  host.inertial(3, numberedRecord(21));
  host.see({{0, 0, 0, 1000}});
  EXPECT_THAT(hostValues(host.data.last().records[0]), ElementsAre(21, 22, 23, 24, 25, 26, 27));
}

TEST(InputStream, AuxiliaryVectorAndHintStayOutOfTheBlock) {
  Host host(0);
  EXPECT_TRUE(host.inertial(1, numberedRecord(1)));
  EXPECT_TRUE(host.input(5, {9, 9, 9, 9}));
  host.see({});
  for (const TrackedPoint& record : host.data.last().records) {
    EXPECT_THAT(hostValues(record), ElementsAre(0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(record.reserved, 0.0f);
    EXPECT_EQ(record.bearing, 0.0f);
  }
}

// One point of the pair is visible, where the first was. Told that it is the second, the library
// looks for the partner on the other side: -34 - 34 = -68. Told that it is the first: 0 again.
TEST(InputStream, SideHintDecidesWhichPointOfThePairIsVisible) {
  Host host(1);
  host.see({{2, -34, 10, 800, kSmall}, {2, 34, 10, 800, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, 0, 0.05);
  EXPECT_NEAR(host.data.last().records[2].y, -10, 0.05);
  EXPECT_NEAR(host.data.last().records[2].z, -800, 0.05);

  EXPECT_TRUE(host.input(5, {2, 0, 0, 0}));
  host.see({{2, -34, 10, 800, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, -68, 0.05);
  // atan(68 / 800) = 4.8585 degrees; the bearing is not mirrored.
  EXPECT_NEAR(host.data.last().records[2].bearing, 4.8585, 0.005);

  EXPECT_TRUE(host.input(5, {1, 0, 0, 0}));
  host.see({{2, -34, 10, 800, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, 0, 0.05);
  EXPECT_NEAR(host.data.last().records[2].bearing, 0, 0.005);
}

// The hint is a 32-bit little-endian value: 0x0102 is neither 1 nor 2.
TEST(InputStream, SideHintIsAThirtyTwoBitValue) {
  Host host(1);
  host.see({{2, -34, 10, 800, kSmall}, {2, 34, 10, 800, kSmall}});
  host.input(5, {2, 1, 0, 0});
  host.see({{2, -34, 10, 800, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, 0, 0.05);
  host.input(5, {2, 0, 0, 1});
  host.see({{2, -34, 10, 800, kSmall}});
  EXPECT_NEAR(host.data.last().records[2].x, 0, 0.05);
}

// Product type 1, object 0: the stabilisation holds a jump of more than 80 mm (the 3D stage would
// let 150 pass); types 0 and 2 take it.
TEST(InputStream, ProductTypeOneHoldsJumpsBeyondEightyMillimetres) {
  for (const int productType : {1, 0, 2}) {
    Host host(productType);
    host.see({{2, 0, 0, 1000}});  // (leaves object 0 absent, whatever an earlier product left)
    host.see({{0, 0, 0, 1000}});
    host.see({{0, 79, 0, 1000}});
    EXPECT_NEAR(host.data.last().records[0].x, 79, kExact);
    host.see({{0, 160, 0, 1000}});
    EXPECT_NEAR(host.data.last().records[0].x, productType == 1 ? 79 : 160, kExact);
  }
}

// An object that comes back after an absence is taken wherever it is.
TEST(InputStream, ReappearingObjectIsTakenWithoutAJumpTest) {
  Host host(1);
  host.see({{0, 0, 0, 1000}, {1, 0, 100, 1000}});
  host.see({{1, 0, 100, 1000}});
  EXPECT_EQ(host.data.last().records[0].id, -1);
  host.see({{0, 300, 0, 1000}, {1, 0, 100, 1000}});
  EXPECT_EQ(host.data.last().records[0].id, 0);
  EXPECT_NEAR(host.data.last().records[0].x, 300, kExact);
}

TEST(InputStream, FrameWithoutPointsDeliversNoIds) {
  for (const int productType : {0, 1, 2}) {
    Host host(productType);
    host.see({{0, 0, 0, 1000}});
    host.see({});
    for (const TrackedPoint& record : host.data.last().records) EXPECT_EQ(record.id, -1);
  }
}

// Blobs of different ids are never paired, and an object that one camera sees is no object.
TEST(InputStream, ObjectNeedsBothCameras) {
  Host host(0);
  Bytes bytes = {0xAA, 0x55};
  testing_support::appendView(0, {0, 0, 0, 1000}, testing_support::kBaseline, bytes);
  testing_support::appendView(1, {1, 0, 0, 1000}, testing_support::kBaseline, bytes);
  host.input(0, closed(bytes));
  for (const TrackedPoint& record : host.data.last().records) EXPECT_EQ(record.id, -1);
}

}  // namespace
