#include <gtest/gtest.h>
#include <sim/Random.h>

#include <cmath>

namespace sim {
namespace {

TEST(Random, EngineIsTheOneThatTheStandardFixes) {
  Random random(5489);
  std::uint64_t value = 0;
  for (int i = 0; i < 10000; ++i) value = random.bits();
  EXPECT_EQ(value, 9981545732273789042u);  // given in the C++ standard, [rand.predef]
}

TEST(Random, SameSeedAndIndexGiveTheSameDraws) {
  Random a(7, 3);
  Random b(7, 3);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(a.normal(), b.normal());
}

TEST(Random, NeighbouringSeedsAndIndicesDiffer) {
  const auto first = [](std::uint64_t seed, std::uint64_t index) {
    return Random(seed, index).bits();
  };
  EXPECT_NE(first(1, 0), first(1, 1));
  EXPECT_NE(first(1, 1), first(2, 0));
  EXPECT_NE(first(1, 0), first(0, 1));
}

TEST(Random, UniformFillsItsHalfOpenRange) {
  Random random(1);
  constexpr int kDraws = 100000;
  double sum = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.uniform(-2, 6);
    ASSERT_GE(value, -2);
    ASSERT_LT(value, 6);
    sum += value;
  }
  EXPECT_NEAR(sum / kDraws, 2, 5 * 8 / std::sqrt(12.0 * kDraws));
}

TEST(Random, NormalHasMeanZeroAndDeviationOne) {
  Random random(2);
  constexpr int kDraws = 100000;
  double sum = 0;
  double squares = 0;
  int beyondTwo = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.normal();
    sum += value;
    squares += value * value;
    if (std::abs(value) > 2) ++beyondTwo;
  }
  EXPECT_NEAR(sum / kDraws, 0, 5 / std::sqrt(1.0 * kDraws));
  EXPECT_NEAR(squares / kDraws, 1, 5 * std::sqrt(2.0 / kDraws));
  EXPECT_NEAR(1.0 * beyondTwo / kDraws, 0.0455, 5 * std::sqrt(0.0455 / kDraws));
}

TEST(Random, ChanceIsNeverAtZeroAndAlwaysAtOne) {
  Random random(3);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_FALSE(random.chance(0));
    EXPECT_TRUE(random.chance(1));
  }
}

TEST(Random, PoissonHasItsMeanAsVariance) {
  Random random(4);
  constexpr int kDraws = 100000;
  constexpr double kMean = 1.5;
  double sum = 0;
  double squares = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.poisson(kMean);
    sum += value;
    squares += (value - kMean) * (value - kMean);
  }
  EXPECT_NEAR(sum / kDraws, kMean, 5 * std::sqrt(kMean / kDraws));
  EXPECT_NEAR(squares / kDraws, kMean, 0.05);
  EXPECT_EQ(random.poisson(0), 0);
}

TEST(Random, IndexCoversAllValuesBelowTheCount) {
  Random random(5);
  int seen[6] = {};
  for (int i = 0; i < 6000; ++i) {
    const int value = random.index(6);
    ASSERT_GE(value, 0);
    ASSERT_LT(value, 6);
    ++seen[value];
  }
  for (const int count : seen) EXPECT_NEAR(count, 1000, 150);
  EXPECT_EQ(random.index(0), 0);
}

}  // namespace
}  // namespace sim
