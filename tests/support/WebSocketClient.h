#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace testing_support {

/// A TCP client of this machine, with a second of patience. Linux.
class TcpClient {
 public:
  explicit TcpClient(int port);
  ~TcpClient();
  TcpClient(const TcpClient&) = delete;
  TcpClient& operator=(const TcpClient&) = delete;

  bool connected() const { return socket_ >= 0; }

  /// False where the server has gone.
  bool send(std::string_view bytes);

  /// Exactly so many bytes; shorter where the server has gone or says nothing for too long.
  std::string receive(std::size_t size);

  /// The server has closed the connection (waits for it, at most the patience).
  bool closedByServer();

  /// Ends the connection as a process that is killed does where the network loses the rest.
  void vanish();

  int descriptor() const { return socket_; }

 private:
  int socket_ = -1;
};

/// A WebSocket client as small as it can be, of our own hand: it does what no well-behaved one
/// does.
class WebSocketClient {
 public:
  explicit WebSocketClient(int port) : tcp_(port) {}

  /// @return the server's answer, up to the empty line
  std::string shakeHands(const std::string& subProtocol = "foxglove.websocket.v1",
                         const std::string& moreHeaders = "");

  bool sendText(std::string_view text);

  struct Message {
    int opcode = -1;  ///< 1 text, 2 binary, 8 close, 9 ping; -1 = none came
    std::string payload;
  };
  Message receive();

  TcpClient& tcp() { return tcp_; }

 private:
  TcpClient tcp_;
};

/// A client's frame, masked as it must be.
std::string webSocketFrame(int opcode, std::string_view payload);

}  // namespace testing_support
