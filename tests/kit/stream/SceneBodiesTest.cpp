#include <alg_kit/stream/JsonMessages.h>
#include <tests/kit/stream/StreamedBody.h>

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace {

using nlohmann::json;
using stream::BodyPlace;
using stream::Channel;

class Heard final : public stream::JsonMessages {
 public:
  std::vector<stream::Frame> frames;
  std::vector<json> poses, transforms;

  void onFrame(const stream::Frame& frame) override {
    frames.push_back(frame);
    JsonMessages::onFrame(frame);
  }

 private:
  bool wants(Channel) override { return true; }
  void write(Channel channel, std::uint64_t, std::string text) override {
    if (channel == Channel::kBodies) poses.push_back(json::parse(text));
    if (channel == Channel::kTransforms) transforms.push_back(json::parse(text));
  }
};

class SceneBodiesTest : public testing::Test {
 protected:
  stream::SceneOptions options() const { return {{}, {tool_.file()}, 100}; }
  void take(const session::Unit& unit) {
    scene_.take(unit, context_);
    context_.follow(unit);
  }
  const BodyPlace& body() const { return heard_.frames.back().bodies.at(0); }

  testing_support::StreamedBody tool_;
  Heard heard_;
  stream::Scene scene_{heard_, options()};
  stream::Context context_;
};

TEST_F(SceneBodiesTest, EveryBlockSaysWhereTheBodyIs) {
  take(tool_.init());
  for (int i = 0; i < 60; ++i) take(tool_.packet());
  ASSERT_TRUE(body().known);
  EXPECT_TRUE(body().seen);
  EXPECT_EQ(body().name, "tool");
  EXPECT_EQ(body().markers, 6);
  EXPECT_NEAR(body().position[0], 100, 0.05);
  EXPECT_NEAR(body().position[1], 50, 0.05);
  EXPECT_NEAR(body().position[2], -1500, 0.1);
  EXPECT_GT(body().positionDeviation[2], body().positionDeviation[0]) << "depth is known least";
  // Half a turn about x times the body's own turn (x, y, z, w) is (w, -z, y, -x).
  const double expected[4] = {0.5, -0.7, -0.1, -0.5};
  const double sign = body().orientation[0] > 0 ? 1 : -1;
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(body().orientation[i] * sign, expected[i], 0.001) << i;
}

TEST_F(SceneBodiesTest, ViewersGetAPoseInMetresAndAFrameOfTheBody) {
  take(tool_.init());
  for (int i = 0; i < 60; ++i) take(tool_.packet());
  const json& message = heard_.poses.back();
  EXPECT_EQ(message.at("version"), 1);
  EXPECT_EQ(message.at("frame_number"), 59);
  EXPECT_EQ(message.at("frame_id"), "delivered");
  ASSERT_EQ(message.at("poses").size(), 1u);
  EXPECT_NEAR(message.at("poses")[0].at("position").at("z"), -1.5, 1e-4);
  EXPECT_EQ(message.at("bodies")[0].at("name"), "tool");
  EXPECT_EQ(message.at("bodies")[0].at("child_frame_id"), "body_tool");
  const json frame = heard_.transforms.back().at("transforms").back();
  EXPECT_EQ(frame.at("parent_frame_id"), "delivered");
  EXPECT_EQ(frame.at("child_frame_id"), "body_tool");
  EXPECT_EQ(frame.at("rotation"), message.at("poses")[0].at("orientation"));
  EXPECT_EQ(frame.at("translation"), message.at("poses")[0].at("position"));
}

TEST_F(SceneBodiesTest, ABodyOutOfSightIsSaidToBeThatAndThenIsNoMore) {
  take(tool_.init());
  for (int i = 0; i < 10; ++i) take(tool_.packet());
  for (int i = 0; i < 5; ++i) take(tool_.darkPacket());
  EXPECT_TRUE(body().known);
  EXPECT_FALSE(body().seen);
  EXPECT_NEAR(body().age, 0.05, 1e-9);
  for (int i = 0; i < 120; ++i) take(tool_.darkPacket());
  EXPECT_FALSE(body().known);
  EXPECT_EQ(heard_.poses.back().at("poses").size(), 0u);
}

TEST_F(SceneBodiesTest, OfTheTwoPointObjectTheDirectionHasADeviationAndNoTurn) {
  stream::Scene scene(heard_, {{}, {tool_.pair()}, 100});
  scene.take(tool_.units.init(1, rig::builtInRig().calibration), context_);
  for (int i = 0; i < 60; ++i) scene.take(tool_.pairPacket(), context_);
  ASSERT_TRUE(body().known);
  EXPECT_EQ(body().markers, 2);
  EXPECT_NEAR(body().position[0], 100, 0.2);
  EXPECT_NEAR(body().position[2], -1500, 1);
  const json& facts = heard_.poses.back().at("bodies")[0];
  EXPECT_EQ(facts.at("name"), "stick");
  EXPECT_EQ(facts.at("direction_sd_rad"), body().directionDeviation);
  EXPECT_GT(body().directionDeviation, 0);
  EXPECT_FALSE(facts.contains("rotation_sd_rad"));
}

TEST_F(SceneBodiesTest, AnInitThatTheStreamMissedIsTakenFromWhatTheHostSaw) {
  context_.follow(tool_.init());
  for (int i = 0; i < 3; ++i) take(tool_.packet());
  EXPECT_TRUE(body().known);
}

TEST_F(SceneBodiesTest, WithoutBodiesThereAreNone) {
  Heard heard;
  stream::Scene scene(heard);
  scene.take(tool_.init(), {});
  scene.take(tool_.packet(), {});
  EXPECT_TRUE(heard.frames[0].bodies.empty());
  EXPECT_TRUE(heard.poses.empty());
}

TEST_F(SceneBodiesTest, BodiesThatCannotBeToldApartOrAreNoneAreRefused) {
  const auto refused = [this](stream::SceneOptions options) {
    EXPECT_THROW(stream::Scene(heard_, options), std::runtime_error);
  };
  refused({{}, {tool_.write("{}")}, 100});
  refused({{}, {tool_.file(), tool_.file()}, 100});
  refused({{}, {tool_.named("twenty letters long a"), tool_.named("twenty letters long b")}, 100});
  refused({{}, {tool_.named("\xC3\xA4")}, 100});
  refused({{"m", 1}, {tool_.file()}, 100});
}

}  // namespace
