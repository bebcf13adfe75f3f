#pragma once

#include <alg_kit/stream/Output.h>
#include <alg_kit/stream/TcpServer.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace stream {

/// A server and the clients that are connected, `mostClients` at once: each a Session, which has
/// `begin(ended)`, `finish()` and `drop()` and keeps itself alive while it lasts.
template <typename Session>
class Clients {
 public:
  /// @param counters  outlive this object
  Clients(int mostClients, Counters& counters)
      : most_(static_cast<std::size_t>(std::max(mostClients, 1))), counters_(counters) {}

  /// @param make  makes a session of a socket
  template <typename Make>
  void begin(boost::asio::io_context& context, const std::string& address, int port, Make make) {
    server_ = std::make_unique<TcpServer>(
        context, address, port,
        [this, make](ClientSocket socket) { welcome(std::move(socket), make); });
  }

  int port() const { return server_->port(); }

  /// Whoever ends meanwhile leaves the list, so this is a copy.
  std::vector<std::shared_ptr<Session>> all() const { return sessions_; }

  void finish() {
    server_->close();
    for (const auto& session : all()) session->finish();
  }

  void release() {
    server_.reset();
    for (const auto& session : all()) session->drop();
  }

 private:
  template <typename Make>
  void welcome(ClientSocket socket, const Make& make) {
    if (sessions_.size() >= most_) {
      ++counters_.refusedClients;
      return;  // which closes it
    }
    sessions_.push_back(make(std::move(socket)));
    counters_.clients = static_cast<int>(sessions_.size());
    const std::shared_ptr<Session> session = sessions_.back();
    // By its address alone: a session must not keep itself alive.
    session->begin([this, place = session.get()] { leave(place); });
  }

  void leave(const Session* session) {
    sessions_.erase(std::remove_if(sessions_.begin(), sessions_.end(),
                                   [&](const auto& one) { return one.get() == session; }),
                    sessions_.end());
    counters_.clients = static_cast<int>(sessions_.size());
  }

  const std::size_t most_;
  Counters& counters_;
  std::unique_ptr<TcpServer> server_;
  std::vector<std::shared_ptr<Session>> sessions_;
};

}  // namespace stream
