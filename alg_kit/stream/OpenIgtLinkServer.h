#pragma once

#include <alg_kit/stream/StreamSink.h>

#include <string>

namespace stream {

struct OpenIgtLinkOptions : StreamOptions {
  std::string address = "127.0.0.1";  ///< of the interface; "0.0.0.0" = all of them
  int port = 18944;                   ///< 0 = one that is free
  int mostClients = 16;
};

/// An OpenIGTLink server: medical and research software connects and gets each object as TRANSFORM
/// and POSITION. docs/streams.md says what is in them.
class OpenIgtLinkServer final : public StreamSink {
 public:
  /// @throws StreamError where address and port cannot be served
  explicit OpenIgtLinkServer(const OpenIgtLinkOptions& options, session::TapAlg* tap = nullptr);

  /// Listens to a tap, as the options are by themselves.
  explicit OpenIgtLinkServer(session::TapAlg& tap);

  int port() const { return port_; }

 private:
  class Server;
  OpenIgtLinkServer(std::shared_ptr<Server> server, const OpenIgtLinkOptions& options,
                    session::TapAlg* tap);
  int port_;
};

}  // namespace stream
