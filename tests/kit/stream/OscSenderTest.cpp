#include <alg_kit/stream/OscSender.h>
#include <tests/kit/stream/StreamedBody.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lo/lo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

/// liblo aligns values to 4 bytes only.
template <typename T>
T at(const void* place) {
  T value;
  std::memcpy(&value, place, sizeof value);
  return value;
}

/// liblo's own server: notes each message as its path, types and values.
class Receiver {
 public:
  Receiver() : server_(lo_server_new_with_proto(nullptr, LO_UDP, nullptr)) {
    lo_server_add_method(
        server_, nullptr, nullptr,
        [](const char* path, const char* types, lo_arg** values, int count, lo_message,
           void* user) {
          std::string text = std::string(path) + " " + types;
          for (int i = 0; i < count; ++i)
            text += " " + (types[i] == 's'   ? std::string(reinterpret_cast<char*>(values[i]))
                           : types[i] == 'i' ? std::to_string(at<std::int32_t>(values[i]))
                           : types[i] == 'h' ? std::to_string(at<std::int64_t>(values[i]))
                           : types[i] == 'f' ? std::to_string(at<float>(values[i]))
                                             : std::to_string(at<double>(values[i])));
          static_cast<Receiver*>(user)->messages.push_back(text);
          return 0;
        },
        this);
  }
  ~Receiver() { lo_server_free(server_); }

  int port() const { return lo_server_get_port(server_); }
  void wait(std::size_t count) {
    while (messages.size() < count && lo_server_recv_noblock(server_, 5000) > 0) {
    }
  }

  std::vector<std::string> messages;

 private:
  lo_server server_;
};

TEST(OscSender, SendsEveryObjectOfABlockSeenOrNot) {
  Receiver receiver;
  stream::OscOptions options;
  options.port = receiver.port();
  stream::OscSender sender(options);
  testing_support::UnitMaker units;
  sender.take(units.init(0));
  sender.take(units.block({0, 2}));
  sender.take(units.message("alg: \x01!\n"));
  receiver.wait(4);
  EXPECT_THAT(
      receiver.messages,
      ElementsAre(
          "/alg/object ihdssifff 1 0 0.010000 mm delivered 0 0.000000 0.000000 -1000.000000",
          "/alg/missing ihdssi 1 0 0.010000 mm delivered 1",
          "/alg/object ihdssifff 1 0 0.010000 mm delivered 2 20.000000 40.000000 "
          "-1002.000000",
          "/alg/log ihdssis 1 0 0.020000 mm delivered 3 alg: ?!"));
}

TEST(OscSender, SendsABodysPlaceAndQuaternionAndSaysWhenThereIsNone) {
  Receiver receiver;
  testing_support::StreamedBody tool;
  stream::OscOptions options;
  options.port = receiver.port();
  options.bodies = {tool.file()};
  stream::OscSender sender(options);
  sender.take(tool.init());
  sender.take(tool.darkPacket());
  sender.take(tool.packet());
  receiver.wait(6 + 6 + 1 + 12 + 1);  // objects that are missing, the body, blobs
  std::string missing, there;
  for (const std::string& message : receiver.messages) {
    if (message.rfind("/alg/missing_body ", 0) == 0) missing = message;
    if (message.rfind("/alg/body ", 0) == 0) there = message;
  }
  EXPECT_EQ(missing, "/alg/missing_body ihdsss 1 0 0.010000 mm delivered tool");
  std::istringstream words(there);
  std::string path, types, skipped, name;
  words >> path >> types >> skipped >> skipped >> skipped >> skipped >> skipped >> name;
  EXPECT_EQ(types, "ihdsssfffffffif");
  EXPECT_EQ(name, "tool");
  double value[9];
  for (double& v : value) words >> v;
  EXPECT_NEAR(value[0], 100, 0.05);
  EXPECT_NEAR(value[1], 50, 0.05);
  EXPECT_NEAR(value[2], -1500, 0.1);
  EXPECT_NEAR(std::abs(value[4]), 0.7, 0.001) << "qy";
  EXPECT_EQ(value[7], 6) << "markers";
  EXPECT_EQ(value[8], 0) << "seconds since it was seen";
}

TEST(OscSender, SendsTheMiddleOfTheTwoPointObject) {
  Receiver receiver;
  testing_support::StreamedBody stick;
  stream::OscOptions options;
  options.port = receiver.port();
  options.bodies = {stick.pair()};
  stream::OscSender sender(options);
  sender.take(stick.units.init(1, rig::builtInRig().calibration));
  sender.take(stick.pairPacket());
  receiver.wait(3 + 1 + 4);  // objects, the body, blobs
  const auto there =
      std::find_if(receiver.messages.begin(), receiver.messages.end(),
                   [](const auto& message) { return message.rfind("/alg/body ", 0) == 0; });
  ASSERT_NE(there, receiver.messages.end());
  const std::size_t name = there->find(" stick ");
  ASSERT_NE(name, std::string::npos) << *there;
  std::istringstream words(there->substr(name + 7));
  double value[9];
  for (double& v : value) words >> v;
  EXPECT_NEAR(value[0], 100, 0.05);
  EXPECT_NEAR(value[1], 50, 0.05);
  EXPECT_NEAR(value[2], -1500, 0.5);
  EXPECT_EQ(value[7], 2) << "markers";
}

TEST(OscSender, NobodyNeedsToListen) {
  stream::OscOptions options;
  {
    Receiver gone;
    options.port = gone.port();
  }
  stream::OscSender sender(options);
  testing_support::UnitMaker units;
  for (int i = 0; i < 100; ++i) sender.take(units.block({0}));
  sender.end();
  EXPECT_EQ(sender.status().droppedCalls, 0);
}

TEST(OscSender, SaysWhereItCannotSendTo) {
  stream::OscOptions options;
  options.port = 0;
  EXPECT_THROW(stream::OscSender{options}, stream::StreamError);
  options.port = 9;
  options.host = "..";
  EXPECT_THROW(stream::OscSender{options}, stream::StreamError);
}

}  // namespace
