#include <alg_kit/trace/PacketDissection.h>
#include <gtest/gtest.h>
#include <sim/Random.h>
#include <tests/support/HandRig.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace {

using trace::PacketPiece;
using Kind = PacketPiece::Kind;
using testing_support::Bytes;
using Span = std::tuple<Kind, int, int>;  // kind, offset, size

hid::Frame frameOf(const Bytes& packet, const Bytes& behind = {}) {
  hid::Frame frame{};
  std::copy(packet.begin(), packet.end(), frame.begin());
  std::copy(behind.begin(), behind.end(),
            frame.begin() + static_cast<std::ptrdiff_t>(packet.size()));
  return frame;
}

std::vector<Span> spans(const Bytes& packet, int idCount = 3, const Bytes& behind = {}) {
  std::vector<Span> result;
  for (const PacketPiece& piece :
       trace::dissect(frameOf(packet, behind), static_cast<int>(packet.size()), idCount))
    result.emplace_back(piece.kind, piece.offset, piece.size);
  return result;
}

const Bytes kRecord = {0x10, 0, 0, 0x02, 0x64, 0, 0, 0, 0xC8, 0, 0, 0};

Bytes withRecords(const Bytes& leading, int count, const Bytes& tail) {
  Bytes bytes = leading;
  bytes.insert(bytes.end(), {0xAA, 0x55});
  for (int i = 0; i < count; ++i) bytes.insert(bytes.end(), kRecord.begin(), kRecord.end());
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return testing_support::closed(bytes);
}

TEST(PacketDissection, NamesEveryRunOfBytesOfAWholePacket) {
  EXPECT_EQ(spans(withRecords({7, 7, 7}, 2, {})), (std::vector<Span>{{Kind::kLeading, 0, 3},
                                                                     {Kind::kStart, 3, 2},
                                                                     {Kind::kRecord, 5, 12},
                                                                     {Kind::kRecord, 17, 12},
                                                                     {Kind::kCheck, 29, 1}}));
}

TEST(PacketDissection, HoldsTheFieldsOfARecord) {
  const Bytes packet = withRecords({}, 1, {});
  const auto pieces = trace::dissect(frameOf(packet), static_cast<int>(packet.size()), 3);
  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_EQ(pieces[1].step.camera, 0);
  EXPECT_EQ(pieces[1].step.blob.id, 2);
  EXPECT_EQ(pieces[1].step.blob.weight, 16u);
  EXPECT_EQ(pieces[1].step.blob.sumX, 100u);
  EXPECT_EQ(pieces[1].step.blob.sumY, 200u);
}

TEST(PacketDissection, TellsTheThreeWaysInWhichARecordIsCut) {
  EXPECT_EQ(spans(withRecords({}, 0, {0x10, 0, 0})).at(1), (Span{Kind::kEnd, 2, 3}));
  EXPECT_EQ(spans(withRecords({}, 0, {0x10, 0, 0, 0x02})).at(1), (Span{Kind::kCutMoments, 2, 4}));
  EXPECT_EQ(spans(withRecords({}, 0, {0x10, 0, 0, 0x02, 1, 0, 0, 0})).at(1),
            (Span{Kind::kCutLast, 2, 8}));
}

TEST(PacketDissection, SkipsOneByteAtABadHeaderAndSaysWhy) {
  Bytes tail = kRecord;
  tail[3] = 0x22;
  const Bytes packet = withRecords({}, 0, tail);
  const hid::Frame frame = frameOf(packet);
  const int length = static_cast<int>(packet.size());
  const auto pieces = trace::dissect(frame, length, 3);
  EXPECT_EQ(pieces.at(1).kind, Kind::kBadCamera);
  EXPECT_EQ(pieces.at(1).size, 1);
  EXPECT_EQ(trace::refusalOf(pieces.at(1), frame, length, 3),
            "header 0x22 at offset 5: camera 2, expected 0 or 1; goes on one byte further");
}

