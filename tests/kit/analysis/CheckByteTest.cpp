#include <alg_kit/analysis/CheckByte.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

/// A packet of the bytes AA 55 and their sum, in `stamp` bytes behind the payload's first.
session::Call callWith(std::uint8_t check, bool stamped) {
  session::Call call;
  if (stamped) call.payload = {1, 2, 3, 4};
  for (const std::uint8_t byte : {std::uint8_t{0xAA}, std::uint8_t{0x55}, check})
    call.payload.push_back(byte);
  return call;
}

trace::PacketTrace traceOf(const session::Call& call, int streamType) {
  trace::PacketTrace packet;
  packet.streamType = streamType;
  std::copy(call.payload.begin() + (streamType == 2 ? 4 : 0), call.payload.end(),
            packet.frame.begin());
  return packet;
}

TEST(CheckByteTest, TheDevicesOwnStandsAtTheEndOfThePacket) {
  for (const int streamType : {0, 2}) {
    const auto right = callWith(0xFF, streamType == 2);  // AA + 55
    const auto wrong = callWith(0xFE, streamType == 2);
    EXPECT_EQ(analysis::deviceCheckByteRight(right, traceOf(right, streamType)), true);
    EXPECT_EQ(analysis::deviceCheckByteRight(wrong, traceOf(wrong, streamType)), false);
  }
}

TEST(CheckByteTest, WhereNoneWasSentThereIsNoVerdict) {
  session::Call call;
  call.payload = {1, 2, 3, 4};
  EXPECT_EQ(analysis::deviceCheckByteRight(call, traceOf(call, 2)), std::nullopt);
}

}  // namespace
