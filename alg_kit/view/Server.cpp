#include <alg_kit/view/Server.h>

#include <alg_kit/view/Connection.h>

#include <chrono>
#include <csignal>
#include <stdexcept>

namespace view {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

struct Server::State {
  State(const Watchers& given, const ServerOptions& options)
      : hall{given, WindowAnswers(given), {}, {}, workers}, acceptor(hall.context) {
    error_code error;
    const auto ip = asio::ip::make_address(options.address, error);
    if (error)
      throw std::runtime_error("expected an address in digits to listen on, found " +
                               options.address);
    const tcp::endpoint place(ip, options.port);
    acceptor.open(place.protocol(), error);
    if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor.bind(place, error);
    if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error)
      throw std::runtime_error("cannot listen on " + options.address + " port " +
                               std::to_string(options.port) + ": " + error.message());
    hall.rules.address = options.address;
    hall.rules.port = acceptor.local_endpoint().port();
    hall.rules.token = options.token.empty() ? randomToken() : options.token;
    hall.rules.files = static_cast<std::int64_t>(given.size());
    for (std::size_t file = 0; file < given.size(); ++file)
      given[file]->setListener([this, file] {
        asio::post(hall.context, [this, file] {
          for (Connection* const connection : hall.connections) connection->hear(file);
        });
      });
  }

  ~State() {
    for (const auto& watcher : hall.watchers) watcher->setListener(nullptr);
    workers.join();
    error_code ignored;
    acceptor.close(ignored);
    // Connections end while all that they use is there still.
    hall.context.restart();
    do
      for (Connection* const connection : hall.connections) connection->close();
    while (hall.context.poll() > 0);
  }

  void accept() {
    acceptor.async_accept([this](error_code error, tcp::socket socket) {
      if (!error) {
        error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        std::make_shared<Connection>(Connection::Socket(std::move(socket)), hall)->begin();
      }
      if (error != asio::error::operation_aborted) accept();
    });
  }

  asio::thread_pool workers{1};
  Hall hall;
  tcp::acceptor acceptor;
};

Server::Server(const Watchers& watchers, const ServerOptions& options)
    : state_(std::make_shared<State>(watchers, options)) {}

Server::~Server() = default;

std::string Server::address() const {
  const DoorRules& rules = state_->hall.rules;
  const bool v6 = rules.address.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + rules.address + "]" : rules.address) + ":" +
         std::to_string(rules.port) + "/?token=" + rules.token;
}

void Server::run(const std::function<bool()>& goOn) {
  state_->accept();
  while (goOn()) {
    state_->hall.context.restart();
    state_->hall.context.run_for(std::chrono::milliseconds(150));
  }
}

void Server::serve(int socket) {
  Connection::Socket end(state_->hall.context);
  end.assign(asio::local::stream_protocol(), socket);
  std::make_shared<Connection>(std::move(end), state_->hall)->begin();
}

bool Server::poll() {
  state_->hall.context.restart();
  return state_->hall.context.poll() > 0;
}

}  // namespace view
