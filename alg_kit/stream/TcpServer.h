// Takes in clients over TCP. Not for hosts: it needs Asio's headers.
#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <string>

namespace stream {

/// A socket of any kind: over the network, or one of a pair within a process.
using ClientSocket = boost::asio::generic::stream_protocol::socket;

class TcpServer {
 public:
  using Welcome = std::function<void(ClientSocket)>;

  /// @param address  of an interface: "127.0.0.1" for this machine alone, "0.0.0.0" for all
  /// @param port     0 = one that is free
  /// @param welcome  called with each client that connects
  /// @throws StreamError
  TcpServer(boost::asio::io_context& context, const std::string& address, int port,
            Welcome welcome);

  int port() const { return port_; }

  /// Nobody more is taken in.
  void close();

 private:
  void accept();

  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer pause_;
  Welcome welcome_;
  int port_ = 0;
};

}  // namespace stream
