// One client: an HTTP request and its answer, or a WebSocket. Boost stays behind this header.
#pragma once

#include <alg_kit/view/Door.h>
#include <alg_kit/view/WindowAnswers.h>

#include <boost/asio.hpp>
#include <boost/beast.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace view {

class Connection;

/// What all connections share.
struct Hall {
  const Watchers& watchers;
  WindowAnswers answers;
  DoorRules rules;
  std::set<Connection*> connections;
  boost::asio::thread_pool& workers;  ///< for what takes long
  boost::asio::io_context context{1};
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Protocol = boost::asio::generic::stream_protocol;
  using Socket = Protocol::socket;

  Connection(Socket socket, Hall& hall);
  ~Connection();
  void begin();

  /// There is something new in a file. Who does not follow it is not told; who still takes what
  /// was sent before is told everything at once afterwards.
  void hear(std::size_t file);

  /// What is under way ends as soon as its thread goes on.
  void close();

 private:
  using Stream = boost::beast::basic_stream<Protocol>;
  using Clock = std::chrono::steady_clock;

  void answerRequest();
  void refuse(unsigned status, std::string_view problem);
  void sendPage();
  void download(const Entrance& entrance);
  void send(boost::beast::http::response<boost::beast::http::string_body> response);
  void drop(std::size_t dropped);

  void openSocket();
  void readQuestion();
  void takeQuestion();
  bool tooFast();
  void write(std::string text);
  void goOn();
  void sendNews();

  Hall& hall_;
  boost::beast::websocket::stream<Stream> stream_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> parser_;
  boost::beast::http::response<boost::beast::http::string_body> response_;

  std::string writing_, waiting_;  ///< an answer that is sent, one behind a piece of news
  bool isWriting_ = false, hasWaiting_ = false, isReading_ = false;
  Clock::time_point secondBegan_ = Clock::now();
  double tokens_;

  std::optional<std::size_t> liveFile_;  ///< the page is at its edge
  std::int64_t liveFrom_ = 0, seenChanges_ = -1;
};

}  // namespace view
