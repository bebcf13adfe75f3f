#include <alg_kit/stream/OpenIgtLinkSession.h>

#include <boost/asio/write.hpp>

#include <chrono>
#include <utility>

namespace stream {
namespace {

constexpr auto kStallLimit = std::chrono::seconds(20);  // for one block

}  // namespace

using boost::system::error_code;

OpenIgtLinkSession::OpenIgtLinkSession(ClientSocket socket, Counters& counters)
    : socket_(std::move(socket)), stalled_(socket_.get_executor()), counters_(counters) {}

void OpenIgtLinkSession::begin(std::function<void()> ended) {
  ended_ = std::move(ended);
  read();
}

void OpenIgtLinkSession::read() {
  socket_.async_read_some(boost::asio::buffer(heard_),
                          [self = shared_from_this()](const error_code& error, std::size_t bytes) {
                            if (self->over_) return;
                            self->heardBytes_ += bytes;
                            if (self->heardBytes_ > kMostHeard) ++self->counters_.badMessages;
                            if (error || self->heardBytes_ > kMostHeard) return self->drop();
                            self->read();
                          });
}

void OpenIgtLinkSession::send(const Payload& bytes) {
  if (over_ || finishing_) return;
  waiting_.push_back(bytes);
  if (waiting_.size() > kMostWaiting) {
    waiting_.erase(waiting_.begin() + (writing_ ? 1 : 0));
    ++counters_.droppedMessages;
  }
  if (!writing_) writeNext();
}

void OpenIgtLinkSession::writeNext() {
  if (waiting_.empty()) {
    if (finishing_) drop();
    return;
  }
  writing_ = true;
  stalled_.expires_after(kStallLimit);
  stalled_.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) self->drop();
  });
  boost::asio::async_write(socket_, boost::asio::buffer(*waiting_.front()),
                           [self = shared_from_this()](const error_code& error, std::size_t) {
                             if (self->over_) return;
                             self->writing_ = false;
                             self->stalled_.cancel();
                             if (error) return self->drop();
                             self->waiting_.pop_front();
                             ++self->counters_.sentMessages;
                             self->writeNext();
                           });
}

void OpenIgtLinkSession::finish() {
  finishing_ = true;
  if (!writing_) drop();
}

void OpenIgtLinkSession::drop() {
  if (over_) return;
  over_ = true;
  error_code ignored;
  socket_.close(ignored);
  stalled_.cancel();
  ended_();
}

}  // namespace stream
