#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "../support/FixedStream.h"

namespace {

using testing_support::Outcome;

std::string streamPath() {
  const char* fromEnvironment = std::getenv("ALG_FIXED_STREAM");
  return fromEnvironment != nullptr ? fromEnvironment : ALG_FIXED_STREAM;
}

bool sameBytes(const algorithm::ResultBlock& a, const algorithm::ResultBlock& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(FixedStream, GivesTheSameBytesAsWhenItWasRecorded) {
  const testing_support::FixedStream stream = testing_support::readFixedStream(streamPath());
  ASSERT_GT(stream.calls.size(), 500u);

  const std::vector<Outcome> outcomes = testing_support::run(stream.calls);

  std::size_t blocks = 0;
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    const Outcome& expected = stream.outcomes[i];
    const Outcome& found = outcomes[i];
    ASSERT_EQ(found.result, expected.result) << "call " << i;
    ASSERT_EQ(found.answer, expected.answer) << "call " << i;
    ASSERT_TRUE(found.logLines == expected.logLines) << "call " << i;
    ASSERT_EQ(found.blocks.size(), expected.blocks.size()) << "call " << i;
    for (std::size_t b = 0; b < found.blocks.size(); ++b, ++blocks) {
      ASSERT_TRUE(sameBytes(found.blocks[b], expected.blocks[b])) << "call " << i;
    }
  }
  EXPECT_GT(blocks, 300u);
}

}  // namespace
