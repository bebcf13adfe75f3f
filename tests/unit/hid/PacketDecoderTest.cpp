#include <alg_factory/hid/PacketDecoder.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/support/RawBlobCompare.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace {

using hid::checkSum;
using hid::DecodeStatus;
using hid::findStart;
using hid::Frame;
using hid::messageOf;
using hid::RawBlob;
using hid::readRecord;
using hid::RecordStep;
using testing::ElementsAre;
using testing::IsEmpty;

Frame frameOf(std::initializer_list<std::uint8_t> bytes, std::uint8_t behind = 0) {
  Frame frame{};
  std::fill(frame.begin(), frame.begin() + hid::kFrameSize, behind);
  std::copy(bytes.begin(), bytes.end(), frame.begin());
  return frame;
}

struct Decoded {
  DecodeStatus status = DecodeStatus::kNone;
  std::vector<RawBlob> left;
  std::vector<RawBlob> right;
};

Decoded decodeFrame(const Frame& frame, int length, int blobIdCount = 3) {
  Decoded decoded;
  decoded.status = hid::decode(frame, length, blobIdCount, decoded.left, decoded.right);
  return decoded;
}

TEST(MessageOf, EachStatusHasItsText) {
  EXPECT_STREQ(messageOf(DecodeStatus::kNoStart), "alg: fpga: start byte error.\n");
  EXPECT_STREQ(messageOf(DecodeStatus::kNoData), "alg: fpga: no buffer data error.\n");
  EXPECT_STREQ(messageOf(DecodeStatus::kBadType), "alg: fpga: type bit format error.\n");
  EXPECT_STREQ(messageOf(DecodeStatus::kCutRecord), "alg: fpga: buffer data format error.\n");
  EXPECT_STREQ(messageOf(DecodeStatus::kBadCheck), "alg: fpga: check byte error.\n");
  EXPECT_EQ(messageOf(DecodeStatus::kNone), nullptr);
}

TEST(FindStart, GivesTheFirstOfSeveralStartWords) {
  EXPECT_EQ(findStart(frameOf({0xAA, 0x55, 0xAA, 0x55}), 4), 0);
  EXPECT_EQ(findStart(frameOf({0x55, 0xAA, 0xAA, 0x55, 0xAA, 0x55}), 6), 2);
}

TEST(FindStart, GivesTheLengthWhenThereIsNone) {
  EXPECT_EQ(findStart(frameOf({0x55, 0xAA, 0xAA, 0x54}), 4), 4);
  EXPECT_EQ(findStart(frameOf({0xAA}), 1), 1);
}

TEST(FindStart, LooksAtTheByteJustBehindThePacket) {
  EXPECT_EQ(findStart(frameOf({1, 2, 0xAA, 0x55}), 3), 2);
  EXPECT_EQ(findStart(frameOf({1, 2, 0xAA, 0x54}), 3), 3);
}

TEST(FindStart, DoesNotLookFurtherBehindThePacket) {
  EXPECT_EQ(findStart(frameOf({1, 2, 3, 0xAA, 0x55}), 3), 3);
}

TEST(FindStart, SeesZeroBehindTheFullFrame) {
  Frame frame = frameOf({}, 0x55);
  frame[hid::kFrameSize - 1] = 0xAA;
  EXPECT_EQ(findStart(frame, hid::kFrameSize), hid::kFrameSize);
}

TEST(ReadRecord, ReadsEveryFieldLittleEndian) {
  const Frame frame =
      frameOf({0x77, 0xEF, 0xCD, 0xAB, 0x12, 0x04, 0x03, 0x02, 0x81, 0xFF, 0xFF, 0xFF, 0xFE, 0x77});
  const RecordStep step = readRecord(frame, 1, 13, 3);
  EXPECT_EQ(step.kind, RecordStep::Kind::kRecord);
  EXPECT_EQ(step.camera, 1);
  EXPECT_EQ(step.blob, (RawBlob{2, 0xABCDEF, 0x81020304, 0xFEFFFFFF}));
  EXPECT_EQ(step.advance, 12);
}

