#include <alg_kit/session/TapAlg.h>

#include <alg_kit/session/MonotonicClock.h>
#include <alg_kit/session/Prefetch.h>
#include <alg_kit/session/ProcessGeneration.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <utility>

// What a host's call runs through is marked "hot": the linker lays it together. The host slept
// since its last frame, and each page and line of code that the call is strewn over is waited for.

namespace session {
namespace {

constexpr auto kLongestWait = std::chrono::seconds(1);

// Bytes of a call or an answer; the caller's pointer may be unaligned.
[[gnu::hot, gnu::flatten]] void copyBytes(const void* from, std::size_t size, Bytes& to) {
  const auto* const bytes = static_cast<const std::uint8_t*>(from);
  to.assign(bytes, size == 0 ? bytes : bytes + size);
}

algorithm::AlgBase* notNull(algorithm::AlgBase* alg) {
  if (alg == nullptr) throw std::invalid_argument("expected an algorithm object, found null");
  return alg;
}

/// Asks for the memory that an outermost call is about to write.
void prefetchFor(const Unit& unit, CallKind kind) {
  constexpr std::size_t kUsualPayload = 192;
  if (unit.used != 0 || unit.entries.empty()) return;
  const Entry& first = unit.entries.front();
  prefetch(&first, sizeof first);
  if (kind != CallKind::kInputStream) return;
  prefetch(first.call.payload.data(), kUsualPayload);
  prefetch(first.blocks.data(), sizeof(DeliveredBlock));
}

/// Stands while a callback runs on this thread that belongs to no call of its tap.
class PassingCallback {
 public:
  explicit PassingCallback(const void* relay) : relay_(relay), outer_(innermost_) {
    innermost_ = this;
  }
  ~PassingCallback() { innermost_ = outer_; }
  PassingCallback(const PassingCallback&) = delete;
  PassingCallback& operator=(const PassingCallback&) = delete;

  /// What differs from thread to thread, and costs no call to ask for.
  static const void* thisThread() { return &innermost_; }

  static bool standsFor(const void* relay) {
    for (const PassingCallback* one = innermost_; one != nullptr; one = one->outer_)
      if (one->relay_ == relay) return true;
    return false;
  }

 private:
  static thread_local const PassingCallback* innermost_;
  const void* const relay_;
  const PassingCallback* const outer_;
};

thread_local const PassingCallback* PassingCallback::innermost_ = nullptr;

}  // namespace

/// What the library is given as its sinks. The library keeps such a pointer for as long as the
/// process lives, may use it on any thread, and does not tell which one it has: so a relay outlives
/// its tap, and nothing has to be given back.
struct TapAlg::Relay final : algorithm::DataSink, algorithm::LogSink {
  explicit Relay(TapAlg& owner) : tap(owner) {}

  /// This thread is inside a call of the tap.
  bool onTapsThread() const {
    return thread.load(std::memory_order_relaxed) == PassingCallback::thisThread();
  }

  [[gnu::hot]] bool Deliver(const void* buffer, int offset, int length) override {
    if (onTapsThread()) return tap.deliver(buffer, offset, length);
    const PassingCallback passing(this);
    return data.load()->Deliver(buffer, offset, length);
  }

  bool Log(int level, const char* message) override {
    if (onTapsThread()) return tap.log(level, message);
    const PassingCallback passing(this);
    return messages.load()->Log(level, message);
  }

  static void keep(std::unique_ptr<Relay> relay) {
    static std::mutex lock;
    // Never destroyed: the library may use them until the last thread has ended.
    static auto* const kept = new std::vector<std::unique_ptr<Relay>>;
    const std::lock_guard<std::mutex> guard(lock);
    kept->push_back(std::move(relay));
  }

  TapAlg& tap;                               ///< used on the tap's thread only
  std::atomic<const void*> thread{nullptr};  ///< the one inside a call of the tap
  std::atomic<algorithm::DataSink*> data{nullptr};
  std::atomic<algorithm::LogSink*> messages{nullptr};
};

/// One call: has its place in the order and an entry, and ends it however the call ends. Without a
/// sink, and inside a callback of a call that went past the tap, it does nothing.
class TapAlg::Scope {
 public:
  /// @param fill  puts what the host passed into the session::Call
  template <typename Fill>
  Scope(TapAlg& tap, CallKind kind, Fill fill) : tap_(tap), lock_(tap.order_, std::defer_lock) {
    Relay& relay = *tap.relay_;
    if (!relay.onTapsThread()) {
      if (!tap.heard_ || PassingCallback::standsFor(&relay)) return;
      if (processGeneration() != tap.bornIn_) return;
      if (!lock_.try_lock_for(kLongestWait)) {
        tap.missOne();
        return;
      }
      relay.thread.store(PassingCallback::thisThread(), std::memory_order_relaxed);
    }
    prefetchFor(tap.unit_, kind);
    taken_ = true;
    const std::int64_t index = tap.nextIndex_++;
    ++tap.callsInUnit_;
    outer_ = std::exchange(tap.innermost_, this);
    tap.assemble([&] {
      entry_ = tap.unit_.used;
      Call& call = tap.unit_.append().call;
      call.index = index;
      call.kind = kind;
      if (outer_ != nullptr) {
        call.parent = outer_->call().index;
        call.parentStep = outer_->steps_ - 1;
      }
      fill(call);
      begunNs_ = monotonicNs();
      call.startNs = tap.options_.clock ? tap.options_.clock() : begunNs_;
    });
  }

