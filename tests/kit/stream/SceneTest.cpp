#include <alg_kit/stream/Scene.h>
#include <tests/support/StreamedUnits.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

struct Heard : stream::Listener {
  std::vector<stream::Frame> frames;
  std::vector<stream::Blobs> blobs;
  std::vector<stream::Message> messages;
  std::vector<stream::Statistics> statistics;
  void onFrame(const stream::Frame& frame) override { frames.push_back(frame); }
  void onBlobs(const stream::Blobs& some) override { blobs.push_back(some); }
  void onMessage(const stream::Message& message) override { messages.push_back(message); }
  void onStatistics(const stream::Statistics& some) override { statistics.push_back(some); }
};

class SceneTest : public testing::Test {
 protected:
  void take(const session::Unit& unit) {
    scene_.take(unit, context_);
    context_.follow(unit);
  }

  Heard heard_;
  stream::Scene scene_{heard_};
  stream::Context context_;
  testing_support::UnitMaker units_;
};

TEST_F(SceneTest, NamesEveryObjectOfTheProductTypeAndSaysWhichWereSeen) {
  take(units_.init(2));
  take(units_.block({1, 4}));
  ASSERT_EQ(heard_.frames.size(), 1u);
  const stream::Frame& frame = heard_.frames[0];
  ASSERT_EQ(frame.objects.size(), 6u);
  for (const stream::Object& object : frame.objects)
    EXPECT_EQ(object.seen, object.id == 1 || object.id == 4) << object.id;
  EXPECT_EQ(frame.objects[4].position[0], 40);
  EXPECT_EQ(frame.objects[4].position[1], 80);
  EXPECT_EQ(frame.objects[4].position[2], -1004);
  EXPECT_EQ(frame.place.frame, 0);
  EXPECT_EQ(frame.place.call, 1);
  EXPECT_EQ(frame.place.hostNs, 10000000);
}

TEST_F(SceneTest, WithoutTheInitThereAreTheObjectsThatWereSeen) {
  take(units_.block({0, 5}));
  ASSERT_EQ(heard_.frames[0].objects.size(), 2u);
  EXPECT_EQ(heard_.frames[0].objects[1].id, 5);
  EXPECT_EQ(heard_.frames[0].context.productType, -1);
}

TEST_F(SceneTest, APositionThatIsNoNumberIsNotSeen) {
  take(units_.init(0));
  session::Unit unit = units_.block({0, 1});
  unit[0].blocks[0].block.records[1].y = std::numeric_limits<float>::quiet_NaN();
  take(unit);
  EXPECT_TRUE(heard_.frames[0].objects[0].seen);
  EXPECT_FALSE(heard_.frames[0].objects[1].seen);
}

TEST_F(SceneTest, TakesTheCamerasFromTheLatestInitUnlessTheyAreNoRotation) {
  algorithm::StereoCalibration calibration;
  calibration.rotation[0] = calibration.rotation[4] = calibration.rotation[8] = 1;
  calibration.translation[0] = -100;
  take(units_.init(0, calibration));
  EXPECT_TRUE(context_.calibrated);
  EXPECT_EQ(context_.calibration.translation[0], -100);
  calibration.rotation[4] = std::numeric_limits<double>::infinity();
  take(units_.init(0, calibration));
  EXPECT_FALSE(context_.calibrated);
}

TEST_F(SceneTest, ReadsTheBlobsOfAPacketAndNoneOfADamagedOne) {
  // Right camera, id 2, weight 220, sums 2200 and 4400: centre (10, 20).
  session::Bytes packet = {0xAA, 0x55, 220, 0, 0, 0x12, 0x98, 8, 0, 0, 0x30, 0x11, 0, 0};
  std::uint8_t sum = 0;
  for (const std::uint8_t byte : packet) sum = static_cast<std::uint8_t>(sum + byte);
  packet.push_back(sum);
  take(units_.init(0));
  take(units_.block({}, packet));
  packet.back() ^= 1;
  take(units_.block({}, packet));

  ASSERT_EQ(heard_.blobs.size(), 2u);
  EXPECT_TRUE(heard_.blobs[0].valid);
  ASSERT_EQ(heard_.blobs[0].blobs.size(), 1u);
  const stream::SentBlob& blob = heard_.blobs[0].blobs[0];
  EXPECT_EQ(blob.camera, 1);
  EXPECT_EQ(blob.id, 2);
  EXPECT_EQ(blob.x, 10);
  EXPECT_EQ(blob.y, 20);
  EXPECT_EQ(blob.weight, 220);
  EXPECT_FALSE(heard_.blobs[1].valid);
  EXPECT_TRUE(heard_.blobs[1].blobs.empty());
  EXPECT_EQ(heard_.blobs[1].place.frame, 1);
}

TEST_F(SceneTest, MessagesLoseTheNewlineAtTheirEnd) {
  take(units_.message("alg: start byte error.\n"));
  ASSERT_EQ(heard_.messages.size(), 1u);
  EXPECT_EQ(heard_.messages[0].text, "alg: start byte error.");
  EXPECT_EQ(heard_.messages[0].place.frame, -1) << "there was no packet yet";
}

TEST_F(SceneTest, CountsOnceASecondWhateverWasMissedInBetween) {
  take(units_.init(0));
  for (int n = 0; n < 150; ++n) {
    const session::Unit unit = units_.block({0});
    if (n < 30 || n >= 60)
      take(unit);
    else
      context_.follow(unit);  // what the ring dropped
  }
  ASSERT_EQ(heard_.statistics.size(), 1u);
  const stream::Statistics& statistics = heard_.statistics[0];
  EXPECT_EQ(statistics.place.call, 100);
  EXPECT_EQ(statistics.counts.packets, 100);
  EXPECT_EQ(statistics.counts.calls, 101);
  EXPECT_DOUBLE_EQ(statistics.packetsPerSecond, 100);
  EXPECT_EQ(statistics.counts.libraryNs, 101000);
}

}  // namespace
