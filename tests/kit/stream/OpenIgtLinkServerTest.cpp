#include <alg_kit/stream/OpenIgtLinkServer.h>
#include <tests/kit/stream/StreamedBody.h>
#include <tests/support/WebSocketClient.h>

#include <gtest/gtest.h>
#include <igtlClientSocket.h>
#include <igtlMessageHeader.h>
#include <igtlPositionMessage.h>
#include <igtlStringMessage.h>
#include <igtlTimeStamp.h>
#include <igtlTransformMessage.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace {

using stream::OpenIgtLinkServer;

stream::OpenIgtLinkOptions freePort() {
  stream::OpenIgtLinkOptions options;
  options.port = 0;
  return options;
}

/// OpenIGTLink's own receiver.
class Receiver {
 public:
  explicit Receiver(int port) : socket_(igtl::ClientSocket::New()) {
    connected = socket_->ConnectToServer("127.0.0.1", port) == 0;
    socket_->SetReceiveTimeout(5000);
  }

  /// Receives a header; its body is read by one of the functions below.
  igtl::MessageHeader::Pointer header() {
    auto header = igtl::MessageHeader::New();
    header->InitPack();
    const auto size = header->GetPackSize();
    EXPECT_EQ(socket_->Receive(header->GetPackPointer(), size), size);
    EXPECT_TRUE(header->Unpack(1) & igtl::MessageHeader::UNPACK_HEADER);
    return header;
  }

  template <typename Message>
  typename Message::Pointer body(igtl::MessageHeader::Pointer header) {
    auto message = Message::New();
    igtl::MessageBase::Pointer base = header.GetPointer();
    message->SetMessageHeader(base);
    message->AllocatePack();
    socket_->Receive(message->GetPackBodyPointer(), message->GetPackBodySize());
    EXPECT_TRUE(message->Unpack(1) & igtl::MessageHeader::UNPACK_BODY) << "the checksum fits";
    return message;
  }

  bool connected = false;

 private:
  igtl::ClientSocket::Pointer socket_;
};