  ~Scope() {
    if (!taken_) return;
    if (tap_.whole_ && !call().returned) endClock();
    tap_.innermost_ = outer_;
    if (!lock_.owns_lock()) return;
    tap_.handOver();
    tap_.relay_->thread.store(nullptr, std::memory_order_relaxed);
  }

  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

  template <typename Result>
  Result leave(Result result) {
    if (!recorded()) return result;
    endClock();
    call().returned = static_cast<int>(result);
    return result;
  }

  bool recorded() const { return taken_ && tap_.whole_; }
  Entry& entry() { return tap_.unit_.entries[entry_]; }
  Call& call() { return entry().call; }

  /// The place of a callback among those of this call.
  int nextStep() { return steps_++; }

 private:
  void endClock() {
    if (tap_.options_.measureDurations) call().durationNs = monotonicNs() - begunNs_;
  }

  TapAlg& tap_;
  std::unique_lock<QuickLock> lock_;  ///< owned by the outermost call
  Scope* outer_ = nullptr;            ///< the call in whose callback this one was made
  std::size_t entry_ = 0;             ///< its place in the unit
  int steps_ = 0;                     ///< callbacks so far
  std::int64_t begunNs_ = 0;
  bool taken_ = false;
};

TapAlg::TapAlg(algorithm::AlgBase* alg, TapOptions options)
    : alg_(notNull(alg)),
      options_(std::move(options)),
      relay_(std::make_unique<Relay>(*this)),
      bornIn_(processGeneration()) {}

TapAlg::~TapAlg() {
  if (processGeneration() == bornIn_)
    for (const Listener& listener : sinks_) listener.sink->end();
  if (libraryKnowsRelay_) Relay::keep(std::move(relay_));
}

bool TapAlg::Init(int productType, const unsigned char* config, int configOffset) {
  productType_ = productType;
  Scope scope(*this, CallKind::kInit, [&](Call& call) {
    call.type = productType;
    call.offset = configOffset;
    call.pointerGiven = config != nullptr;
    if (config != nullptr)
      copyBytes(config + configOffset, payloadSize(call, productType), call.payload);
  });
  return scope.leave(alg_->Init(productType, config, configOffset));
}

[[gnu::hot]] bool TapAlg::InputStream(int streamType, const unsigned char* buffer, int offset,
                                      int length) {
  Scope scope(*this, CallKind::kInputStream, [&](Call& call) {
    call.type = streamType;
    call.offset = offset;
    call.length = length;
    call.pointerGiven = buffer != nullptr;
    const std::size_t size = payloadSize(call, productType_);
    if (size > 0) copyBytes(buffer + offset, size, call.payload);
  });
  return scope.leave(alg_->InputStream(streamType, buffer, offset, length));
}

bool TapAlg::SetDataCallback(algorithm::DataSink* sink) {
  Scope scope(*this, CallKind::kSetDataCallback,
              [&](Call& call) { call.pointerGiven = sink != nullptr; });
  if (sink == nullptr) return scope.leave(alg_->SetDataCallback(nullptr));
  relay_->data = sink;
  libraryKnowsRelay_ = true;
  return scope.leave(alg_->SetDataCallback(relay_.get()));
}

bool TapAlg::SetLogCallback(algorithm::LogSink* sink) {
  Scope scope(*this, CallKind::kSetLogCallback,
              [&](Call& call) { call.pointerGiven = sink != nullptr; });
  if (sink == nullptr) return scope.leave(alg_->SetLogCallback(nullptr));
  relay_->messages = sink;
  libraryKnowsRelay_ = true;
  return scope.leave(alg_->SetLogCallback(relay_.get()));
}

bool TapAlg::SetFilterMode(int parameter, int mode, void* reserved) {
  Scope scope(*this, CallKind::kSetFilterMode, [&](Call& call) {
    call.type = parameter;
    call.mode = mode;
    call.pointerGiven = reserved != nullptr;
  });
  return scope.leave(alg_->SetFilterMode(parameter, mode, reserved));
}

int TapAlg::GetFixedCode() {
  Scope scope(*this, CallKind::kGetFixedCode, [](Call&) {});
  return scope.leave(alg_->GetFixedCode());
}

[[gnu::hot]] bool TapAlg::HandleEvent(int eventType, const void* input, void* output) {
  Scope scope(*this, CallKind::kHandleEvent, [&](Call& call) {
    call.type = eventType;
    call.pointerGiven = input != nullptr;
    call.outputGiven = output != nullptr;
    const std::size_t size = payloadSize(call, productType_);
    if (size > 0) copyBytes(input, size, call.payload);
  });
  const bool answered = scope.leave(alg_->HandleEvent(eventType, input, output));
  if (scope.recorded() && answered && output != nullptr)
    assemble([&] { copyBytes(output, answerSize(eventType), scope.call().output); });
  return answered;
}

[[gnu::hot]] bool TapAlg::deliver(const void* buffer, int offset, int length) {
  const bool known = length == sizeof(algorithm::ResultBlock);
  Scope& scope = *innermost_;
  std::size_t place = 0;
  assemble([&] {
    if (!known) return;
    auto& blocks = scope.entry().blocks;
    place = blocks.size();
    DeliveredBlock& delivered = blocks.emplace_back();
    delivered.step = scope.nextStep();
    std::memcpy(&delivered.block, static_cast<const unsigned char*>(buffer) + offset,
                sizeof delivered.block);
  });
  try {
    return relay_->data.load()->Deliver(buffer, offset, length);
  } catch (...) {
    if (whole_ && known) scope.entry().blocks[place].threw = true;
    throw;
  }
}

bool TapAlg::log(int level, const char* message) {
  Scope& scope = *innermost_;
  std::size_t place = 0;
  assemble([&] {
    auto& logs = scope.entry().logs;
    place = logs.size();
    logs.push_back({scope.nextStep(), level, message, false});
  });
  try {
    return relay_->messages.load()->Log(level, message);
  } catch (...) {
    if (whole_) scope.entry().logs[place].threw = true;
    throw;
  }
}

// Adds to the unit. Where that fails the host's call goes on, and the unit is given up.
template <typename Action>
void TapAlg::assemble(Action action) noexcept {
  if (!whole_) return;
  try {
    action();
  } catch (...) {
    whole_ = false;
  }
}

[[gnu::hot]] void TapAlg::handOver() noexcept {
  {
    const std::lock_guard<QuickLock> guard(sinksLock_);
    bool leaving = false;
    for (const Listener& listener : sinks_) {
      if (!whole_)
        listener.sink->miss(callsInUnit_);
      else if (&listener == &sinks_.back())
        listener.sink->takeOver(unit_);
      else
        listener.sink->take(unit_);
      leaving = leaving || listener.leaving;
    }
    if (leaving) endThoseLeaving();
  }
  unit_.clear();
  callsInUnit_ = 0;
  whole_ = true;
}

void TapAlg::endThoseLeaving() noexcept {
  const auto stay = std::stable_partition(
      sinks_.begin(), sinks_.end(), [](const Listener& listener) { return !listener.leaving; });
  for (auto leaves = stay; leaves != sinks_.end(); ++leaves) leaves->sink->end();
  sinks_.erase(stay, sinks_.end());
  heard_ = !sinks_.empty();
}

/// A call that was forwarded without its place in the order.
void TapAlg::missOne() noexcept {
  const std::lock_guard<QuickLock> guard(sinksLock_);
  for (const Listener& listener : sinks_) listener.sink->miss(1);
}

void TapAlg::add(UnitSink& sink) {
  const std::lock_guard<QuickLock> guard(sinksLock_);
  sinks_.push_back({&sink, false});
  heard_ = true;
}

void TapAlg::remove(UnitSink& sink) {
  if (processGeneration() != bornIn_) return;
  const std::lock_guard<QuickLock> guard(sinksLock_);
  const auto found = std::find_if(sinks_.begin(), sinks_.end(),
                                  [&](const Listener& listener) { return listener.sink == &sink; });
  if (found == sinks_.end()) return;
  if (insideCall()) {
    found->leaving = true;
    return;
  }
  found->sink->end();
  sinks_.erase(found);
  heard_ = !sinks_.empty();
}

bool TapAlg::insideCall() const {
  return relay_->onTapsThread();
}

void TapAlg::addTruth(const std::vector<TruthRow>& rows) {
  Unit unit;
  unit.truth = rows;
  const std::lock_guard<QuickLock> guard(sinksLock_);
  for (const Listener& listener : sinks_) listener.sink->take(unit);
}

}  // namespace session
