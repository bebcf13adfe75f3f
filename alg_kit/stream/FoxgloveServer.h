#pragma once

#include <alg_kit/stream/StreamSink.h>

#include <string>
#include <vector>

namespace stream {

struct FoxgloveOptions : StreamOptions {
  std::string address = "127.0.0.1";  ///< of the interface; "0.0.0.0" = all of them
  int port = 8765;                    ///< 0 = one that is free
  int mostClients = 16;
  /// Web pages that may connect ("https://app.example.org"); empty = any, as viewers that run in a
  /// browser come from elsewhere. Programs that are no browser name none and are let in.
  std::vector<std::string> origins;
};

/// A WebSocket server in the Foxglove protocol: viewers show the objects in 3D at once.
/// docs/streams.md lists the channels.
class FoxgloveServer final : public StreamSink {
 public:
  /// @throws StreamError where address and port cannot be served
  explicit FoxgloveServer(const FoxgloveOptions& options, session::TapAlg* tap = nullptr);

  /// Listens to a tap, as the options are by themselves.
  explicit FoxgloveServer(session::TapAlg& tap);

  int port() const { return port_; }

 private:
  class Server;
  FoxgloveServer(std::shared_ptr<Server> server, const FoxgloveOptions& options,
                 session::TapAlg* tap);
  int port_;
};

}  // namespace stream
