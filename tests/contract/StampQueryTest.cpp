// Event 2 of product types 0 and 1: the third head's pose at a moment of the host's choosing.
#include <gtest/gtest.h>

#include <cstring>

#include <tests/support/Host.h>

namespace {

using algorithm::PoseAnswer;
using testing_support::Host;
using testing_support::unfiltered;

constexpr std::uint32_t kFrame = 5000000;  // microseconds
constexpr std::uint64_t kStateAsItIs = 1234;

/// A host whose third head has moved long enough for its filter to know a rate.
struct MovingHead : Host {
  explicit MovingHead(int productType = 0, int mode = 1, std::uint32_t lastStamp = kFrame)
      : Host(productType) {
    alg->SetFilterMode(0, mode, nullptr);
    for (int n = 0; n < 50; ++n) seeAt(n == 49 ? lastStamp : 1, {{2, 8.0 * n - 200, 0, 1000}});
  }
};

void expectExtrapolated(const PoseAnswer& answer, const PoseAnswer& state, double seconds) {
  for (int i = 0; i < 3; ++i) {
    const double expected = static_cast<double>(state.filtered[i]) + state.rate[i] * seconds;
    EXPECT_NEAR(answer.filtered[i], expected, 2e-4) << "axis " << i;
    EXPECT_EQ(answer.rate[i], state.rate[i]) << "axis " << i;
    EXPECT_EQ(answer.rateCopy[i], state.rate[i]) << "axis " << i;
    EXPECT_EQ(answer.raw[i], state.raw[i]) << "axis " << i;
  }
}

// A head at 1000 mm in mode 0 is near: events 0 and 1 would answer unfiltered, event 2 does not.
TEST(StampQuery, ExtrapolatesInsideATenthOfASecond) {
  for (const int productType : {0, 1}) {
    for (const int mode : {0, 1}) {
      const MovingHead host(productType, mode);
      const PoseAnswer state = host.pose(2, kStateAsItIs);
      ASSERT_EQ(state.id, 2);
      ASSERT_FALSE(unfiltered(state));
      ASSERT_GT(state.rate[0], 10) << "mm/s: 0.1 s of it shows";
      expectExtrapolated(host.pose(2, kFrame + 1), state, 1e-6);
      expectExtrapolated(host.pose(2, kFrame + 50000), state, 0.05);
      expectExtrapolated(host.pose(2, kFrame + 99999), state, 0.099999);
    }
  }
}

TEST(StampQuery, AnswersUnfilteredOutsideTheOpenInterval) {
  const MovingHead host;
  EXPECT_TRUE(unfiltered(host.pose(2, kFrame))) << "no time has passed";
  EXPECT_TRUE(unfiltered(host.pose(2, kFrame + 100000))) << "0.1 s exactly";
  EXPECT_TRUE(unfiltered(host.pose(2, kFrame + 200000)));
  EXPECT_EQ(host.pose(2, kFrame + 200000).id, 2);
}

// An earlier stamp wraps to a time far ahead.
TEST(StampQuery, AnswersAnEarlierStampUnfiltered) {
  const MovingHead host;
  EXPECT_TRUE(unfiltered(host.pose(2, kFrame - 1)));
  EXPECT_TRUE(unfiltered(host.pose(2, 0)));
}

// All 64 bits count, though a frame's stamp has 32.
TEST(StampQuery, ReadsAllSixtyFourBits) {
  const MovingHead host;
  EXPECT_FALSE(unfiltered(host.pose(2, kFrame + 50000)));
  EXPECT_TRUE(unfiltered(host.pose(2, (std::uint64_t{1} << 32) + kFrame + 50000)));
  EXPECT_TRUE(unfiltered(host.pose(2, (std::uint64_t{1} << 63) + kFrame + 50000)));
}

// The frame's stamp has wrapped at 32 bits, the host's has not: the time since the frame is
// computed without a sign, on 64 bits.
TEST(StampQuery, FrameStampIsWidenedWithZeros) {
  const MovingHead host(0, 1, 0xFFFFFFF0u);
  EXPECT_FALSE(unfiltered(host.pose(2, std::uint64_t{0xFFFFFFF0u} + 1000)));
  EXPECT_TRUE(unfiltered(host.pose(2, 500)));
}

// Stamp 1234 asks for the state, even where it would be 34 microseconds after the frame.
TEST(StampQuery, ReservedStampIsNotExtrapolated) {
  const MovingHead host(0, 1, 1200);
  const PoseAnswer state = host.pose(2, kStateAsItIs);
  EXPECT_FALSE(unfiltered(state));
  // 1 us and 99,000 us later than the frame; the state lies at 0 us on the same line.
  const PoseAnswer soon = host.pose(2, 1200 + 1000), late = host.pose(2, 1200 + 99000);
  const double perMicrosecond = (late.filtered[0] - soon.filtered[0]) / 98000.0;
  EXPECT_NEAR(state.filtered[0], soon.filtered[0] - 1000 * perMicrosecond, 1e-3);
  EXPECT_EQ(state.rate[0], soon.rate[0]);
}

TEST(StampQuery, AnswersUnfilteredWhileFilteringIsOff) {
  const MovingHead host;
  host.alg->SetFilterMode(0, -1, nullptr);
  for (const std::uint64_t stamp : {kStateAsItIs, std::uint64_t{kFrame} + 50000}) {
    const PoseAnswer answer = host.pose(2, stamp);
    EXPECT_EQ(answer.id, 2);
    EXPECT_TRUE(unfiltered(answer));
  }
}

// The latest stamp is one for the library: each stamped packet moves it, with or without its
// object, an unstamped one does not.
TEST(StampQuery, CountsFromTheLatestStampedPacket) {
  const MovingHead host;
  host.see({{2, 200, 0, 1000}});
  EXPECT_FALSE(unfiltered(host.pose(2, kFrame + 50000)));
  host.seeAt(kFrame + 60000, {{2, 208, 0, 1000}});
  EXPECT_TRUE(unfiltered(host.pose(2, kFrame + 50000))) << "before the latest frame now";
  EXPECT_FALSE(unfiltered(host.pose(2, kFrame + 110000)));
}

// A packet of which nothing remains but its stamp still moves the stamp.
TEST(StampQuery, HeadWithoutSightingHasNoId) {
  const MovingHead host;
  host.seeAt(kFrame + 1, {{0, 0, 0, 1000}});
  EXPECT_EQ(host.pose(2, kStateAsItIs).id, -1);
  EXPECT_EQ(host.pose(2, kFrame + 50000).id, -1);
}

// A product type that is none has no head and no marker behind events 0 to 2: the answer before is
// answered again.
TEST(StampQuery, UnknownProductTypeAnswersTheAnswerBefore) {
  const MovingHead host;
  const PoseAnswer before = host.pose(2, kStateAsItIs);
  for (const int productType : {3, -1}) {
    host.init(productType);
    for (const int event : {0, 1, 2}) {
      PoseAnswer answer;
      EXPECT_TRUE(host.alg->HandleEvent(event, nullptr, &answer));
      EXPECT_EQ(std::memcmp(&answer, &before, sizeof answer), 0) << event;
    }
  }
  EXPECT_EQ(host.pose(5).id, 5) << "events 3 to 5 read markers on every product type";
}

}  // namespace
