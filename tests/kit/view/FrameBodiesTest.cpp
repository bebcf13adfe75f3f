#include <alg_kit/view/FrameMaker.h>

#include <tests/kit/bodies/BodyPackets.h>

#include <gtest/gtest.h>
#include <tests/support/StreamedUnits.h>

namespace view {
namespace {

using testing_support::leaning;
using testing_support::packetOf;
using testing_support::seen;
using testing_support::sixMarkers;

class FrameBodiesTest : public testing::Test {
 protected:
  void take(const session::Unit& unit) {
    maker_.add(unit, [](std::int64_t, double) { return std::nullopt; });
  }
  session::Unit packet() {
    return units_.block({}, packetOf(seen(sixMarkers(), leaning(), 0, random_)));
  }
  void follow(int packets) {
    take(units_.init(2, rig::builtInRig().calibration));
    for (int i = 0; i < packets; ++i) take(packet());
  }
  FrameBody latest() {
    maker_.publish();
    return log_.frame(log_.size() - 1).bodies.at(0);
  }

  FrameLog log_;
  FrameMaker maker_{log_, {sixMarkers()}, 100};
  testing_support::UnitMaker units_;
  sim::Random random_{3};
};

TEST_F(FrameBodiesTest, EveryFrameHasThePoseInDeliveredAxesAndWhatBecameOfTheMarkers) {
  follow(60);
  const FrameBody body = latest();
  ASSERT_TRUE(body.known);
  EXPECT_TRUE(body.seen);
  EXPECT_NEAR(body.origin.x, 100, 0.05);
  EXPECT_NEAR(body.origin.y, 50, 0.05);
  EXPECT_NEAR(body.origin.z, -1500, 0.1);
  // Half a turn about x before the body's own turn.
  const Eigen::Quaterniond expected = Eigen::Quaterniond(0, 1, 0, 0) * leaning().orientation;
  const Eigen::Quaterniond found(body.orientation[3], body.orientation[0], body.orientation[1],
                                 body.orientation[2]);
  EXPECT_LT(found.angularDistance(expected), 0.001);
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(body.ends[static_cast<std::size_t>(i)], bodies::MarkerEnd::kUsed) << i;
  EXPECT_GT(body.deviation[2], body.deviation[0]) << "depth is known least";
}

TEST_F(FrameBodiesTest, FramesThatWereWrittenAwayKeepIt) {
  follow(60);
  const FrameBody earlier = log_.frame(40).bodies.at(0);
  EXPECT_TRUE(earlier.known);
  EXPECT_NEAR(earlier.origin.z, -1500, 0.5);
}

TEST_F(FrameBodiesTest, OutOfSightItIsMovedOnAndACorruptPacketSaysNothing) {
  follow(20);
  for (int i = 0; i < 10; ++i) take(units_.block({}, sim::devicePacket({})));
  EXPECT_TRUE(latest().known);
  EXPECT_FALSE(latest().seen);
  EXPECT_NEAR(latest().age, 0.1, 1e-6);
  session::Unit bad = packet();
  bad[0].call.payload.back() ^= 1;
  take(bad);
  EXPECT_FALSE(latest().known);
}

TEST_F(FrameBodiesTest, TheTwoPointObjectIsWhereItsMarkersAreWithTheDeviationOfItsLine) {
  const bodies::Body pair = testing_support::pairOfMarkers();
  FrameLog log;
  FrameMaker maker(log, {pair}, 100);
  const auto add = [&maker](const session::Unit& unit) {
    maker.add(unit, [](std::int64_t, double) { return std::nullopt; });
  };
  add(units_.init(1, rig::builtInRig().calibration));
  for (int i = 0; i < 60; ++i) add(units_.block({}, packetOf(seen(pair, leaning(), 0, random_))));
  maker.publish();
  const FrameBody body = log.frame(log.size() - 1).bodies.at(0);
  ASSERT_TRUE(body.known);
  EXPECT_NEAR(body.origin.x, 100, 0.2);
  EXPECT_NEAR(body.origin.z, -1500, 1);
  EXPECT_GT(body.directionDeviation, 0);
  EXPECT_LT(body.directionDeviation, 5);
  EXPECT_EQ(body.ends[0], bodies::MarkerEnd::kUsed);
  EXPECT_EQ(body.ends[1], bodies::MarkerEnd::kUsed);
}

TEST_F(FrameBodiesTest, EveryObjectHasTheEstimatorsPlaceWithItsUncertaintyAndSpeed) {
  follow(60);
  maker_.publish();
  const Frame frame = log_.frame(log_.size() - 1);
  const FrameLog::Series series = log_.series(0, log_.size() - 1, 1000);
  const Summary& last = series.columns.back();
  for (std::size_t id = 0; id < 6; ++id) {
    // Mirrored, as delivered.
    const Eigen::Vector3d truth = leaning() * sixMarkers().markers[id].position;
    const FrameObject& object = frame.objects[id];
    EXPECT_NEAR(object.estimated.x, truth.x(), 0.5) << id;
    EXPECT_NEAR(object.estimated.y, -truth.y(), 0.5) << id;
    EXPECT_NEAR(object.estimated.z, -truth.z(), 2) << id;
    EXPECT_GT(object.estimatedDeviation, 0) << id;
    EXPECT_LT(object.estimatedDeviation, 10) << id;
    EXPECT_LT(analysis::distance(object.velocity, {}), 30) << id << ", at rest, mm/s";
    EXPECT_EQ(last.low[rowOf(id, ObjectRow::kEstimatedZ)], object.estimated.z) << id;
    EXPECT_EQ(last.high[rowOf(id, ObjectRow::kEstimatedDeviation)], object.estimatedDeviation);
    EXPECT_FLOAT_EQ(last.low[rowOf(id, ObjectRow::kSpeed)],
                    static_cast<float>(analysis::distance(object.velocity, {})));
  }
}

TEST_F(FrameBodiesTest, WithoutBodiesFramesHaveNone) {
  FrameLog log;
  FrameMaker maker(log, {}, 100);
  maker.add(units_.init(2, rig::builtInRig().calibration),
            [](std::int64_t, double) { return std::nullopt; });
  maker.add(packet(), [](std::int64_t, double) { return std::nullopt; });
  EXPECT_TRUE(log.frame(0).bodies.empty());
}

}  // namespace
}  // namespace view
