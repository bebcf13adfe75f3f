#include <alg_factory/steady3d/PointF.h>

#include <gtest/gtest.h>

namespace algorithm {
namespace {

TEST(PointF, TakesTheNearestSinglePrecisionPosition) {
  StereoPoint p;
  p.x = 16777217.0;  // 2^24 + 1 lies between two floats; the even one is 2^24
  p.y = -0.1;
  p.z = 1500.25;
  const PointF single = toSingle(p);
  EXPECT_EQ(single.x, 16777216.0f);
  EXPECT_EQ(single.y, -0.1f);
  EXPECT_EQ(single.z, 1500.25f);
}

TEST(PointF, DistanceUsesAllThreeAxes) {
  EXPECT_EQ(distance({1, 2, 3}, {3, 5, 9}), 7.0f);  // sqrt(4 + 9 + 36)
  EXPECT_EQ(distance({-1, -2, -3}, {-1, -2, -3}), 0.0f);
}

TEST(PointF, AddsSubtractsAndScalesPerAxis) {
  const PointF r = 0.5f * (PointF{1, 2, 3} + PointF{7, 12, 23} - PointF{2, 4, 6});
  EXPECT_EQ(r.x, 3.0f);   // (1 + 7 - 2) / 2
  EXPECT_EQ(r.y, 5.0f);   // (2 + 12 - 4) / 2
  EXPECT_EQ(r.z, 10.0f);  // (3 + 23 - 6) / 2
}

}  // namespace
}  // namespace algorithm
