#include <alg_kit/stream/JsonMessages.h>
#include <tests/support/StreamedUnits.h>

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using stream::Channel;

class Written final : public stream::JsonMessages {
 public:
  using JsonMessages::JsonMessages;
  std::map<Channel, std::vector<json>> messages;
  std::set<Channel> unwanted;
  std::uint64_t latest = 0;

 private:
  bool wants(Channel channel) override { return unwanted.count(channel) == 0; }
  void write(Channel channel, std::uint64_t hostNs, std::string text) override {
    messages[channel].push_back(json::parse(text));
    latest = hostNs;
  }
};

class JsonMessagesTest : public testing::Test {
 protected:
  void take(const session::Unit& unit) {
    scene_.take(unit, context_);
    context_.follow(unit);
  }
  const json& first(Channel channel) { return written_.messages.at(channel).at(0); }

  Written written_;
  stream::Scene scene_{written_};
  stream::Context context_;
  testing_support::UnitMaker units_;
};

TEST_F(JsonMessagesTest, EveryMessageSaysWhenWhereAndInWhichUnit) {
  take(units_.init(0));
  for (int n = 0; n < 101; ++n) take(units_.block({0}));
  take(units_.message("text\n"));
  for (int i = 0; i < stream::kChannels; ++i) {
    if (stream::channelAt(i) == Channel::kBodies) continue;  // there are none
    const json message = first(stream::channelAt(i));
    EXPECT_EQ(message.at("version"), 1) << i;
    EXPECT_TRUE(message.at("frame_number").is_number_unsigned()) << i;
    EXPECT_TRUE(message.at("call").is_number_unsigned()) << i;
    EXPECT_TRUE(message.at("unit").is_string()) << i;
    EXPECT_TRUE(message.at("frame_id").is_string()) << i;
  }
  EXPECT_EQ(written_.latest, 1020000000u);
  EXPECT_EQ(first(Channel::kLog).at("timestamp"), json({{"sec", 1}, {"nsec", 20000000}}));
  EXPECT_EQ(first(Channel::kLog).at("message"), "text");
}

TEST_F(JsonMessagesTest, TheBlockIsInTheUnitOfTheCalibrationAndTheSceneInMetres) {
  take(units_.init(0));
  take(units_.block({2}));
  const json& block = first(Channel::kBlock);
  EXPECT_EQ(block.at("unit"), "mm");
  EXPECT_EQ(block.at("frame_id"), "delivered");
  EXPECT_EQ(block.at("objects").at(2).at("position"), json({{"x", 20}, {"y", 40}, {"z", -1002}}));
  EXPECT_EQ(block.at("objects").at(0).at("position"), nullptr);

  const json& scene = first(Channel::kScene);
  EXPECT_EQ(scene.at("unit"), "m");
  ASSERT_EQ(scene.at("entities").size(), 1u);
  EXPECT_EQ(scene.at("entities")[0].at("id"), "object_2");
  const json& position = scene.at("entities")[0].at("spheres")[0].at("pose").at("position");
  EXPECT_DOUBLE_EQ(position.at("x"), 0.02);
  EXPECT_DOUBLE_EQ(position.at("y"), 0.04);
  EXPECT_DOUBLE_EQ(position.at("z"), -1.002);
  EXPECT_EQ(scene.at("deletions").size(), 2u) << "the other two are not shown any more";
}

TEST_F(JsonMessagesTest, TransformsLeadFromTheDeliveredFrameToBothCameras) {
  // The left camera is turned by 90 degrees about z in the right camera's frame.
  algorithm::StereoCalibration calibration;
  const double rotation[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  std::copy(std::begin(rotation), std::end(rotation), calibration.rotation);
  calibration.translation[0] = -100;
  take(units_.init(0, calibration));
  take(units_.block({1}));
  const json& transforms = first(Channel::kTransforms).at("transforms");
  ASSERT_EQ(transforms.size(), 3u);
  EXPECT_EQ(transforms[0].at("parent_frame_id"), "delivered");
  EXPECT_EQ(transforms[0].at("child_frame_id"), "right_camera");
  EXPECT_EQ(transforms[0].at("rotation"), json({{"x", 1}, {"y", 0}, {"z", 0}, {"w", 0}}));
  EXPECT_EQ(transforms[1].at("parent_frame_id"), "right_camera");
  EXPECT_EQ(transforms[1].at("child_frame_id"), "left_camera");
  EXPECT_DOUBLE_EQ(transforms[1].at("translation").at("x"), -0.1);
  EXPECT_NEAR(transforms[1].at("rotation").at("z"), std::sqrt(0.5), 1e-15);
  EXPECT_NEAR(transforms[1].at("rotation").at("w"), std::sqrt(0.5), 1e-15);
  EXPECT_EQ(transforms[2].at("child_frame_id"), "object_1");
}

TEST_F(JsonMessagesTest, AHalfTurnHasAQuaternionToo) {
  algorithm::StereoCalibration calibration;
  calibration.rotation[0] = -1;
  calibration.rotation[4] = 1;
  calibration.rotation[8] = -1;
  take(units_.init(0, calibration));
  take(units_.block({}));
  const json& rotation = first(Channel::kTransforms).at("transforms")[1].at("rotation");
  EXPECT_DOUBLE_EQ(rotation.at("y"), 1);
  EXPECT_DOUBLE_EQ(rotation.at("w"), 0);
}

TEST_F(JsonMessagesTest, TextsThatAreNoUtf8StillMakeJson) {
  take(units_.message("a\xff\x01z"));
  EXPECT_EQ(first(Channel::kLog).at("message"), "a\xef\xbf\xbd\x01z");
}

TEST_F(JsonMessagesTest, WhatIsNotWantedIsNotMade) {
  written_.unwanted = {Channel::kScene, Channel::kBlobs};
  take(units_.block({1}));
  EXPECT_EQ(written_.messages.count(Channel::kScene), 0u);
  EXPECT_EQ(written_.messages.count(Channel::kBlobs), 0u);
  EXPECT_EQ(written_.messages.count(Channel::kBlock), 1u);
}

TEST(ChannelFacts, EverySchemaIsJsonWithItsName) {
  for (int i = 0; i < stream::kChannels; ++i) {
    const stream::ChannelFacts& facts = stream::factsOf(stream::channelAt(i));
    EXPECT_EQ(json::parse(facts.schema).at("title"), facts.schemaName);
  }
}

}  // namespace