void waitForClients(const OpenIgtLinkServer& server, int count) {
  for (int i = 0; i < 10000 && server.status().clients != count; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ASSERT_EQ(server.status().clients, count);
}

TEST(OpenIgtLinkServer, ItsOwnReceiverReadsFrameTransformAndPosition) {
  OpenIgtLinkServer server(freePort());
  Receiver receiver(server.port());
  ASSERT_TRUE(receiver.connected);
  waitForClients(server, 1);
  testing_support::UnitMaker units;
  server.take(units.init(0));
  server.take(units.block({1}));

  auto header = receiver.header();
  EXPECT_STREQ(header->GetDeviceType(), "STRING");
  EXPECT_STREQ(header->GetDeviceName(), "Frame");
  EXPECT_STREQ(receiver.body<igtl::StringMessage>(header)->GetString(),
               "version=1 frame_number=0 call=1 host_ns=10000000 unit=mm frame_id=delivered");

  header = receiver.header();
  EXPECT_STREQ(header->GetDeviceType(), "TRANSFORM");
  EXPECT_STREQ(header->GetDeviceName(), "Object1");
  auto stamp = igtl::TimeStamp::New();
  header->GetTimeStamp(stamp);
  EXPECT_NEAR(stamp->GetTimeStamp(), 0.01, 1e-8) << "the host time of the call";
  igtl::Matrix4x4 matrix;
  receiver.body<igtl::TransformMessage>(header)->GetMatrix(matrix);
  const float expected[3] = {10, 20, -1001};
  for (int row = 0; row < 3; ++row) {
    EXPECT_EQ(matrix[row][3], expected[row]);
    for (int column = 0; column < 3; ++column)
      EXPECT_EQ(matrix[row][column], row == column ? 1 : 0);
  }

  header = receiver.header();
  EXPECT_STREQ(header->GetDeviceType(), "POSITION");
  EXPECT_STREQ(header->GetDeviceName(), "Object1Position");
  float position[3], orientation[4];
  auto message = receiver.body<igtl::PositionMessage>(header);
  message->GetPosition(position);
  message->GetQuaternion(orientation);
  EXPECT_EQ(orientation[3], 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(position[i], expected[i]);
}

TEST(OpenIgtLinkServer, PositionsAreInMillimetresWhateverTheCalibrationsUnit) {
  stream::OpenIgtLinkOptions options = freePort();
  options.unit = {"m", 1};
  OpenIgtLinkServer server(options);
  Receiver receiver(server.port());
  waitForClients(server, 1);
  testing_support::UnitMaker units;
  server.take(units.block({1}));
  receiver.body<igtl::StringMessage>(receiver.header());
  igtl::Matrix4x4 matrix;
  receiver.body<igtl::TransformMessage>(receiver.header())->GetMatrix(matrix);
  EXPECT_EQ(matrix[0][3], 10000);
}

TEST(OpenIgtLinkServer, ABodyIsATransformOfItsName) {
  testing_support::StreamedBody tool;
  stream::OpenIgtLinkOptions options = freePort();
  options.bodies = {tool.file()};
  OpenIgtLinkServer server(options);
  Receiver receiver(server.port());
  waitForClients(server, 1);
  server.take(tool.init());
  server.take(tool.packet());
  receiver.body<igtl::StringMessage>(receiver.header());
  const auto header = receiver.header();
  EXPECT_STREQ(header->GetDeviceType(), "TRANSFORM");
  EXPECT_STREQ(header->GetDeviceName(), "tool");
  igtl::Matrix4x4 matrix;
  receiver.body<igtl::TransformMessage>(header)->GetMatrix(matrix);
  const Eigen::Matrix3d turned =
      (Eigen::Quaterniond(0, 1, 0, 0) * testing_support::leaning().orientation).toRotationMatrix();
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 3; ++column)
      EXPECT_NEAR(matrix[row][column], turned(row, column), 0.002) << row << column;
  EXPECT_NEAR(matrix[0][3], 100, 0.05);
  EXPECT_NEAR(matrix[1][3], 50, 0.05);
  EXPECT_NEAR(matrix[2][3], -1500, 0.1);
}

TEST(OpenIgtLinkServer, TheTwoPointObjectsTransformHasItsLineAsX) {
  testing_support::StreamedBody stick;
  stream::OpenIgtLinkOptions options = freePort();
  options.bodies = {stick.pair()};
  OpenIgtLinkServer server(options);
  Receiver receiver(server.port());
  waitForClients(server, 1);
  server.take(stick.units.init(1, rig::builtInRig().calibration));
  server.take(stick.pairPacket());
  receiver.body<igtl::StringMessage>(receiver.header());
  const auto header = receiver.header();
  EXPECT_STREQ(header->GetDeviceName(), "stick");
  igtl::Matrix4x4 matrix;
  receiver.body<igtl::TransformMessage>(header)->GetMatrix(matrix);
  const Eigen::Vector3d line = Eigen::Quaterniond(0, 1, 0, 0) *
                               (testing_support::leaning().orientation * Eigen::Vector3d::UnitX());
  const Eigen::Vector3d found(matrix[0][0], matrix[1][0], matrix[2][0]);
  EXPECT_GT(std::abs(found.dot(line)), std::cos(0.005)) << "which end is the first nobody can see";
  EXPECT_NEAR(matrix[0][3], 100, 0.05);
  EXPECT_NEAR(matrix[2][3], -1500, 0.5);
}

TEST(OpenIgtLinkServer, MessagesOfTheLibraryAreStrings) {
  OpenIgtLinkServer server(freePort());
  Receiver receiver(server.port());
  waitForClients(server, 1);
  testing_support::UnitMaker units;
  server.take(units.message("alg: check byte\x01 error.\n"));
  auto header = receiver.header();
  EXPECT_STREQ(header->GetDeviceName(), "Log");
  EXPECT_STREQ(receiver.body<igtl::StringMessage>(header)->GetString(),
               "frame_number=-1 alg: check byte\\x01 error.");
}

TEST(OpenIgtLinkServer, WhatAClientSaysIsForgottenUntilItIsTooMuch) {
  OpenIgtLinkServer server(freePort());
  Receiver good(server.port());
  waitForClients(server, 1);
  testing_support::TcpClient chatterer(server.port());
  chatterer.send(std::string(500000, '\xAA'));
  waitForClients(server, 2);
  chatterer.send(std::string(1000000, '\xAA'));
  waitForClients(server, 1);
  EXPECT_EQ(server.status().badMessages, 1);
  testing_support::UnitMaker units;
  server.take(units.block({0}));
  EXPECT_STREQ(good.header()->GetDeviceName(), "Frame");
}

TEST(OpenIgtLinkServer, ClientsMayVanishAHundredTimes) {
  OpenIgtLinkServer server(freePort());
  testing_support::UnitMaker units;
  for (int i = 0; i < 100; ++i) {
    testing_support::TcpClient client(server.port());
    ASSERT_TRUE(client.connected()) << i;
    waitForClients(server, 1);
    server.take(units.block({0}));
    client.vanish();
    waitForClients(server, 0);
  }
}

}  // namespace
