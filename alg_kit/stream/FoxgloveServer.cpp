#include <alg_kit/stream/FoxgloveServer.h>

#include <alg_kit/stream/Clients.h>
#include <alg_kit/stream/FoxgloveSession.h>

#include <algorithm>
#include <utility>

namespace stream {

class FoxgloveServer::Server final : public Output, private JsonMessages {
 public:
  explicit Server(const FoxgloveOptions& options)
      : JsonMessages(options.unit), options_(options), clients_(options.mostClients, counters) {
    rules_.origins = options.origins;
  }

  Listener& listener() override { return *this; }

  void begin(boost::asio::io_context& context) override {
    clients_.begin(context, options_.address, options_.port, [this](ClientSocket socket) {
      return std::make_shared<FoxgloveSession>(std::move(socket), rules_, counters);
    });
  }

  void finish() override { clients_.finish(); }
  void release() override { clients_.release(); }
  int port() const { return clients_.port(); }

 private:
  bool wants(Channel channel) override {
    const auto clients = clients_.all();
    return std::any_of(clients.begin(), clients.end(),
                       [&](const auto& client) { return client->wants(channel); });
  }

  void write(Channel channel, std::uint64_t hostNs, std::string json) override {
    const auto payload = std::make_shared<const std::string>(std::move(json));
    for (const auto& client : clients_.all()) client->send(channel, hostNs, payload);
  }

  const FoxgloveOptions options_;
  FoxgloveSession::Rules rules_;
  Clients<FoxgloveSession> clients_;
};

FoxgloveServer::FoxgloveServer(const FoxgloveOptions& options, session::TapAlg* tap)
    : FoxgloveServer(std::make_shared<Server>(options), options, tap) {}

FoxgloveServer::FoxgloveServer(std::shared_ptr<Server> server, const FoxgloveOptions& options,
                               session::TapAlg* tap)
    : StreamSink(server, options, tap), port_(server->port()) {}

FoxgloveServer::FoxgloveServer(session::TapAlg& tap) : FoxgloveServer(FoxgloveOptions(), &tap) {}

}  // namespace stream
