#include <alg_kit/bodies/LiveBodies.h>

#include <tests/kit/bodies/BodyPackets.h>

#include <gtest/gtest.h>
#include <tests/support/StreamedUnits.h>

#include <cmath>
#include <limits>

namespace {

using bodies::LiveBodies;
using bodies::RigidMotion;
using bodies::TrackedPose;
using estimate::Source;
using testing_support::leaning;
using testing_support::packetOf;
using testing_support::seen;
using testing_support::sixMarkers;

class LiveBodiesTest : public testing::Test {
 protected:
  bool take(const session::Unit& unit) { return live_.take(unit[0].call); }
  session::Unit init() { return units_.init(2, rig::builtInRig().calibration); }
  session::Unit packet(double noise = 0.05) {
    return units_.block({}, packetOf(seen(body_, leaning(), noise, random_)));
  }
  void follow(int packets, double noise = 0.05) {
    for (int i = 0; i < packets; ++i) ASSERT_TRUE(take(packet(noise)));
  }

  sim::Random random_{7};
  const bodies::Body body_ = sixMarkers();
  LiveBodies live_{{body_}, 100};
  testing_support::UnitMaker units_;
};

TEST_F(LiveBodiesTest, AnswersInTheAxesThatTheLibraryDelivers) {
  take(init());
  follow(100);
  const TrackedPose pose = live_.at(0);
  EXPECT_EQ(pose.source, Source::kMeasured);
  const Eigen::Vector3d truth(100, 50, -1500);
  EXPECT_LT((pose.pose.motion.position - truth).norm(), 0.5);
  // Half a turn about x, then the body's own turn.
  const Eigen::Quaterniond expected = Eigen::Quaterniond(0, 1, 0, 0) * leaning().orientation;
  EXPECT_LT(pose.pose.motion.orientation.angularDistance(expected), 0.005);
}

TEST_F(LiveBodiesTest, LearnsFromTheLightHowWellItKnowsThePose) {
  take(init());
  follow(300, 0.02);
  const double fine = live_.at(0).pose.covariance(2, 2);
  LiveBodies rough({body_}, 100);
  rough.take(init()[0].call);
  for (int i = 0; i < 300; ++i) rough.take(packet(0.2)[0].call);
  EXPECT_GT(rough.at(0).pose.covariance(2, 2), 4 * fine);
}

TEST_F(LiveBodiesTest, KnowsNothingBeforeTheCamerasAndTakesThemFromWhoHeardOfThem) {
  EXPECT_FALSE(take(packet()));
  EXPECT_EQ(live_.at(0).source, Source::kNone);
  live_.begin(2, rig::builtInRig().calibration);
  follow(3);
  EXPECT_EQ(live_.at(0).source, Source::kMeasured);
}

TEST_F(LiveBodiesTest, ACorruptPacketIsNotTaken) {
  take(init());
  follow(10);
  session::Unit bad = packet();
  bad[0].call.payload.back() ^= 1;
  EXPECT_FALSE(take(bad));
  EXPECT_FALSE(live_.take(init()[0].call)) << "no packet at all";
}

TEST_F(LiveBodiesTest, ABodyOutOfSightIsMovedOnAndThenGivenUp) {
  take(init());
  follow(10);
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(take(units_.block({}, sim::devicePacket({}))));
  EXPECT_EQ(live_.at(0).source, Source::kBridged);
  EXPECT_NEAR(live_.at(0).age, 0.2, 1e-9);
  for (int i = 0; i < 100; ++i) take(units_.block({}, sim::devicePacket({})));
  EXPECT_EQ(live_.at(0).source, Source::kNone);
}

TEST_F(LiveBodiesTest, OfTwoMarkersTheMiddleAndTheDirectionAreKnown) {
  const bodies::Body pair = testing_support::pairOfMarkers();
  LiveBodies live({pair}, 100);
  live.take(units_.init(1, rig::builtInRig().calibration)[0].call);
  for (int i = 0; i < 300; ++i)
    live.take(units_.block({}, packetOf(seen(pair, leaning(), 0.02, random_)))[0].call);
  const TrackedPose pose = live.at(0);
  ASSERT_EQ(pose.source, Source::kMeasured);
  EXPECT_LT((pose.pose.motion.position - Eigen::Vector3d(100, 50, -1500)).norm(), 1);
  const Eigen::Vector3d line = leaning().orientation * Eigen::Vector3d::UnitX();
  const Eigen::Vector3d delivered(line.x(), -line.y(), -line.z());
  const double cosine = delivered.dot(pose.pose.motion.orientation * Eigen::Vector3d::UnitX());
  EXPECT_GT(std::abs(cosine), std::cos(0.01));
  EXPECT_GT(pose.pose.directionDeviation, 0);
  EXPECT_TRUE(std::isinf(pose.pose.covariance(3, 3)));
  // The noise comes from the light of two blobs of one id too: at 0.1 px it would be far more.
  EXPECT_LT(std::sqrt(pose.pose.covariance(2, 2)), 1);
}

TEST_F(LiveBodiesTest, ACalibrationOfNoNumbersGivesNoPose) {
  algorithm::StereoCalibration calibration = rig::builtInRig().calibration;
  calibration.rightIntrinsics[0] = std::numeric_limits<double>::quiet_NaN();
  take(units_.init(2, calibration));
  follow(5);
  EXPECT_EQ(live_.at(0).source, Source::kNone);
}

}  // namespace
