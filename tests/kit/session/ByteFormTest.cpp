#include <alg_kit/session/ByteForm.h>
#include <alg_kit/session/Comparison.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using session::ByteFormError;
using session::Bytes;
using session::CallKind;
using session::Entry;
using session::Unit;
using testing::HasSubstr;

/// A packet with everything that a call can have, a query from inside its callback, and truth.
Unit fullUnit() {
  Unit unit;
  Entry& packet = unit.append();
  packet.call.index = 41;
  packet.call.kind = CallKind::kInputStream;
  packet.call.type = 2;
  packet.call.offset = 3;
  packet.call.length = 6;
  packet.call.pointerGiven = true;
  packet.call.payload = {1, 2, 3, 4, 5, 6};
  packet.call.startNs = 1234567890123;
  packet.logs.push_back({0, 3, "alg: one\n", true});
  packet.blocks.emplace_back().step = 1;
  packet.blocks[0].block.header = 77;
  packet.blocks[0].threw = true;
  Entry& query = unit.append();
  query.call.index = 42;
  query.call.parent = 41;
  query.call.parentStep = 1;
  query.call.kind = CallKind::kHandleEvent;
  query.call.type = 3;
  query.call.outputGiven = true;
  query.call.returned = 1;
  query.call.output.assign(52, 9);
  query.call.durationNs = 500;
  session::TruthRow& row = unit.truth.emplace_back();
  row.frame = 5;
  row.call = 41;
  row.timeNs = 55;
  row.object = 1;
  row.marker = 2;
  row.position[0] = 1.5;
  row.position[2] = -3;
  row.inRight = true;
  return unit;
}

Bytes bytesOf(const Unit& unit) {
  Bytes bytes;
  session::appendBytes(unit, bytes);
  return bytes;
}

std::string problemOf(const Bytes& bytes) {
  Unit unit;
  try {
    return std::to_string(session::readBytes(bytes.data(), bytes.size(), unit));
  } catch (const ByteFormError& error) {
    return error.what();
  }
}

TEST(ByteFormTest, GivesBackWhatItWasGiven) {
  const Unit unit = fullUnit();
  const Bytes bytes = bytesOf(unit);
  Unit read = fullUnit();  // what is in it must not stay
  ASSERT_EQ(session::readBytes(bytes.data(), bytes.size(), read), bytes.size());
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(bytesOf(read), bytes);

  for (std::size_t i = 0; i < 2; ++i) {
    const session::Call &a = unit[i].call, &b = read[i].call;
    EXPECT_EQ(session::differenceInArguments(a, b, "given", "read"), std::nullopt);
    EXPECT_EQ(session::differenceInOutcome(unit[i], read[i], "given", "read"), std::nullopt);
    EXPECT_EQ(a.index, b.index);
    EXPECT_EQ(a.parent, b.parent);
    EXPECT_EQ(a.parentStep, b.parentStep);
    EXPECT_EQ(a.offset, b.offset);
    EXPECT_EQ(a.startNs, b.startNs);
    EXPECT_EQ(a.durationNs, b.durationNs);
  }
  EXPECT_TRUE(read[0].logs[0].threw);
  EXPECT_TRUE(read[0].blocks[0].threw);
  const session::TruthRow& row = read.truth.at(0);
  EXPECT_EQ(row.frame, 5);
  EXPECT_EQ(row.call, 41);
  EXPECT_EQ(row.position[2], -3);
  EXPECT_FALSE(row.inLeft);
  EXPECT_TRUE(row.inRight);
}

