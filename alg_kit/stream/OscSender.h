#pragma once

#include <alg_kit/stream/StreamSink.h>

#include <string>

namespace stream {

struct OscOptions : StreamOptions {
  std::string host = "127.0.0.1";  ///< a name or an address
  int port = 9000;
};

/// Sends OSC messages over UDP, a bundle for each block. docs/streams.md lists the messages.
class OscSender final : public StreamSink {
 public:
  /// @throws StreamError for a port that cannot be, and a host that is not known
  explicit OscSender(const OscOptions& options, session::TapAlg* tap = nullptr);

  /// Listens to a tap, as the options are by themselves.
  explicit OscSender(session::TapAlg& tap);

 private:
  class Sender;
};

}  // namespace stream
