#include <alg_kit/view/Connection.h>

#include <alg_kit/view/Downloads.h>
#include <alg_kit/view/Server.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

namespace view {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using beast::error_code;

namespace {

constexpr std::size_t kMostConnections = 24;
constexpr std::size_t kMostRequest = 8192;     // bytes
constexpr std::size_t kMostMessage = 4096;     // bytes
constexpr std::size_t kMostDropped = 1 << 20;  // bytes
constexpr double kQuestionsPerSecond = 200;
constexpr auto kPatience = std::chrono::seconds(10);

std::string_view view(beast::string_view text) {
  return {text.data(), text.size()};
}

/// The page names its own script and style by their hashes, in a meta element. The same goes out as
/// a header, with what such an element cannot say.
std::string policyOf(std::string_view page) {
  constexpr std::string_view kMark = "http-equiv=\"Content-Security-Policy\" content=\"";
  const std::size_t mark = page.find(kMark);
  if (mark == std::string_view::npos) return "default-src 'none'; frame-ancestors 'none'";
  const std::size_t begin = mark + kMark.size();
  return std::string(page.substr(begin, page.find('"', begin) - begin)) +
         "; frame-ancestors 'none'";
}

void protect(http::response<http::string_body>& response) {
  response.set(http::field::cache_control, "no-store");
  response.set("X-Content-Type-Options", "nosniff");
  response.set("Referrer-Policy", "no-referrer");
  response.set("Cross-Origin-Resource-Policy", "same-origin");
  response.set("Cross-Origin-Opener-Policy", "same-origin");
  response.set("X-Frame-Options", "DENY");
}

}  // namespace

Connection::Connection(Socket socket, Hall& hall)
    : hall_(hall), stream_(std::move(socket)), tokens_(2 * kQuestionsPerSecond) {
  hall_.connections.insert(this);
}

Connection::~Connection() {
  hall_.connections.erase(this);
}

void Connection::close() {
  liveFile_.reset();
  stream_.next_layer().close();
}

void Connection::begin() {
  if (hall_.connections.size() > kMostConnections) return;  // closes
  parser_.emplace();
  parser_->header_limit(kMostRequest);
  parser_->body_limit(0);
  Stream& stream = stream_.next_layer();
  stream.expires_after(kPatience);
  http::async_read(
      stream, buffer_, *parser_, [self = shared_from_this()](error_code error, std::size_t) {
        if (!error) return self->answerRequest();
        if (error == http::error::header_limit) return self->refuse(431, "the request is too long");
        const bool went =
            error == http::error::end_of_stream || error == http::error::partial_message;
        if (error.category() == error_code(http::error::bad_method).category() && !went)
          self->refuse(400, "expected a request of HTTP without a body");
      });
}

void Connection::answerRequest() {
  const auto& request = parser_->get();
  Knock knock;
  knock.method = view(request.method_string());
  knock.target = view(request.target());
  knock.host = view(request[http::field::host]);
  knock.origin = view(request[http::field::origin]);
  knock.hasOrigin = request.find(http::field::origin) != request.end();
  knock.wantsWebSocket = websocket::is_upgrade(request);
  // Two hosts or origins may be read one way here and another way elsewhere.
  if (request.count(http::field::host) != 1 || request.count(http::field::origin) > 1)
    return refuse(400, "expected one Host and at most one Origin");
  const Entrance entrance = judge(knock, hall_.rules);
  switch (entrance.place) {
    case Entrance::Place::kRefused:
      return refuse(static_cast<unsigned>(entrance.status), entrance.problem);
    case Entrance::Place::kPage:
      return sendPage();
    case Entrance::Place::kLive:
      return openSocket();
    case Entrance::Place::kCsv:
    case Entrance::Place::kRecording:
      return download(entrance);
  }
}

void Connection::refuse(unsigned status, std::string_view problem) {
  http::response<http::string_body> response(static_cast<http::status>(status), 11);
  if (status == 405) response.set(http::field::allow, "GET");
  response.set(http::field::content_type, "text/plain; charset=utf-8");
  response.body() = std::string(problem) + "\n";
  send(std::move(response));
}

void Connection::sendPage() {
  http::response<http::string_body> response(http::status::ok, 11);
  response.set(http::field::content_type, "text/html; charset=utf-8");
  response.set("Content-Security-Policy", policyOf(viewerPage()));
  response.body() = std::string(viewerPage());
  send(std::move(response));
}

void Connection::download(const Entrance& entrance) {
  stream_.next_layer().expires_never();
  asio::post(hall_.workers, [self = shared_from_this(), entrance]() mutable {
    const Watcher& watcher = *self->hall_.watchers[static_cast<std::size_t>(entrance.file)];
    const bool csv = entrance.place == Entrance::Place::kCsv;
    http::response<http::string_body> response(http::status::ok, 11);
    try {
      response.body() = csv ? csvOf(watcher.log(), entrance.from, entrance.to)
                            : recordingOf(watcher.path(), entrance.from, entrance.to);
      response.set(http::field::content_type,
                   csv ? "text/csv; charset=utf-8" : "application/octet-stream");
      response.set(http::field::content_disposition, csv ? "attachment; filename=\"part.csv\""
                                                         : "attachment; filename=\"part.algrec\"");
    } catch (const std::exception& problem) {
      response.result(http::status::unprocessable_entity);
      response.set(http::field::content_type, "text/plain; charset=utf-8");
      response.body() = std::string(problem.what()) + "\n";
    }
    // The connection ends on its own thread.
    asio::io_context& context = self->hall_.context;
    asio::post(context, [self = std::move(self), ready = std::move(response)]() mutable {
      self->send(std::move(ready));
    });
  });
}

void Connection::send(http::response<http::string_body> response) {
  response_ = std::move(response);
  protect(response_);
  response_.keep_alive(false);
  response_.prepare_payload();
  Stream& stream = stream_.next_layer();
  stream.expires_after(kPatience);
  http::async_write(stream, response_, [self = shared_from_this()](error_code, std::size_t) {
    error_code ignored;
    self->stream_.next_layer().socket().shutdown(Socket::shutdown_send, ignored);
    self->buffer_.clear();
    self->drop(0);
  });
}

// A socket that is closed over unread bytes resets the connection, and the client may lose the
// answer: what a refused client still sends is taken and dropped, within the time of the answer.
void Connection::drop(std::size_t dropped) {
  stream_.next_layer().async_read_some(
      buffer_.prepare(kMostRequest),
      [self = shared_from_this(), dropped](error_code error, std::size_t size) {
        if (!error && dropped + size < kMostDropped) self->drop(dropped + size);
      });
}

// ---- the WebSocket

void Connection::openSocket() {
  stream_.next_layer().expires_never();
  websocket::stream_base::timeout timeouts;
  timeouts.handshake_timeout = kPatience;
  timeouts.idle_timeout = std::chrono::seconds(60);
  timeouts.keep_alive_pings = true;
  stream_.set_option(timeouts);
  stream_.read_message_max(kMostMessage);
  stream_.text(true);
  stream_.auto_fragment(false);  // else a large answer goes out in writes of 4 KB
  stream_.async_accept(parser_->get(), [self = shared_from_this()](error_code error) {
    if (error) return;
    self->buffer_.clear();
    self->readQuestion();
  });
}

void Connection::readQuestion() {
  isReading_ = true;
  stream_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t) {
    self->isReading_ = false;
    if (error) {
      self->liveFile_.reset();
      return;
    }
    self->takeQuestion();
  });
}

