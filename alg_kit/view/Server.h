#pragma once

#include <alg_kit/view/WindowAnswers.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace view {

struct ServerOptions {
  std::string address = "127.0.0.1";  ///< to listen on, in digits
  std::uint16_t port = 0;             ///< 0 = any free one
  std::string token;                  ///< empty = a random one
};

/// The page that is built in; empty if the program was built without it.
std::string_view viewerPage();

/// Serves one page and its questions about recordings, over HTTP and WebSocket. No request writes
/// anything. Runs on the thread that calls `run`.
///
/// Limits: 8 KB of HTTP request, 4 KB of message, 24 connections, 10 s for a request to arrive; a
/// connection is closed that asks more than 200 times a second for two seconds. What a client does
/// not take is not sent to it: one answer and one piece of news wait for it at most.
class Server {
 public:
  /// @throws std::runtime_error in one line, if the address or port cannot be had
  Server(const Watchers& watchers, const ServerOptions& options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// "http://127.0.0.1:8700/?token=..."
  std::string address() const;

  /// Until `goOn`, which is asked a few times a second, returns false.
  void run(const std::function<bool()>& goOn);

  /// Serves a connection that was made already: two ends of a pair of sockets have one in common.
  void serve(int socket);

  /// Does what can be done without waiting. Returns whether anything was.
  bool poll();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace view
