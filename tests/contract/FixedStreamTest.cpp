#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <alg_factory/api/AlgFactory.h>
#include <tests/support/FixedStream.h>
#include <tests/support/OutcomeDifference.h>

namespace {

using session::Unit;
using testing_support::OutcomeDifference;

std::string streamPath() {
  const char* fromEnvironment = std::getenv("ALG_FIXED_STREAM");
  return fromEnvironment != nullptr ? fromEnvironment : ALG_FIXED_STREAM;
}

class Fingerprint {
 public:
  template <typename T>
  void add(T value) {
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    for (unsigned char byte : bytes) hash_ = (hash_ ^ byte) * 0x100000001b3u;
  }
  std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 0xcbf29ce484222325u;
};

/// Of what the C library's functions return, over arguments that are exact on every platform.
std::uint64_t mathFingerprint() {
  Fingerprint fingerprint;
  for (int k = -20000; k <= 20000; ++k) {
    const double x = k / 16384.0;
    const float xf = static_cast<float>(k) / 20000.0f;
    fingerprint.add(std::tan(x));
    fingerprint.add(std::atan(4 * x));
    fingerprint.add(std::atan2(x, 0.71));
    fingerprint.add(std::atan2(xf, 0.37f));
    fingerprint.add(std::asin(xf));
    fingerprint.add(std::sin(xf));
    fingerprint.add(std::cos(xf));
  }
  return fingerprint.value();
}

// The functions that the stream was recorded with: glibc 2.36, x86-64 with fused multiply-add.
constexpr std::uint64_t kRecordedMath = 0x12577fcddc2e4130u;

// Elsewhere tan, atan2 and the like may differ in their last bit. The tracking carries that on, and
// where it subtracts positions from each other more bits are lost; how far is measured in
// docs/platforms.md. Of the larger of 1 and the value, in the value's own unit.
constexpr double kOtherMathBound = 1e-6;

TEST(FixedStream, GivesTheSameBytesAsWhenItWasRecorded) {
  const std::vector<Unit> recorded = testing_support::readUnits(streamPath());
  ASSERT_GT(recorded.size(), 500u);

  const std::vector<Unit> played =
      testing_support::played(*algorithm::AlgFactory::CreateALG(0), recorded);

  std::size_t blocks = 0;
  for (const Unit& unit : played) blocks += unit[0].blocks.size();
  EXPECT_GT(blocks, 300u);

  const OutcomeDifference difference = testing_support::compare(recorded, played);
  EXPECT_TRUE(difference.mismatches.empty());
  const bool sameMath = mathFingerprint() == kRecordedMath;
  std::cout << (sameMath ? "the recording's" : "other") << " mathematical functions, fingerprint "
            << std::hex << mathFingerprint() << std::dec << '\n'
            << difference;
  if (sameMath) {
    EXPECT_TRUE(difference.none());
  } else {
    EXPECT_LT(difference.relative(), kOtherMathBound);
  }
}

}  // namespace
