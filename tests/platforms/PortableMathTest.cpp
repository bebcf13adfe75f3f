// Replays the fixed stream with one and the same tan, atan2 and so on in place of the C library's:
// what is left must give the same bytes on every processor, with every compiler.
#include <gtest/gtest.h>

#include <tests/support/FixedStream.h>
#include <tests/support/OutcomeDifference.h>

#include <iostream>

namespace {

using testing_support::Outcome;

class Checksum {
 public:
  void add(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) hash_ = (hash_ ^ bytes[i]) * 0x100000001b3u;
  }
  std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 0xcbf29ce484222325u;
};

// Of all that came back. Changes with the recording; it is the same on all platforms.
constexpr std::uint64_t kChecksum = 2047286356390529079u;

TEST(FixedStreamWithPortableMath, GivesTheSameBytesOnEveryPlatform) {
  const testing_support::FixedStream stream = testing_support::readFixedStream(ALG_FIXED_STREAM);
  Checksum checksum;
  std::size_t blocks = 0;
  const std::vector<Outcome> outcomes = testing_support::run(stream.calls);
  for (const Outcome& outcome : outcomes) {
    checksum.add(&outcome.result, sizeof outcome.result);
    checksum.add(outcome.answer.data(), outcome.answer.size());
    for (const auto& line : outcome.logLines) checksum.add(line.text.data(), line.text.size());
    for (const auto& block : outcome.blocks) checksum.add(&block, sizeof block);
    blocks += outcome.blocks.size();
  }
  EXPECT_GT(blocks, 300u);
  EXPECT_EQ(checksum.value(), kChecksum);

  // These functions are less exact than any C library's: how far that carries.
  const auto difference = testing_support::compare(stream.calls, stream.outcomes, outcomes);
  std::cout << difference;
  EXPECT_TRUE(difference.mismatches.empty());
}

}  // namespace
