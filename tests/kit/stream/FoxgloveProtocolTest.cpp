#include <alg_kit/stream/FoxgloveProtocol.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace {

using stream::Channel;
using stream::FoxgloveProtocol;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(FoxgloveProtocol, ChoosesASubProtocolOfThoseThatAreOffered) {
  EXPECT_EQ(FoxgloveProtocol::chooseSubProtocol("foxglove.websocket.v1"), "foxglove.websocket.v1");
  EXPECT_EQ(FoxgloveProtocol::chooseSubProtocol("other,\t foxglove.sdk.v1 "), "foxglove.sdk.v1");
  EXPECT_EQ(FoxgloveProtocol::chooseSubProtocol("foxglove.sdk.v2, ,"), "");
  EXPECT_EQ(FoxgloveProtocol::chooseSubProtocol(""), "");
}

TEST(FoxgloveProtocol, GreetsWithItsNameThenItsChannels) {
  const auto greeting = FoxgloveProtocol::greeting();
  ASSERT_EQ(greeting.size(), 2u);
  EXPECT_EQ(nlohmann::json::parse(greeting[0]).at("op"), "serverInfo");
  const auto advertise = nlohmann::json::parse(greeting[1]);
  EXPECT_EQ(advertise.at("op"), "advertise");
  EXPECT_EQ(advertise.at("channels").size(), std::size_t{stream::kChannels});
  EXPECT_EQ(advertise.at("channels")[0].at("id"), 1);
  EXPECT_EQ(advertise.at("channels")[0].at("schemaName"), "foxglove.SceneUpdate");
}

TEST(FoxgloveProtocol, AMessageBeginsWithOneThenSubscriptionAndTimeLittleEndian) {
  const auto head = FoxgloveProtocol::headOf(0x01020304, 0x1112131415161718);
  EXPECT_THAT(head, ElementsAre(1, 4, 3, 2, 1, 0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11));
}

TEST(FoxgloveProtocol, RemembersSubscriptionsUntilTheyAreTakenBack) {
  FoxgloveProtocol client;
  EXPECT_EQ(client.onText(R"({"op":"subscribe","subscriptions":[{"id":0,"channelId":1},
                                {"id":7,"channelId":4},{"id":9,"channelId":4}]})"),
            "");
  EXPECT_THAT(client.subscriptions(Channel::kScene), ElementsAre(0));
  EXPECT_THAT(client.subscriptions(Channel::kBlock), ElementsAre(7, 9));
  EXPECT_EQ(client.onText(R"({"op":"unsubscribe","subscriptionIds":[7]})"), "");
  EXPECT_THAT(client.subscriptions(Channel::kBlock), ElementsAre(9));
}

TEST(FoxgloveProtocol, AnswersWhatItDoesNotKnowWithAStatus) {
  for (const char* const text :
       {"", "{", "[]", "7", "\xff", R"({"op":7})", R"({"op":"subscribe"})",
        R"({"op":"subscribe","subscriptions":[{"id":0,"channelId":0}]})",
        R"({"op":"subscribe","subscriptions":[{"id":0,"channelId":8}]})",
        R"({"op":"subscribe","subscriptions":[{"id":-1,"channelId":1}]})",
        R"({"op":"subscribe","subscriptions":[{"id":4294967296,"channelId":1}]})",
        R"({"op":"subscribe","subscriptions":[{"id":1.5,"channelId":1}]})",
        R"({"op":"subscribe","subscriptions":[3]})", R"({"op":"subscribe","subscriptions":{}})",
        R"({"op":"unsubscribe","subscriptionIds":[3]})", R"({"op":"fetchAsset"})",
        "[[[[[[[[[[[[[[[[[[[["}) {
    FoxgloveProtocol client;
    EXPECT_THAT(client.onText(text), HasSubstr("\"status\"")) << text;
    EXPECT_THAT(client.subscriptions(Channel::kScene), IsEmpty()) << text;
  }
}

TEST(FoxgloveProtocol, AnIdIsForOneSubscriptionAndThereIsALimit) {
  FoxgloveProtocol client;
  const std::string one = R"({"op":"subscribe","subscriptions":[{"id":5,"channelId":1}]})";
  EXPECT_EQ(client.onText(one), "");
  EXPECT_THAT(client.onText(one), HasSubstr("again"));
  for (int i = 100; i < 300; ++i)
    client.onText(R"({"op":"subscribe","subscriptions":[{"id":)" + std::to_string(i) +
                  R"(,"channelId":2}]})");
  EXPECT_EQ(client.subscriptions(Channel::kTransforms).size(),
            FoxgloveProtocol::kMostSubscriptions - 1);
}

}  // namespace
