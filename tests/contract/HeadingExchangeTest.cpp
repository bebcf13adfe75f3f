// Event 16: the optical heading of the two-point object against an orientation from the host.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include <tests/support/Host.h>

namespace {

using algorithm::HeadingAnswer;
using algorithm::OrientationSample;
using testing_support::Host;
using testing_support::kSmall;

// The library's arctangent is a polynomial, good to some 0.005 degrees.
constexpr double kAngle = 0.02;
constexpr double kDegree = 0.017453292519943295;

HeadingAnswer exchange(const Host& host, float x, float y, float z, float w,
                       std::uint64_t value = 0) {
  const OrientationSample sample{{x, y, z, w}, value};
  HeadingAnswer answer;
  EXPECT_TRUE(host.alg->HandleEvent(16, &sample, &answer));
  return answer;
}

/// Turned by `degrees` about z. The answer's yaw is minus that.
HeadingAnswer exchangeYaw(const Host& host, double degrees) {
  const double half = degrees / 2 * kDegree;
  return exchange(host, 0, 0, static_cast<float>(std::sin(half)),
                  static_cast<float>(std::cos(half)));
}

/// Both markers of the two-point object, 68 mm apart, their line turned about the vertical so that
/// the optical heading is `heading` degrees: the marker with the larger x is the nearer one.
void seePair(const Host& host, double heading, double spacing = 68) {
  const double dx = spacing / 2 * std::cos(heading * kDegree);
  const double dz = -spacing / 2 * std::sin(heading * kDegree);
  host.see({{2, -dx, 10, 800 - dz, kSmall}, {2, dx, 10, 800 + dz, kSmall}});
  ASSERT_EQ(host.data.last().records[2].id, 2);
}

TEST(HeadingExchange, ReturnsTheInputAsItCame) {
  const Host host(0);
  const HeadingAnswer answer = exchange(host, 0.1f, -0.2f, 0.3f, -0.4f, 0xFEDCBA9876543210u);
  EXPECT_EQ(answer.orientation[0], 0.1f);
  EXPECT_EQ(answer.orientation[1], -0.2f);
  EXPECT_EQ(answer.orientation[2], 0.3f);
  EXPECT_EQ(answer.orientation[3], -0.4f);
  EXPECT_EQ(answer.value, 0xFEDCBA9876543210u);
}

TEST(HeadingExchange, IsTheSameForAllProductTypes) {
  for (const int productType : {0, 1, 2, 3}) {
    const Host host(productType);
    EXPECT_NEAR(exchangeYaw(host, 40).yaw, -40, kAngle);
  }
}

// The fourth value is the quaternion's real part. (0, 0, s, c) turns about z, which is yaw; were
// the first value the real part, the same bytes would turn by 180 degrees more.
TEST(HeadingExchange, TakesTheFourthValueForTheRealPart) {
  const Host host(0);
  EXPECT_NEAR(exchange(host, 0, 0, 0, 1).yaw, 0, kAngle);
  for (const double degrees : {-170.0, -90.0, -45.0, 10.0, 45.0, 90.0, 135.0, 179.0}) {
    EXPECT_NEAR(exchangeYaw(host, degrees).yaw, -degrees, kAngle);
  }
  // Turns about the other two axes leave the yaw at zero.
  EXPECT_NEAR(exchange(host, 0.5f, 0, 0, std::sqrt(0.75f)).yaw, 0, kAngle);
  EXPECT_NEAR(exchange(host, 0, 0.5f, 0, std::sqrt(0.75f)).yaw, 0, kAngle);
}

// Without a pair there is no offset: the corrected yaw is the yaw, and the answer has minus that.
TEST(HeadingExchange, WithoutAPairHasNoResult) {
  const Host host(1);
  const HeadingAnswer answer = exchangeYaw(host, 30);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.score, 0.0f);
  EXPECT_NEAR(answer.negatedCorrectedYaw, 30, kAngle);
  EXPECT_EQ(answer.negatedCorrectedYaw, -answer.yaw);
}

