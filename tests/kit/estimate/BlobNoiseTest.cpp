#include <alg_kit/estimate/BlobNoise.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

namespace estimate {
namespace {

TEST(BlobNoise, IsFoundFromAnyBeginning) {
  for (const double truth : {0.02, 0.5}) {
    BlobNoise noise(0.1);
    sim::Random random(10);
    double sum = 0;
    for (int i = 0; i < 6000; ++i) {
      const double miss = truth * random.normal();
      noise.add(miss * miss);
      if (i >= 2000) sum += noise.value();
    }
    EXPECT_NEAR(sum / 4000, truth, 0.04 * truth);
  }
}

TEST(BlobNoise, OutliersMoveItLittle) {
  BlobNoise noise(0.1);
  sim::Random random(11);
  for (int i = 0; i < 5000; ++i) {
    const double miss = (random.chance(0.02) ? 100 : 0.05) * random.normal();
    noise.add(miss * miss);
  }
  EXPECT_NEAR(noise.value(), 0.05, 0.01);
}

TEST(BlobNoise, WhatIsNoPairDoesNotCount) {
  BlobNoise noise(0.1);
  noise.add(-1);
  EXPECT_EQ(noise.value(), 0.1);
}

}  // namespace
}  // namespace estimate
