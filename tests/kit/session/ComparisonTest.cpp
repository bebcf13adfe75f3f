#include <alg_kit/session/Comparison.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

namespace {

using session::Entry;

Entry sample() {
  Entry entry;
  entry.call.index = 12;
  entry.call.kind = session::CallKind::kInputStream;
  entry.call.returned = 1;
  entry.logs.push_back({0, 3, "alg: one\n", false});
  entry.blocks.emplace_back().step = 1;
  return entry;
}

std::string difference(const Entry& a, const Entry& b) {
  return session::differenceInOutcome(a, b, "recorded", "replayed").value_or("none");
}

TEST(ComparisonTest, FindsNothingInEqualOutcomes) {
  EXPECT_EQ(difference(sample(), sample()), "none");
}

TEST(ComparisonTest, IgnoresTimes) {
  Entry other = sample();
  other.call.startNs = 5;
  other.call.durationNs = 7;
  EXPECT_EQ(difference(sample(), other), "none");
}

TEST(ComparisonTest, NamesTheReturnedValue) {
  Entry other = sample();
  other.call.returned = 0;
  EXPECT_EQ(difference(sample(), other), "returned value: recorded 1, replayed 0");
  other.call.returned = std::nullopt;
  EXPECT_EQ(difference(sample(), other), "returned value: recorded 1, replayed an exception");
}

TEST(ComparisonTest, NamesTheMessage) {
  Entry other = sample();
  other.logs[0].text = "alg: two\n";
  EXPECT_EQ(difference(sample(), other),
            "message 0, text: recorded \"alg: one\", replayed \"alg: two\"");
  other = sample();
  other.logs[0].level = 4;
  EXPECT_EQ(difference(sample(), other), "message 0, level: recorded 3, replayed 4");
  other = sample();
  other.logs.push_back({1, 3, "alg: more\n", false});
  EXPECT_EQ(difference(sample(), other),
            "messages: recorded 1, replayed 2; the first that only one has: \"alg: more\"");
}

TEST(ComparisonTest, NamesTheBlocksRecordAndFieldWithBothValues) {
  Entry other = sample();
  other.blocks[0].block.records[7].y = 1.5f;
  EXPECT_EQ(difference(sample(), other), "block 0, record 7, y: recorded 0, replayed 1.5");
  other = sample();
  other.blocks[0].block.records[1].hostOrientation[3] = -2;
  EXPECT_EQ(difference(sample(), other),
            "block 0, record 1, host orientation 3: recorded 0, replayed -2");
  other = sample();
  other.blocks[0].block.header = 1u << 20;
  EXPECT_EQ(difference(sample(), other), "block 0, header: recorded 0, replayed 1048576");
  other = sample();
  other.blocks.clear();
  EXPECT_EQ(difference(sample(), other), "blocks: recorded 1, replayed 0");
}

// Every single byte of a block counts, so the named fields leave no hole.
TEST(ComparisonTest, SeesEveryByteOfABlock) {
  for (std::size_t i = 0; i < sizeof(algorithm::ResultBlock); ++i) {
    Entry other = sample();
    reinterpret_cast<unsigned char*>(&other.blocks[0].block)[i] ^= 1;
    EXPECT_NE(difference(sample(), other), "none") << "byte " << i;
  }
}

TEST(ComparisonTest, SeesEveryByteOfBothKindsOfAnswer) {
  for (const std::size_t size : {52u, 48u}) {
    Entry answered = sample();
    answered.call.output.assign(size, 0x11);
    for (std::size_t i = 0; i < size; ++i) {
      Entry other = answered;
      other.call.output[i] ^= 1;
      EXPECT_NE(difference(answered, other), "none") << "byte " << i << " of " << size;
    }
  }
}

TEST(ComparisonTest, TellsValuesApartThatPrintAlike) {
  Entry a = sample(), b = sample();
  const std::uint32_t bits = 0x7FC00001;
  a.blocks[0].block.records[0].x = std::numeric_limits<float>::quiet_NaN();
  std::memcpy(&b.blocks[0].block.records[0].x, &bits, sizeof bits);
  EXPECT_EQ(difference(a, b),
            "block 0, record 0, x: recorded nan (00 00 C0 7F), replayed nan (01 00 C0 7F)");
}

TEST(ComparisonTest, NamesTheArgumentAndThePayloadsByte) {
  session::Call a = sample().call, b = a;
  const auto arguments = [&] {
    return session::differenceInArguments(a, b, "there", "here").value_or("none");
  };
  EXPECT_EQ(arguments(), "none");
  a.payload = {1, 2, 3};
  b.payload = {1, 2, 4};
  EXPECT_EQ(arguments(), "payload, byte 2: there 03, here 04");
  b.type = 2;
  EXPECT_EQ(arguments(), "type: there 0, here 2");
  b.kind = session::CallKind::kHandleEvent;
  EXPECT_EQ(arguments(), "operation: there \"InputStream\", here \"HandleEvent\"");
}

}  // namespace