// By hand, with the offsets of docs/session-bytes.md.
TEST(ByteFormTest, HasEachFieldWhereThePageSaysIt) {
  const Bytes bytes = bytesOf(fullUnit());
  const auto number = [&](std::size_t at) {
    std::uint32_t value;
    std::memcpy(&value, &bytes.at(at), sizeof value);
    return value;
  };
  EXPECT_EQ(number(0), bytes.size() - 4);
  EXPECT_EQ(number(4), 2u);    // entries
  EXPECT_EQ(number(8), 1u);    // rows of truth
  EXPECT_EQ(number(12), 41u);  // index
  EXPECT_EQ(number(20), ~0u);  // parent: none
  EXPECT_EQ(number(28), 0u);   // parent step
  EXPECT_EQ(number(32), 1u);   // kind: InputStream
  EXPECT_EQ(number(36), 1u);   // flags: pointer given
  EXPECT_EQ(number(40), 2u);   // type
  EXPECT_EQ(number(48), 3u);   // offset
  EXPECT_EQ(number(52), 6u);   // length
  EXPECT_EQ(number(76), 6u);   // payload's size
  EXPECT_EQ(bytes[80], 1);     // payload
  EXPECT_EQ(number(86), 0u);   // output's size
  EXPECT_EQ(number(90), 1u);   // messages
  EXPECT_EQ(number(106), 9u);  // its text's size
  EXPECT_EQ(bytes[110], 'a');
  EXPECT_EQ(number(119), 1u);                      // blocks
  EXPECT_EQ(number(131), 77u);                     // its header
  EXPECT_EQ(bytes.size(), 659u + (80 + 52) + 60);  // block; query and answer; truth
}

TEST(ByteFormTest, AsksForMoreBytesWhereTheUnitIsCut) {
  const Bytes bytes = bytesOf(fullUnit());
  Unit unit;
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    const Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(session::readBytes(part.data(), part.size(), unit), 0u) << size;
  }
}

TEST(ByteFormTest, ReadsTheFirstOfSeveralUnits) {
  Bytes bytes = bytesOf(fullUnit());
  const std::size_t first = bytes.size();
  session::appendBytes(Unit(), bytes);
  Unit unit;
  EXPECT_EQ(session::readBytes(bytes.data(), bytes.size(), unit), first);
  EXPECT_EQ(session::readBytes(bytes.data() + first, bytes.size() - first, unit), 12u);
  EXPECT_TRUE(unit.empty());
}

// A byte changed anywhere gives another unit or one line of error, and never a read beyond the end.
TEST(ByteFormTest, SurvivesEveryChangedByte) {
  const Bytes bytes = bytesOf(fullUnit());
  for (std::size_t i = 0; i < bytes.size(); ++i)
    for (const std::uint8_t change : {0x01, 0x80, 0xFF}) {
      Bytes changed = bytes;
      changed[i] = static_cast<std::uint8_t>(changed[i] ^ change);
      const std::string problem = problemOf(changed);
      EXPECT_EQ(problem.find('\n'), std::string::npos);
    }
}

TEST(ByteFormTest, SaysWhatIsWrongAndWhere) {
  const Bytes good = bytesOf(fullUnit());
  const auto with = [&](std::size_t at, std::uint8_t value) {
    Bytes bytes = good;
    bytes[at] = value;
    return problemOf(bytes);
  };
  EXPECT_EQ(with(3, 0xFF), "byte 0: expected a unit of at most 67108864 bytes, found " +
                               std::to_string(0xFF000000u + good.size() - 4));
  EXPECT_EQ(with(32, 7), "byte 36: expected a kind of call below 7, found 7");
  EXPECT_EQ(with(36, 16), "byte 40: expected known flags, found 16");
  EXPECT_EQ(with(52, 7), "byte 90: expected a payload of 7 bytes, found 6");
  EXPECT_THAT(with(91, 1), HasSubstr("byte 94: expected at most"));
  EXPECT_THAT(with(8, 0), HasSubstr("expected the end of the unit, found more bytes"));
  EXPECT_THAT(with(8, 2), HasSubstr("expected 8 more bytes in the unit, found 0"));
}

TEST(ByteFormTest, RefusesToWriteWhatNobodyWouldRead) {
  Unit unit;
  unit.append().call.payload.resize(session::kMaxUnitBytes);
  Bytes bytes = {1, 2};
  EXPECT_THROW(session::appendBytes(unit, bytes), ByteFormError);
  EXPECT_EQ(bytes, (Bytes{1, 2}));
}

}  // namespace
