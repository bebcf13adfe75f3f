#include <alg_kit/stream/OpenIgtLinkServer.h>

#include <alg_kit/stream/Clients.h>
#include <alg_kit/stream/OpenIgtLinkMessages.h>
#include <alg_kit/stream/OpenIgtLinkSession.h>

#include <utility>

namespace stream {

class OpenIgtLinkServer::Server final : public Output, private Listener {
 public:
  explicit Server(const OpenIgtLinkOptions& options)
      : options_(options), clients_(options.mostClients, counters) {}

  Listener& listener() override { return *this; }

  void begin(boost::asio::io_context& context) override {
    clients_.begin(context, options_.address, options_.port, [this](ClientSocket socket) {
      return std::make_shared<OpenIgtLinkSession>(std::move(socket), counters);
    });
  }

  void finish() override { clients_.finish(); }
  void release() override { clients_.release(); }
  int port() const { return clients_.port(); }

 private:
  void onFrame(const Frame& frame) override {
    if (!clients_.all().empty()) send(openIgtLinkMessages(frame, options_.unit));
  }
  void onMessage(const Message& message) override {
    if (!clients_.all().empty()) send(openIgtLinkMessages(message));
  }
  // The protocol has no place for these.
  void onBlobs(const Blobs&) override {}
  void onStatistics(const Statistics&) override {}

  void send(std::string bytes) {
    const auto payload = std::make_shared<const std::string>(std::move(bytes));
    for (const auto& client : clients_.all()) client->send(payload);
  }

  const OpenIgtLinkOptions options_;
  Clients<OpenIgtLinkSession> clients_;
};

OpenIgtLinkServer::OpenIgtLinkServer(const OpenIgtLinkOptions& options, session::TapAlg* tap)
    : OpenIgtLinkServer(std::make_shared<Server>(options), options, tap) {}

OpenIgtLinkServer::OpenIgtLinkServer(std::shared_ptr<Server> server,
                                     const OpenIgtLinkOptions& options, session::TapAlg* tap)
    : StreamSink(server, options, tap), port_(server->port()) {}

OpenIgtLinkServer::OpenIgtLinkServer(session::TapAlg& tap)
    : OpenIgtLinkServer(OpenIgtLinkOptions(), &tap) {}

}  // namespace stream
