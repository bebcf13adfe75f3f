// Replays the fixed stream with one and the same tan, atan2 and so on in place of the C library's:
// what is left must give the same bytes on every processor, with every compiler.
#include <gtest/gtest.h>

#include <alg_factory/api/AlgFactory.h>
#include <tests/support/FixedStream.h>
#include <tests/support/OutcomeDifference.h>

#include <iostream>

namespace {

using session::Unit;

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
  const std::vector<Unit> recorded = testing_support::readUnits(ALG_FIXED_STREAM);
  Checksum checksum;
  std::size_t blocks = 0;
  const std::vector<Unit> played =
      testing_support::played(*algorithm::AlgFactory::CreateALG(0), recorded);
  for (const Unit& unit : played) {
    const session::Entry& entry = unit[0];
    const bool result = entry.call.returned == 1;
    checksum.add(&result, sizeof result);
    checksum.add(entry.call.output.data(), entry.call.output.size());
    for (const auto& line : entry.logs) checksum.add(line.text.data(), line.text.size());
    for (const auto& delivered : entry.blocks)
      checksum.add(&delivered.block, sizeof delivered.block);
    blocks += entry.blocks.size();
  }
  EXPECT_GT(blocks, 300u);
  EXPECT_EQ(checksum.value(), kChecksum);

  // These functions are less exact than any C library's: how far that carries.
  const auto difference = testing_support::compare(recorded, played);
  std::cout << difference;
  EXPECT_TRUE(difference.mismatches.empty());
}

}  // namespace