TEST(PacketDissection, NamesAnIdThatTheProductDoesNotHave) {
  Bytes tail = kRecord;
  tail[3] = 0x14;
  const Bytes packet = withRecords({}, 0, tail);
  const hid::Frame frame = frameOf(packet);
  const int length = static_cast<int>(packet.size());
  const auto piece = trace::dissect(frame, length, 3).at(1);
  EXPECT_EQ(piece.kind, Kind::kBadId);
  EXPECT_EQ(trace::refusalOf(piece, frame, length, 3),
            "header 0x14 at offset 5: id 4, expected below 3; goes on one byte further");
  EXPECT_EQ(spans(packet, 6).at(1), (Span{Kind::kRecord, 2, 12}));
}

TEST(PacketDissection, SaysWhenAByteOfAnEarlierPacketDecided) {
  const Bytes packet = testing_support::closed({0xAA, 0x55, 0xFF});
  const hid::Frame frame = frameOf(packet, {0x00, 0xF0});
  const int length = static_cast<int>(packet.size());
  const auto piece = trace::dissect(frame, length, 3).at(1);
  EXPECT_EQ(piece.kind, Kind::kBadCamera);
  EXPECT_NE(trace::refusalOf(piece, frame, length, 3).find("left by an earlier one"),
            std::string::npos);
}

TEST(PacketDissection, TakesAPacketWithoutStartWordAsLeadingBytes) {
  EXPECT_EQ(spans(testing_support::closed({1, 2, 3})),
            (std::vector<Span>{{Kind::kLeading, 0, 3}, {Kind::kCheck, 3, 1}}));
}

TEST(PacketDissection, LeavesTheLastByteToTheCheckWhereTheStartWordReachesIntoIt) {
  EXPECT_EQ(spans({0xAA, 0x55}), (std::vector<Span>{{Kind::kStart, 0, 1}, {Kind::kCheck, 1, 1}}));
  EXPECT_EQ(spans({0x00}), (std::vector<Span>{{Kind::kCheck, 0, 1}}));
}

TEST(PacketDissection, CoversRandomBytesWithoutGapAndFindsTheDecodersRecords) {
  sim::Random random(20240611);
  for (int round = 0; round < 20000; ++round) {
    Bytes packet(static_cast<std::size_t>(1 + random.index(80)));
    // Few values, so that start words, cameras and ids come up often.
    for (auto& byte : packet) {
      constexpr std::uint8_t kLikely[] = {0xAA, 0x55, 0x00, 0x01, 0x10, 0x12, 0x02, 0x20, 0x05};
      byte = random.chance(0.2) ? static_cast<std::uint8_t>(random.index(256))
                                : kLikely[random.index(9)];
    }
    Bytes behind(4);
    for (auto& byte : behind) byte = static_cast<std::uint8_t>(random.index(256));
    const hid::Frame frame = frameOf(packet, behind);
    const int length = static_cast<int>(packet.size());

    int next = 0;
    std::vector<hid::RawBlob> blobs[2], decoded[2];
    for (const PacketPiece& piece : trace::dissect(frame, length, 3)) {
      ASSERT_EQ(piece.offset, next);
      ASSERT_GT(piece.size, 0);
      next += piece.size;
      if (piece.kind == Kind::kRecord) blobs[piece.step.camera].push_back(piece.step.blob);
    }
    ASSERT_EQ(next, length);
    hid::decode(frame, length, 3, decoded[0], decoded[1]);
    for (int camera = 0; camera < 2; ++camera) {
      ASSERT_EQ(blobs[camera].size(), decoded[camera].size());
      for (std::size_t i = 0; i < blobs[camera].size(); ++i) {
        ASSERT_EQ(blobs[camera][i].weight, decoded[camera][i].weight);
        ASSERT_EQ(blobs[camera][i].sumY, decoded[camera][i].sumY);
      }
    }
  }
}

}  // namespace