TEST(ReadRecord, BytesLeftDecideHowACutRecordEnds) {
  const Frame frame = frameOf({0x10, 0, 0, 0x02, 100, 0, 0, 0, 200, 0, 0, 0});
  using Kind = RecordStep::Kind;
  const Kind expected[] = {
      Kind::kEnd,        Kind::kEnd,        Kind::kEnd,     Kind::kCutMoments, Kind::kCutMoments,
      Kind::kCutMoments, Kind::kCutMoments, Kind::kCutLast, Kind::kCutLast,    Kind::kCutLast,
      Kind::kCutLast,    Kind::kRecord,     Kind::kRecord};
  for (int left = 1; left <= 13; ++left) {
    EXPECT_EQ(readRecord(frame, 0, left, 3).kind, expected[left - 1]) << left << " bytes left";
  }
}

TEST(ReadRecord, OnlyTheCamerasZeroAndOneAreValid) {
  for (int nibble = 0; nibble < 16; ++nibble) {
    const auto header = static_cast<std::uint8_t>(nibble << 4 | 1);
    const RecordStep step = readRecord(frameOf({1, 0, 0, header}), 0, 12, 3);
    if (nibble < 2) {
      EXPECT_EQ(step.kind, RecordStep::Kind::kRecord) << nibble;
      EXPECT_EQ(step.camera, nibble);
    } else {
      EXPECT_EQ(step.kind, RecordStep::Kind::kBadCamera) << nibble;
      EXPECT_EQ(step.advance, 1);
    }
  }
}

TEST(ReadRecord, IdsBelowTheCountAreValid) {
  for (const int count : {3, 6}) {
    for (int id = 0; id < 16; ++id) {
      const Frame frame = frameOf({1, 0, 0, static_cast<std::uint8_t>(0x10 | id)});
      const RecordStep step = readRecord(frame, 0, 12, count);
      if (id < count) {
        EXPECT_EQ(step.kind, RecordStep::Kind::kRecord) << id << " of " << count;
        EXPECT_EQ(step.blob.id, id);
      } else {
        EXPECT_EQ(step.kind, RecordStep::Kind::kBadId) << id << " of " << count;
        EXPECT_EQ(step.advance, 1);
      }
    }
  }
}

TEST(ReadRecord, CameraIsExaminedBeforeTheBoundAndIdAfterIt) {
  EXPECT_EQ(readRecord(frameOf({0, 0, 0, 0x20}), 0, 3, 3).kind, RecordStep::Kind::kBadCamera);
  EXPECT_EQ(readRecord(frameOf({0, 0, 0, 0x0F}), 0, 3, 3).kind, RecordStep::Kind::kEnd);
  EXPECT_EQ(readRecord(frameOf({0, 0, 0, 0x0F}), 0, 4, 3).kind, RecordStep::Kind::kBadId);
}

TEST(CheckSum, IsModulo256AndStopsBeforeTheCheckByte) {
  EXPECT_EQ(checkSum(frameOf({0xAA, 0x55, 0x02, 0x40}), 3), 0x01);  // AA + 55 + 02 = 0x101
  EXPECT_EQ(checkSum(frameOf({0x40}), 0), 0x00);
}

TEST(Decode, SlidesByOneByteOverABadId) {
  // Read one byte too early, the record's third weight byte is a header with id 3.
  const Frame frame = frameOf({0xAA, 0x55, 0x77, 0x10, 0, 3, 0x02, 100, 0, 0, 0, 200, 0, 0, 0,
                               0xB7});  // FF + 77 + 10 + 3 + 2 + 64 + C8 = 0x2B7
  const Decoded decoded = decodeFrame(frame, 16);
  EXPECT_EQ(decoded.status, DecodeStatus::kNone);
  EXPECT_THAT(decoded.left, ElementsAre(RawBlob{2, 0x030010, 100, 200}));
  EXPECT_THAT(decoded.right, IsEmpty());
}

