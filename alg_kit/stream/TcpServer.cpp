#include <alg_kit/stream/TcpServer.h>

#include <alg_kit/stream/StreamSink.h>

#include <chrono>
#include <utility>

namespace stream {

namespace asio = boost::asio;
using boost::system::error_code;

TcpServer::TcpServer(asio::io_context& context, const std::string& address, int port,
                     Welcome welcome)
    : acceptor_(context), pause_(context), welcome_(std::move(welcome)) {
  const std::string place = address + ":" + std::to_string(port);
  error_code error;
  const auto host = asio::ip::make_address(address, error);
  if (error)
    throw StreamError(place +
                      ": expected an address of an interface (127.0.0.1), found another text");
  if (port < 0 || port > 65535)
    throw StreamError(place + ": expected a port from 0 to 65535, found " + std::to_string(port));
  const asio::ip::tcp::endpoint endpoint(host, static_cast<unsigned short>(port));
  acceptor_.open(endpoint.protocol(), error);
  if (!error) acceptor_.set_option(asio::socket_base::reuse_address(true), error);
  if (!error) acceptor_.bind(endpoint, error);
  if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
  if (!error) port_ = acceptor_.local_endpoint(error).port();
  if (error)
    throw StreamError(place +
                      ": expected an address and a port to serve at, found: " + error.message());
  accept();
}

void TcpServer::accept() {
  acceptor_.async_accept([this](const error_code& error, asio::ip::tcp::socket socket) {
    if (!acceptor_.is_open()) return;
    if (error) {
      // No descriptor is left, for example: try again when one may be.
      pause_.expires_after(std::chrono::milliseconds(100));
      pause_.async_wait([this](const error_code& ended) {
        if (!ended) accept();
      });
      return;
    }
    error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    welcome_(ClientSocket(std::move(socket)));
    accept();
  });
}

void TcpServer::close() {
  error_code ignored;
  acceptor_.close(ignored);
  pause_.cancel();
}

}  // namespace stream
