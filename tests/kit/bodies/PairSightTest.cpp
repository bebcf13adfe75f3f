#include <alg_kit/bodies/PairSight.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Eigen::Vector3d;

bodies::Body pairAlongX(double distance) {
  bodies::Body pair;
  pair.markers.resize(2);
  pair.markers[0].id = bodies::kPairId;
  pair.markers[1].id = bodies::kSecondOfPair;
  pair.markers[1].position = Vector3d(distance, 0, 0);
  return pair;
}

TEST(PairSight, LaysThePairOverTwoPlacesWhateverItsDirection) {
  const bodies::Body pair = pairAlongX(5);
  const Vector3d first(10, 20, 1000);
  const Vector3d offsets[] = {{5, 0, 0},  {0, 5, 0},  {0, 0, -5},   {-3, 4, 0},
                              {0, -3, 4}, {-5, 0, 0}, {-5, 1e-9, 0}};
  for (const Vector3d& offset : offsets) {
    const bodies::RigidMotion motion = bodies::pairMotion(pair, first, first + offset);
    EXPECT_NEAR(motion.orientation.norm(), 1, 1e-9) << offset.transpose();
    EXPECT_NEAR((motion * pair.markers[0].position - first).norm(), 0, 1e-5) << offset.transpose();
    EXPECT_NEAR((motion * pair.markers[1].position - first - offset).norm(), 0, 1e-5)
        << offset.transpose();
  }
}

TEST(PairSight, TurnsThePairTheShortestWay) {
  // From x to y: a quarter turn about z, and nothing about the pair's own axis.
  const bodies::RigidMotion motion =
      bodies::pairMotion(pairAlongX(2), Vector3d(0, 0, 0), Vector3d(0, 2, 0));
  EXPECT_NEAR(motion.orientation.w(), std::sqrt(0.5), 1e-12);
  EXPECT_NEAR(motion.orientation.z(), std::sqrt(0.5), 1e-12);
  EXPECT_NEAR((motion.orientation * Vector3d::UnitZ() - Vector3d::UnitZ()).norm(), 0, 1e-12);
}

}  // namespace