// Yaw -30 when the pair is seen at heading 0: the offset is -30. Later yaws are corrected by it:
// for a turn of 50, minus (-50 + 30) = 20.
TEST(HeadingExchange, PairGivesAnOffsetThatIsReportedOnce) {
  const Host host(1);
  exchangeYaw(host, 30);
  seePair(host, 0);
  const HeadingAnswer first = exchangeYaw(host, 50);
  EXPECT_EQ(first.status, 1);
  EXPECT_NEAR(first.yaw, -50, kAngle);
  EXPECT_NEAR(first.negatedCorrectedYaw, 20, 2 * kAngle);
  EXPECT_NEAR(first.score, 1, 2e-3);

  const HeadingAnswer second = exchangeYaw(host, 60);
  EXPECT_EQ(second.status, 0) << "no new pair since";
  EXPECT_NEAR(second.negatedCorrectedYaw, 30, 2 * kAngle) << "the offset stays";
  EXPECT_NEAR(second.score, 1, 2e-3);
}

// One heading of 3 degrees has a mean of 3 / 30 = 0.1 and a spread of 2.9, so the scores are
// 100 - 0.1 = 99.9 and 95 - 1.78 * 0.9 = 93.398; 70 mm are 2 too many, 95 points. Together
// 99.9 * 93.398 * 95 / 1e6 = 0.88638. The offset is 0 - 0.1.
TEST(HeadingExchange, ScoreAndOffsetFollowTheOpticalHeading) {
  const Host host(1);
  exchange(host, 0, 0, 0, 1);
  seePair(host, 3, 70);
  const HeadingAnswer answer = exchange(host, 0, 0, 0, 1);
  EXPECT_EQ(answer.status, 1);
  EXPECT_NEAR(answer.score, 0.88638, 4e-3);
  EXPECT_NEAR(answer.negatedCorrectedYaw, -0.1, kAngle);
}

// Rolled by 10 degrees and more the host's orientation is no reference.
TEST(HeadingExchange, PairCountsOnlyWhileTheRollIsSmall) {
  const Host host(1);
  const auto exchangeRoll = [&](double degrees) {
    const double half = degrees / 2 * kDegree;
    return exchange(host, static_cast<float>(std::sin(half)), 0, 0,
                    static_cast<float>(std::cos(half)));
  };
  exchangeRoll(10.5);
  seePair(host, 0);
  EXPECT_EQ(exchangeRoll(9.5).status, 0);
  seePair(host, 0);
  EXPECT_EQ(exchangeRoll(9.5).status, 1);
}

TEST(HeadingExchange, OnlyTheTwoPointObjectOfProductTypeOneFeedsIt) {
  for (const int productType : {0, 2}) {
    const Host host(productType);
    exchange(host, 0, 0, 0, 1);
    host.see({{0, 0, 0, 1000}, {1, 50, 0, 1000}, {2, -34, 10, 800, kSmall}});
    EXPECT_EQ(exchange(host, 0, 0, 0, 1).status, 0);
  }
  const Host host(1);
  host.see({{2, -34, 10, 800, kSmall}});
  EXPECT_EQ(exchange(host, 0, 0, 0, 1).status, 0) << "one of its points is no pair";
}

// Bytes 28 to 31 and 44 to 47 are nobody's: they come from the library's working area as the answer
// before left them, not from the host's buffer, and pose answers do not pass through there.
TEST(HeadingExchange, UnwrittenBytesKeepWhatTheAnswerBeforeLeft) {
  const Host host(1);
  const OrientationSample sample{{0, 0, 0, 1}, ~std::uint64_t{0}};
  unsigned char first[48], second[48];
  std::memset(first, 0x11, sizeof first);
  std::memset(second, 0xEE, sizeof second);
  ASSERT_TRUE(host.alg->HandleEvent(16, &sample, first));
  seePair(host, 3);
  host.pose(3);
  ASSERT_TRUE(host.alg->HandleEvent(16, &sample, second));
  EXPECT_EQ(std::memcmp(first + 28, second + 28, 4), 0);
  EXPECT_EQ(std::memcmp(first + 44, second + 44, 4), 0);
}

// The exchange and the pose queries have working areas of their own.
TEST(HeadingExchange, LeavesPoseAnswersAlone) {
  const Host host(0);
  host.alg->SetFilterMode(0, 0, nullptr);
  host.seeAt(1, {{0, 10, 20, 1000}});
  algorithm::PoseAnswer zero = host.pose(0);
  zero.id = -1;
  exchange(host, 0.5f, 0.5f, 0.5f, 0.5f, ~std::uint64_t{0});
  const algorithm::PoseAnswer absent = host.pose(1);
  EXPECT_EQ(std::memcmp(&absent, &zero, sizeof zero), 0);
}

}  // namespace
