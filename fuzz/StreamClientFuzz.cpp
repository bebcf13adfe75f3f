// What a client sends, through the server's own session: HTTP, WebSocket frames, JSON. The bytes go
// through a pair of sockets, as they would over the network; messages are sent to the client
// meanwhile. Nothing may break, and every session ends.
#include <alg_kit/stream/FoxgloveSession.h>
#include <tests/support/WebSocketClient.h>

#include <sys/socket.h>
#include <unistd.h>
#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "StreamClientFuzz: %s\n", what);
  std::abort();
}

constexpr const char* kHandshake =
    "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
    "Sec-WebSocket-Protocol: foxglove.websocket.v1\r\n\r\n";

struct ClientBytes {
  std::string handshake, then;
};

/// The first byte says how far the client keeps to the rules.
ClientBytes bytesOfClient(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (data[0] % 3 == 0) return {text, ""};          // any bytes
  if (data[0] % 3 == 1) return {kHandshake, text};  // any frames
  std::string frames;                               // a text in each; zeros separate them
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\0', at), text.size());
    frames += testing_support::webSocketFrame(1, text.substr(at, end - at));
    at = end + 1;
  }
  return {kHandshake, frames};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // What the sockets' buffers hold without a reader.
  if (size == 0 || size > 32768) return 0;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) != 0) fail("no sockets");
  const ClientBytes bytes = bytesOfClient(data, size);

  boost::asio::io_context context;
  stream::Counters counters;
  const stream::FoxgloveSession::Rules rules;
  bool ended = false;
  {
    const auto session = std::make_shared<stream::FoxgloveSession>(
        stream::ClientSocket(context, boost::asio::generic::stream_protocol(AF_UNIX, 0), ends[1]),
        rules, counters);
    session->begin([&] {
      if (ended) fail("a session ended twice");
      ended = true;
    });
    const auto payload = std::make_shared<const std::string>("{}");
    // A client waits for the answer to its handshake before it goes on.
    for (const std::string* const piece : {&bytes.handshake, &bytes.then}) {
      [[maybe_unused]] const auto sent = send(ends[0], piece->data(), piece->size(), MSG_NOSIGNAL);
      for (int i = 0; i < 3; ++i) context.poll();
      for (int channel = 0; channel < stream::kChannels; ++channel)
        session->send(stream::channelAt(channel), 1, payload);
    }
  }
  close(ends[0]);  // the client is gone: so is, soon, the session
  for (int i = 0; i < 1000 && !ended; ++i) context.poll();
  if (!ended) fail("a session outlived its client");
  context.poll();
  return 0;
}
