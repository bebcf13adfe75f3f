// One client of the WebSocket server. Not for hosts: it needs Beast's headers.
#pragma once

#include <alg_kit/stream/FoxgloveProtocol.h>
#include <alg_kit/stream/Output.h>
#include <alg_kit/stream/TcpServer.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stream {

using Payload = std::shared_ptr<const std::string>;

/// From the HTTP request to the end of the connection. It keeps itself alive while it lasts.
class FoxgloveSession : public std::enable_shared_from_this<FoxgloveSession> {
 public:
  struct Rules {
    std::vector<std::string> origins;  ///< web pages that may connect; empty = any
    std::size_t mostWaiting = 256;     ///< messages that wait for the client; then the oldest goes
    std::size_t mostWaitingBytes = 4 * 1024 * 1024;
  };

  /// @param rules, counters  outlive the session
  FoxgloveSession(ClientSocket socket, const Rules& rules, Counters& counters);

  /// @param ended  called once, when the connection is no more
  void begin(std::function<void()> ended);

  bool wants(Channel channel) const { return !protocol_.subscriptions(channel).empty(); }

  /// Sends it to each of the client's subscriptions.
  void send(Channel channel, std::uint64_t hostNs, const Payload& payload);

  /// Says goodbye once what waits is sent.
  void finish();

  /// Ends it at once.
  void drop();

 private:
  struct Waiting {
    bool binary;
    std::array<char, 13> head;  ///< of binary ones
    Payload payload;
  };

  void onRequest(const boost::system::error_code& error);
  void refuse(boost::beast::http::status status, const char* why);
  void onAccepted(const boost::system::error_code& error);
  void read();
  void onRead(const boost::system::error_code& error);
  void say(std::string text);
  void put(Waiting message);
  void writeNext();
  void end();

  boost::beast::websocket::stream<ClientSocket> socket_;
  boost::asio::steady_timer limit_;
  const Rules& rules_;
  Counters& counters_;
  std::function<void()> ended_;
  FoxgloveProtocol protocol_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> request_;
  std::optional<boost::beast::http::response<boost::beast::http::string_body>> refusal_;
  std::deque<Waiting> waiting_;  ///< the first one is being written
  std::size_t waitingBytes_ = 0;
  int complaints_ = 0;
  bool open_ = false, writing_ = false, finishing_ = false, over_ = false;
};

}  // namespace stream
