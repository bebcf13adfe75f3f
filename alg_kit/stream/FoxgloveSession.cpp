#include <alg_kit/stream/FoxgloveSession.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace stream {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using boost::system::error_code;

constexpr auto kHandshakeLimit = std::chrono::seconds(5);
constexpr auto kSilenceLimit = std::chrono::seconds(20);  // no answer to a ping: it has vanished
constexpr std::uint32_t kLongestHeader = 8192;
constexpr int kMostComplaints = 16;

std::string_view view(beast::string_view text) {
  return {text.data(), text.size()};
}

}  // namespace

FoxgloveSession::FoxgloveSession(ClientSocket socket, const Rules& rules, Counters& counters)
    : socket_(std::move(socket)),
      limit_(socket_.get_executor()),
      rules_(rules),
      counters_(counters) {}

void FoxgloveSession::begin(std::function<void()> ended) {
  ended_ = std::move(ended);
  limit_.expires_after(kHandshakeLimit);
  limit_.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) self->drop();
  });
  request_.emplace();
  request_->header_limit(kLongestHeader);
  request_->body_limit(0);
  http::async_read(socket_.next_layer(), buffer_, *request_,
                   [self = shared_from_this()](const error_code& error, std::size_t) {
                     self->onRequest(error);
                   });
}

void FoxgloveSession::onRequest(const error_code& error) {
  if (over_) return;
  if (error) {
    ++counters_.refusedClients;
    return end();
  }
  const auto& request = request_->get();
  if (!websocket::is_upgrade(request))
    return refuse(http::status::upgrade_required, "expected a WebSocket client\n");
  const std::string origin(request[http::field::origin]);
  if (!rules_.origins.empty() && !origin.empty() &&
      std::find(rules_.origins.begin(), rules_.origins.end(), origin) == rules_.origins.end())
    return refuse(http::status::forbidden, "expected a page of an allowed origin\n");
  const std::string chosen =
      FoxgloveProtocol::chooseSubProtocol(view(request[http::field::sec_websocket_protocol]));
  if (chosen.empty())
    return refuse(http::status::bad_request,
                  "expected the sub-protocol foxglove.websocket.v1 or foxglove.sdk.v1\n");

  limit_.cancel();  // from here on Beast keeps the time
  websocket::stream_base::timeout times{};
  times.handshake_timeout = kHandshakeLimit;
  times.idle_timeout = kSilenceLimit;
  times.keep_alive_pings = true;
  socket_.set_option(times);
  socket_.set_option(websocket::stream_base::decorator([chosen](websocket::response_type& answer) {
    answer.set(http::field::sec_websocket_protocol, chosen);
    answer.set(http::field::server, "alg_factory");
  }));
  socket_.read_message_max(FoxgloveProtocol::kLongestMessage);
  socket_.auto_fragment(false);
  socket_.async_accept(
      request, [self = shared_from_this()](const error_code& failed) { self->onAccepted(failed); });
}

void FoxgloveSession::refuse(http::status status, const char* why) {
  ++counters_.refusedClients;
  refusal_.emplace(status, 11);
  refusal_->set(http::field::content_type, "text/plain");
  if (status == http::status::upgrade_required) refusal_->set(http::field::upgrade, "websocket");
  refusal_->keep_alive(false);
  refusal_->body() = why;
  refusal_->prepare_payload();
  http::async_write(socket_.next_layer(), *refusal_,
                    [self = shared_from_this()](const error_code&, std::size_t) { self->drop(); });
}

void FoxgloveSession::onAccepted(const error_code& error) {
  if (over_) return;
  request_.reset();
  buffer_.clear();
  if (error) {
    ++counters_.refusedClients;
    return end();
  }
  open_ = true;
  for (std::string& text : FoxgloveProtocol::greeting()) say(std::move(text));
  read();
}

void FoxgloveSession::read() {
  socket_.async_read(buffer_, [self = shared_from_this()](const error_code& error, std::size_t) {
    self->onRead(error);
  });
}

void FoxgloveSession::onRead(const error_code& error) {
  if (over_) return;
  if (error) return end();
  std::string complaint;
  if (socket_.got_text()) {
    const asio::const_buffer bytes = buffer_.cdata();
    complaint = protocol_.onText({static_cast<const char*>(bytes.data()), bytes.size()});
  } else {
    complaint = R"({"op":"status","level":1,"message":"expected text, found bytes"})";
  }
  buffer_.clear();
  if (!complaint.empty()) {
    ++counters_.badMessages;
    if (++complaints_ > kMostComplaints) return drop();
    say(std::move(complaint));
  }
  read();
}

void FoxgloveSession::say(std::string text) {
  put({false, {}, std::make_shared<const std::string>(std::move(text))});
}

void FoxgloveSession::send(Channel channel, std::uint64_t hostNs, const Payload& payload) {
  if (!open_ || finishing_) return;
  for (const std::uint32_t id : protocol_.subscriptions(channel))
    put({true, FoxgloveProtocol::headOf(id, hostNs), payload});
}

void FoxgloveSession::put(Waiting message) {
  if (over_) return;
  waitingBytes_ += message.payload->size();
  waiting_.push_back(std::move(message));
  const std::size_t first = writing_ ? 1 : 0;
  while (waiting_.size() > first + 1 &&
         (waiting_.size() > rules_.mostWaiting || waitingBytes_ > rules_.mostWaitingBytes)) {
    waitingBytes_ -= waiting_[first].payload->size();
    waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(first));
    ++counters_.droppedMessages;
  }
  if (!writing_) writeNext();
}

void FoxgloveSession::writeNext() {
  if (waiting_.empty()) {
    if (finishing_) finish();
    return;
  }
  writing_ = true;
  const Waiting& message = waiting_.front();
  const std::array<asio::const_buffer, 2> bytes = {
      asio::buffer(message.head.data(), message.binary ? message.head.size() : 0),
      asio::buffer(*message.payload)};
  socket_.binary(message.binary);
  socket_.async_write(bytes, [self = shared_from_this()](const error_code& error, std::size_t) {
    if (self->over_) return;
    self->writing_ = false;
    if (error) return self->end();
    self->waitingBytes_ -= self->waiting_.front().payload->size();
    self->waiting_.pop_front();
    ++self->counters_.sentMessages;
    self->writeNext();
  });
}

void FoxgloveSession::finish() {
  if (over_) return;
  finishing_ = true;
  if (!open_) return drop();  // it was still shaking hands
  if (writing_ || !waiting_.empty()) return;
  open_ = false;
  socket_.async_close(websocket::close_code::going_away,
                      [self = shared_from_this()](const error_code&) { self->end(); });
}

void FoxgloveSession::drop() {
  error_code ignored;
  socket_.next_layer().close(ignored);
  end();
}

void FoxgloveSession::end() {
  if (over_) return;
  over_ = true;
  open_ = false;
  limit_.cancel();
  ended_();
}

}  // namespace stream
