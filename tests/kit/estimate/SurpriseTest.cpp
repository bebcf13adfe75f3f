#include <alg_kit/estimate/Surprise.h>
#include <gtest/gtest.h>

namespace estimate {
namespace {

TEST(Surprise, IsTheMeanOfThePairsDistancesWithoutTheirNoise) {
  Surprise surprise;
  for (int i = 0; i < 5000; ++i) surprise.add(i % 2 == 0 ? 4 : 9, 4);
  EXPECT_NEAR(surprise.factor(), (6.5 - 1) / 3, 0.02);
  for (int i = 0; i < 5000; ++i) surprise.add(3, 2);  // one camera says nothing of its noise
  EXPECT_NEAR(surprise.factor(), 1.5, 0.01);
}

TEST(Surprise, NeverMakesVariancesSmaller) {
  Surprise surprise;
  EXPECT_EQ(surprise.factor(), 1);
  for (int i = 0; i < 5000; ++i) surprise.add(2, 4);
  EXPECT_EQ(surprise.factor(), 1);
}

TEST(Surprise, DoesNotBelieveOneSighting) {
  Surprise surprise;
  surprise.add(1e9, 4);
  EXPECT_LT(surprise.factor(), 1.3);
  surprise.add(0, 0);  // no sighting
  EXPECT_LT(surprise.factor(), 1.3);
}

}  // namespace
}  // namespace estimate
