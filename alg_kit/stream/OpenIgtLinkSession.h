// One client of the OpenIGTLink server. Not for hosts: it needs Asio's headers.
#pragma once

#include <alg_kit/stream/Output.h>
#include <alg_kit/stream/TcpServer.h>

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace stream {

/// Writes to a client; what the client says is read and forgotten. It keeps itself alive while it
/// lasts.
class OpenIgtLinkSession : public std::enable_shared_from_this<OpenIgtLinkSession> {
 public:
  using Payload = std::shared_ptr<const std::string>;
  static constexpr std::size_t kMostWaiting = 64;         ///< blocks; then the oldest goes
  static constexpr std::size_t kMostHeard = 1024 * 1024;  ///< bytes; a client has little to say

  /// @param counters  outlive the session
  OpenIgtLinkSession(ClientSocket socket, Counters& counters);

  /// @param ended  called once, when the connection is no more
  void begin(std::function<void()> ended);
  void send(const Payload& bytes);
  void finish();  ///< closes once what waits is sent
  void drop();    ///< closes at once

 private:
  void read();
  void writeNext();

  ClientSocket socket_;
  boost::asio::steady_timer stalled_;
  Counters& counters_;
  std::function<void()> ended_;
  std::array<char, 4096> heard_{};
  std::size_t heardBytes_ = 0;
  std::deque<Payload> waiting_;  ///< the first one is being written
  bool writing_ = false, finishing_ = false, over_ = false;
};

}  // namespace stream
