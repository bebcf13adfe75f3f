// What a stream's thread drives. Not for hosts: it needs Asio's headers.
#pragma once

#include <alg_kit/stream/StreamSink.h>

#include <boost/asio/io_context.hpp>

#include <atomic>

namespace stream {

struct Counters {
  std::atomic<std::int64_t> sentMessages{0}, droppedMessages{0}, refusedClients{0}, badMessages{0};
  std::atomic<int> clients{0};
};

class Output {
 public:
  virtual ~Output() = default;

  /// What the scene tells, on the thread.
  virtual Listener& listener() = 0;

  /// Before the thread runs.
  /// @throws StreamError
  virtual void begin(boost::asio::io_context& context) = 0;

  /// On the thread: nothing more will be sent. Closes what is open, once what waits is sent.
  virtual void finish() = 0;

  /// On the thread: lets go of all that belongs to the io_context.
  virtual void release() = 0;

  Counters counters;
};

}  // namespace stream
