#include <alg_kit/session/TapAlg.h>
#include <alg_kit/stream/FoxgloveServer.h>
#include <tests/lifetime/ChildProcess.h>
#include <tests/support/ScriptedAlg.h>
#include <tests/support/StreamedUnits.h>
#include <tests/support/WebSocketClient.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;
using stream::FoxgloveServer;
using testing::HasSubstr;
using testing::StartsWith;
using testing_support::TcpClient;
using testing_support::WebSocketClient;

const std::string kSubscribeToBlocks =
    R"({"op":"subscribe","subscriptions":[{"id":3,"channelId":4}]})";

stream::FoxgloveOptions freePort() {
  stream::FoxgloveOptions options;
  options.port = 0;
  return options;
}

/// Waits until it holds, a minute at the most.
bool eventually(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

class FoxgloveServerTest : public testing::Test {
 protected:
  /// Connects, reads the greeting and subscribes to the blocks. What it subscribed to is known to
  /// the server once it answers the complaint that follows.
  void subscribe(WebSocketClient& client) {
    EXPECT_THAT(client.shakeHands(), StartsWith("HTTP/1.1 101"));
    EXPECT_THAT(client.receive().payload, HasSubstr("serverInfo"));
    EXPECT_THAT(client.receive().payload, HasSubstr("advertise"));
    client.sendText(kSubscribeToBlocks);
    client.sendText("?");
    EXPECT_THAT(client.receive().payload, HasSubstr("status"));
  }

  testing_support::UnitMaker units_;
  FoxgloveServer server_{freePort()};
};

TEST_F(FoxgloveServerTest, SendsABlockToWhoSubscribed) {
  WebSocketClient client(server_.port());
  subscribe(client);
  server_.take(units_.block({0}));
  const auto message = client.receive();
  EXPECT_EQ(message.opcode, 2);
  EXPECT_EQ(message.payload.substr(0, 5), std::string("\1\3\0\0\0", 5));
  EXPECT_THAT(message.payload.substr(13), StartsWith(R"({"version":1,)"));
  EXPECT_EQ(server_.status().clients, 1);
}

TEST_F(FoxgloveServerTest, AnswersWithTheSubProtocolThatItChose) {
  WebSocketClient client(server_.port());
  EXPECT_THAT(client.shakeHands("foxglove.sdk.v1"),
              HasSubstr("Sec-WebSocket-Protocol: foxglove.sdk.v1\r\n"));
}

TEST_F(FoxgloveServerTest, RefusesWhoSpeaksAnotherProtocol) {
  WebSocketClient none(server_.port());
  EXPECT_THAT(none.shakeHands(""), StartsWith("HTTP/1.1 400"));
  TcpClient browser(server_.port());
  browser.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(browser.receive(12), "HTTP/1.1 426");
  EXPECT_TRUE(browser.closedByServer());
  EXPECT_TRUE(eventually([&] { return server_.status().refusedClients == 2; }));
}

TEST(FoxgloveServerOrigins, OnlyPagesOfAllowedOriginsConnect) {
  stream::FoxgloveOptions options = freePort();
  options.origins = {"https://viewer.example"};
  FoxgloveServer server(options);
  const auto answerTo = [&](const std::string& origin) {
    WebSocketClient client(server.port());
    return client.shakeHands("foxglove.websocket.v1", origin).substr(0, 12);
  };
  EXPECT_EQ(answerTo("Origin: https://viewer.example\r\n"), "HTTP/1.1 101");
  EXPECT_EQ(answerTo("Origin: https://other.example\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(answerTo(""), "HTTP/1.1 101") << "no browser";
}

TEST_F(FoxgloveServerTest, GarbageEndsItsOwnConnectionAlone) {
  WebSocketClient good(server_.port());
  subscribe(good);
  const std::string handshake = "GET / HTTP/1.1\r\nHost: h\r\nUpgrade: websocket\r\n";
  for (const std::string& garbage :
       {std::string(100, '\0'), std::string("\x16\x03\x01\x02\x00\x01"), std::string(20000, 'A'),
        handshake + std::string(20000, 'x'),
        std::string("GET / HTTP/1.1\r\nContent-Length: "
                    "99999999999\r\n\r\n")}) {
    TcpClient client(server_.port());
    client.send(garbage);
    EXPECT_TRUE(eventually([&] { return client.closedByServer(); })) << garbage.substr(0, 20);
  }
  for (const std::string& frame :
       {testing_support::webSocketFrame(1, std::string(100000, '[')),  // too long
        std::string("\x81\x05hello"),                                  // not masked
        testing_support::webSocketFrame(3, "a reserved opcode"),
        std::string("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xff\0\0\0\0", 14)}) {
    WebSocketClient client(server_.port());
    client.shakeHands();
    client.tcp().send(frame);
    EXPECT_TRUE(eventually([&] { return client.tcp().closedByServer(); }));
  }
  WebSocketClient chatterer(server_.port());
  chatterer.shakeHands();
  for (int i = 0; i < 20; ++i) chatterer.sendText("{\"op\":\"dance\"}");
  EXPECT_TRUE(eventually([&] { return chatterer.tcp().closedByServer(); }));

  server_.take(units_.block({0}));
  EXPECT_EQ(good.receive().opcode, 2);
}

TEST_F(FoxgloveServerTest, AClientThatDoesNotReadLosesMessagesAndNobodyElseDoes) {
  WebSocketClient stalled(server_.port()), good(server_.port());
  subscribe(stalled);
  subscribe(good);
  // The system's buffers take a few megabytes before the server notices.
  int received = 0;
  while (server_.status().droppedMessages == 0 && received < 100000) {
    server_.take(units_.block({0, 1, 2}));
    ASSERT_EQ(good.receive().opcode, 2) << received;
    ++received;
  }
  EXPECT_GT(server_.status().droppedMessages, 0);
  EXPECT_EQ(server_.status().droppedCalls, 0);
  EXPECT_EQ(server_.status().clients, 2);
}

TEST_F(FoxgloveServerTest, ClientsMayVanishAHundredTimes) {
  for (int i = 0; i < 100; ++i) {
    WebSocketClient client(server_.port());
    ASSERT_TRUE(client.tcp().connected()) << i;
    if (i % 3 != 0) client.shakeHands();
    if (i % 3 == 2) client.sendText(kSubscribeToBlocks);
    server_.take(units_.block({0}));
    client.tcp().vanish();
    ASSERT_TRUE(eventually([&] { return server_.status().clients < 8; }));
  }
  EXPECT_TRUE(eventually([&] { return server_.status().clients == 0; }));
  WebSocketClient last(server_.port());
  subscribe(last);
  server_.take(units_.block({0}));
  EXPECT_EQ(last.receive().opcode, 2);
}

TEST_F(FoxgloveServerTest, TakesInSixteenClientsAndClosesTheNext) {
  std::vector<std::unique_ptr<WebSocketClient>> clients;
  for (int i = 0; i < 16; ++i) {
    clients.push_back(std::make_unique<WebSocketClient>(server_.port()));
    subscribe(*clients.back());
  }
  TcpClient next(server_.port());
  EXPECT_TRUE(next.closedByServer());
  EXPECT_EQ(server_.status().refusedClients, 1);
  clients.pop_back();
  EXPECT_TRUE(eventually([&] { return server_.status().clients == 15; }));
}

TEST_F(FoxgloveServerTest, TheEndSendsWhatWaitsAndSaysGoodbye) {
  WebSocketClient client(server_.port());
  subscribe(client);
  for (int i = 0; i < 20; ++i) server_.take(units_.block({0}));
  server_.end();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(client.receive().opcode, 2) << i;
  EXPECT_EQ(client.receive().opcode, 8) << "a close frame";
  EXPECT_TRUE(eventually([&] { return server_.status().ended; }));
}

TEST(FoxgloveServer, ListensToATapInOneLine) {
  ScriptedAlg library;
  library.onInputStream = [](ScriptedAlg& alg) { return alg.deliver(7); };
  session::TapAlg alg(&library);
  ScriptedHost host;
  alg.SetDataCallback(&host);
  {
    FoxgloveServer viewers(freePort(), &alg);
    WebSocketClient client(viewers.port());
    client.shakeHands();
    client.receive();
    client.receive();
    client.sendText(kSubscribeToBlocks);
    client.sendText("?");
    client.receive();
    const unsigned char packet[] = {1, 2, 3};
    alg.InputStream(0, packet, 0, 3);
    EXPECT_THAT(client.receive().payload, HasSubstr(R"("stamp_us":7)"));
  }
  const unsigned char packet[] = {1, 2, 3};
  EXPECT_TRUE(alg.InputStream(0, packet, 0, 3)) << "it is only forwarded now";
}

TEST(FoxgloveServer, SaysWhereItCannotServe) {
  const FoxgloveServer first(freePort());
  const auto problem = [](stream::FoxgloveOptions options) -> std::string {
    try {
      FoxgloveServer server(options);
    } catch (const stream::StreamError& error) {
      return error.what();
    }
    return "none";
  };
  stream::FoxgloveOptions options;
  options.port = first.port();
  EXPECT_THAT(problem(options), StartsWith("127.0.0.1:" + std::to_string(first.port()) +
                                           ": expected an address and a port to serve at, found"));
  options.address = "localhost";
  EXPECT_THAT(problem(options), HasSubstr("expected an address of an interface"));
  options.address = "127.0.0.1";
  options.port = 65536;
  EXPECT_THAT(problem(options), HasSubstr("expected a port from 0 to 65535"));
}

TEST(FoxgloveServer, AForkedChildMayDestroyItsCopy) {
  auto server = std::make_unique<FoxgloveServer>(freePort());
  testing_support::UnitMaker units;
  const std::string end = testing_support::endOfChild([&] {
    server->take(units.block({0}));
    server.reset();
    _exit(0);  // the parent's thread is no leak of the child
  });
  EXPECT_EQ(end, "exit 0");
  WebSocketClient client(server->port());
  EXPECT_THAT(client.shakeHands(), StartsWith("HTTP/1.1 101")) << "the parent serves on";
}

}  // namespace