bool Connection::tooFast() {
  const auto now = Clock::now();
  tokens_ += kQuestionsPerSecond * std::chrono::duration<double>(now - secondBegan_).count();
  tokens_ = std::min(tokens_, 2 * kQuestionsPerSecond);
  secondBegan_ = now;
  tokens_ -= 1;
  return tokens_ < 0;
}

void Connection::takeQuestion() {
  const std::string text = beast::buffers_to_string(buffer_.data());
  buffer_.clear();
  if (tooFast() || !stream_.got_text()) {
    liveFile_.reset();
    stream_.async_close(
        websocket::close_reason(websocket::close_code::policy_error, "too many questions"),
        [self = shared_from_this()](error_code) {});
    return;
  }
  // The only thing that a page may set: whether it wants to be told of what is new, and from where.
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_object() && json.value("op", nlohmann::json()) == "live") {
    const auto number = [&](const char* key) {
      const auto found = json.find(key);
      return found != json.end() && found->is_number_integer() ? found->get<std::int64_t>() : -1;
    };
    const std::int64_t file = number("file"), from = number("from");
    liveFile_.reset();
    if (file >= 0 && file < hall_.rules.files && from >= 0) {
      liveFile_ = static_cast<std::size_t>(file);
      liveFrom_ = from;
      seenChanges_ = -1;
    }
    readQuestion();
    return sendNews();
  }
  write(hall_.answers.answer(text));
}

void Connection::write(std::string text) {
  if (isWriting_) {  // a piece of news is under way; no further question is read until then
    waiting_ = std::move(text);
    hasWaiting_ = true;
    return;
  }
  isWriting_ = true;
  writing_ = std::move(text);
  stream_.async_write(asio::buffer(writing_),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        self->isWriting_ = false;
                        if (!error) self->goOn();
                      });
}

void Connection::goOn() {
  if (hasWaiting_) {
    hasWaiting_ = false;
    return write(std::move(waiting_));
  }
  if (!isReading_) readQuestion();
  sendNews();
}

void Connection::hear(std::size_t file) {
  if (liveFile_ == file) sendNews();
}

void Connection::sendNews() {
  if (!liveFile_ || isWriting_) return;
  const FrameLog& log = hall_.watchers[*liveFile_]->log();
  const std::int64_t changes = log.changes();
  if (changes == seenChanges_) return;
  seenChanges_ = changes;
  const std::int64_t size = log.size();
  std::string text = hall_.answers.news(*liveFile_, liveFrom_);
  // The last one may still change.
  liveFrom_ = std::max<std::int64_t>(size - 1, 0);
  write(std::move(text));
}

}  // namespace view
