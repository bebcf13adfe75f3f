#pragma once

#include <alg_kit/session/TapAlg.h>
#include <alg_kit/session/UnitSink.h>
#include <alg_kit/stream/Scene.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace stream {

/// A stream that cannot begin. `what()` is one line: which address, what was expected, what was
/// found.
class StreamError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Output;

struct StreamOptions : SceneOptions {
  std::size_t queueCapacity = 256;  ///< units that may wait for the stream's thread
};

/// What became of it all. Counts since the beginning.
struct StreamStatus {
  std::int64_t droppedCalls = 0;     ///< calls that came too fast for the stream's thread
  std::int64_t sentMessages = 0;     ///< handed to a socket, each client's counted
  std::int64_t droppedMessages = 0;  ///< left out for clients that read too slowly, or not at all
  std::int64_t refusedClients = 0;   ///< one too many, or in no way that we speak
  std::int64_t badMessages = 0;      ///< of clients: not what the protocol knows
  int clients = 0;                   ///< now
  bool ended = false;                ///< all that will be sent has been sent
};

/// Sends what a session says to other programs, on a thread of its own. Derived classes say how.
///
///     recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), "session.algrec");
///     stream::FoxgloveServer viewers(alg);   // the one line
///
/// The host's threads never wait for it: `take` copies the unit into a ring without a lock; what is
/// too old when the thread comes to it is dropped and counted. Clients cannot reach the host: what
/// they do or do not do costs them messages.
///
/// A forked child streams nothing and may destroy its copy.
class StreamSink : public session::UnitSink {
 public:
  /// Sends what waits, for a second at the most, and closes all connections. Not from inside a
  /// callback of the tap's host.
  ~StreamSink() override;
  StreamSink(const StreamSink&) = delete;
  StreamSink& operator=(const StreamSink&) = delete;

  /// One thread at a time.
  void take(const session::Unit& unit) noexcept override;
  void miss(std::int64_t calls) noexcept override;

  /// What waits is still sent; does not wait for it.
  void end() noexcept override;

  StreamStatus status() const;

 protected:
  /// @param tap  where it listens from here on, until its end; null = `take` is called by others
  /// @throws StreamError where the output cannot begin, and as Scene
  StreamSink(std::shared_ptr<Output> output, const StreamOptions& options, session::TapAlg* tap);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace stream