TEST(Decode, SlidesByOneByteOverABadCamera) {
  const Frame frame = frameOf({0xAA, 0x55, 0x77, 0x10, 0, 0x20, 0x12, 100, 0, 0, 0, 200, 0, 0, 0,
                               0xE4});  // FF + 77 + 10 + 20 + 12 + 64 + C8 = 0x2E4
  const Decoded decoded = decodeFrame(frame, 16);
  EXPECT_EQ(decoded.status, DecodeStatus::kNone);
  EXPECT_THAT(decoded.left, IsEmpty());
  EXPECT_THAT(decoded.right, ElementsAre(RawBlob{2, 0x200010, 100, 200}));
}

TEST(Decode, BadCameraAtTheLastPositionIsReported) {
  // The header of position n - 1 is the second byte behind the packet.
  for (int header = 0; header < 256; ++header) {
    Frame frame = frameOf({0xAA, 0x55, 0xFF, 0xFE});
    frame[5] = static_cast<std::uint8_t>(header);
    const DecodeStatus expected = header >= 0x20 ? DecodeStatus::kBadType : DecodeStatus::kNone;
    EXPECT_EQ(decodeFrame(frame, 4).status, expected) << header;
  }
}

TEST(Decode, OnlyTheSecondByteBehindThePacketCounts) {
  Frame frame = frameOf({0xAA, 0x55, 0xFF, 0xFE}, 0xF0);
  frame[5] = 0;
  EXPECT_EQ(decodeFrame(frame, 4).status, DecodeStatus::kNone);
}

TEST(Decode, SlideOverATailReadsTheCheckByteAndTwoBytesBehindIt) {
  // Five bytes: headers at the fourth and fifth, at the check byte and at two stale bytes.
  // AA + 55 + 5 * 66 = 0x2FD, check byte FD.
  Frame frame = frameOf({0xAA, 0x55, 0x66, 0x66, 0x66, 0x66, 0x66, 0xFD}, 0x30);
  EXPECT_EQ(decodeFrame(frame, 8).status, DecodeStatus::kBadType);
  frame[9] = 0x1F;  // the last header: too few bytes left, quiet
  EXPECT_EQ(decodeFrame(frame, 8).status, DecodeStatus::kNone);
  frame[9] = 0x30;
  frame[8] = 0x1F;  // the header before it ends the loop already
  EXPECT_EQ(decodeFrame(frame, 8).status, DecodeStatus::kNone);
}

TEST(Decode, StartWordEndingInTheCheckByteHasNoData) {
  // AB + AA = 0x155: the 55 is both the check byte and half the start word.
  EXPECT_EQ(decodeFrame(frameOf({0xAB, 0xAA, 0x55}), 3).status, DecodeStatus::kNoData);
}

TEST(Decode, StartWordEndingBehindThePacketHasNoData) {
  // 56 + 54 = AA: the check byte, followed by what an earlier packet left.
  EXPECT_EQ(decodeFrame(frameOf({0x56, 0x54, 0xAA, 0x55}), 3).status, DecodeStatus::kNoData);
  EXPECT_EQ(decodeFrame(frameOf({0x56, 0x54, 0xAA, 0x00}), 3).status, DecodeStatus::kNoStart);
}

TEST(Decode, PacketOfOneByteIsItsOwnCheckByte) {
  EXPECT_EQ(decodeFrame(frameOf({0x00}), 1).status, DecodeStatus::kNoStart);
  EXPECT_EQ(decodeFrame(frameOf({0x07}), 1).status, DecodeStatus::kBadCheck);
  EXPECT_EQ(decodeFrame(frameOf({0xAA, 0x55}), 1).status, DecodeStatus::kBadCheck);
}

TEST(Decode, AppendsBehindWhatTheOutputsHold) {
  const Frame frame = frameOf({0xAA, 0x55, 0x10, 0, 0, 0x02, 100, 0, 0, 0, 200, 0, 0, 0, 0x3D});
  std::vector<RawBlob> left{{1, 7, 8, 9}};
  std::vector<RawBlob> right{{0, 4, 5, 6}};
  EXPECT_EQ(hid::decode(frame, 15, 3, left, right), DecodeStatus::kNone);
  EXPECT_THAT(left, ElementsAre(RawBlob{1, 7, 8, 9}, RawBlob{2, 16, 100, 200}));
  EXPECT_THAT(right, ElementsAre(RawBlob{0, 4, 5, 6}));
}

}  // namespace
