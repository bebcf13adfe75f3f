#include <alg_kit/stream/StreamSink.h>

#include <alg_kit/session/ProcessGeneration.h>
#include <alg_kit/session/QuietThread.h>
#include <alg_kit/stream/Output.h>
#include <alg_kit/stream/UnitRing.h>

#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace stream {
namespace {

namespace asio = boost::asio;

constexpr int kUnitsAtOnce = 16;  // then the sockets have their turn
constexpr auto kFinishLimit = std::chrono::seconds(1);

/// Wakes a thread from another one that must not wait itself.
class Bell {
 public:
  Bell() : descriptor_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (descriptor_ < 0) throw StreamError(std::string("stream: ") + std::strerror(errno));
  }
  ~Bell() { close(descriptor_); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  void ring() noexcept {
    if (rung_.exchange(true)) return;
    const std::uint64_t one = 1;
    // It fails only where the thread has more rings waiting than a number can hold.
    [[maybe_unused]] const auto written = write(descriptor_, &one, sizeof one);
  }

  /// From here on it can ring again.
  void hear() noexcept {
    std::uint64_t rings = 0;
    [[maybe_unused]] const auto taken = read(descriptor_, &rings, sizeof rings);
    rung_ = false;
  }

  int descriptor() const { return descriptor_; }

 private:
  const int descriptor_;
  std::atomic<bool> rung_{false};
};

/// A thread of an ordinary kind that is woken takes the processor from the one that wakes it, here
/// from the host in the middle of its call. A batch thread does not. A host that has real-time
/// priority gives it to the stream too: there the two do not disturb each other.
void letHostGoFirst() {
  sched_param parameters{};
  int policy = SCHED_OTHER;
  if (pthread_getschedparam(pthread_self(), &policy, &parameters) == 0 && policy == SCHED_OTHER)
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &parameters);
}

/// Most calls of a host are queries, which a stream only counts.
bool hasNews(const session::Unit& unit) noexcept {
  return std::any_of(unit.begin(), unit.end(), [](const session::Entry& entry) {
    return entry.call.kind == session::CallKind::kInputStream || !entry.blocks.empty() ||
           !entry.logs.empty();
  });
}

}  // namespace

struct StreamSink::State {
  State(std::shared_ptr<Output> given, const StreamOptions& options)
      : output(std::move(given)), ring(options.queueCapacity), scene(output->listener(), options) {}

  bool inChild() const { return session::processGeneration() != bornIn; }

  void listen() {
    descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                          [this](const boost::system::error_code& error) {
                            if (error) return;
                            bell.hear();
                            drain();
                          });
  }

  void drain() {
    for (int i = 0; i < kUnitsAtOnce; ++i) {
      // Before the look at the ring: a unit that came before the end is not missed.
      const bool last = stopping;
      if (!ring.take(unit, before)) {
        if (last)
          finish();
        else
          listen();
        return;
      }
      scene.take(unit, before);
    }
    asio::post(context, [this] { drain(); });
  }

  void finish() {
    output->finish();
    limit.expires_after(kFinishLimit);
    limit.async_wait([this](const boost::system::error_code&) { context.stop(); });
    checkDone();
  }

  /// Ends early once the last connection is gone.
  void checkDone() {
    if (output->counters.clients == 0) {
      context.stop();
      return;
    }
    poll.expires_after(std::chrono::milliseconds(5));
    poll.async_wait([this](const boost::system::error_code&) { checkDone(); });
  }

  void run() noexcept {
    letHostGoFirst();
    // What a handler throws (memory that runs out) costs a message or a connection.
    for (bool again = false;;) {
      try {
        if (again) asio::post(context, [this] { drain(); });
        context.run();
        break;
      } catch (const std::exception&) {
        again = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    output->release();
    ended = true;
  }

  const int bornIn = session::processGeneration();
  std::shared_ptr<Output> output;
  UnitRing ring;
  std::atomic<bool> stopping{false}, ended{false};

  // Of the host's thread that calls `take`.
  Context soFar;

  // Of the stream's thread.
  Bell bell;
  asio::io_context context{1};
  asio::posix::stream_descriptor descriptor{context};
  asio::steady_timer limit{context}, poll{context};
  Scene scene;
  session::Unit unit;
  Context before;

  session::TapAlg* tap = nullptr;
  std::thread thread;
  std::shared_ptr<State> keptInChild;  ///< this state itself: nothing of it is ever destroyed there
};

StreamSink::StreamSink(std::shared_ptr<Output> output, const StreamOptions& options,
                       session::TapAlg* tap)
    : state_(std::make_shared<State>(std::move(output), options)) {
  State& state = *state_;
  try {
    state.output->begin(state.context);
  } catch (...) {
    state.output->release();
    throw;
  }
  state.descriptor.assign(dup(state.bell.descriptor()));
  state.listen();
  state.thread = session::quietThread([&state] { state.run(); });
  state.tap = tap;
  if (tap != nullptr) tap->add(*this);
}

StreamSink::~StreamSink() {
  State& state = *state_;
  if (state.inChild()) {
    // The thread and its sockets are the parent's.
    state.keptInChild = state_;
    return;
  }
  if (state.tap != nullptr) state.tap->remove(*this);
  end();
  state.thread.join();
}

void StreamSink::take(const session::Unit& unit) noexcept {
  State& state = *state_;
  if (state.stopping || state.inChild()) return;
  state.soFar.dropped = state.ring.dropped();
  const bool news = hasNews(unit);
  if (news) state.ring.put(unit, state.soFar);
  state.soFar.follow(unit);
  if (news) state.bell.ring();
}

void StreamSink::miss(std::int64_t calls) noexcept {
  state_->ring.drop(calls);
}

void StreamSink::end() noexcept {
  State& state = *state_;
  if (state.inChild()) return;
  state.stopping = true;
  state.bell.ring();
}

StreamStatus StreamSink::status() const {
  const State& state = *state_;
  const Counters& counters = state.output->counters;
  StreamStatus status;
  status.droppedCalls = state.ring.dropped();
  status.sentMessages = counters.sentMessages;
  status.droppedMessages = counters.droppedMessages;
  status.refusedClients = counters.refusedClients;
  status.badMessages = counters.badMessages;
  status.clients = counters.clients;
  status.ended = state.ended;
  return status;
}

}  // namespace stream
