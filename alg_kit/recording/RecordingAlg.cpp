#include <alg_kit/recording/RecordingAlg.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace recording {
namespace {

std::int64_t monotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

RecorderOptions withClock(const RecordingAlgOptions& options) {
  RecorderOptions result = options;
  result.facts["clock"] = options.clockName;
  return result;
}

// Bytes of a call or an answer; the caller's pointer may be unaligned.
void copyBytes(const void* from, std::size_t size, session::Bytes& to) {
  const auto* const bytes = static_cast<const std::uint8_t*>(from);
  to.assign(bytes, size == 0 ? bytes : bytes + size);
}

}  // namespace

/// One call: holds the order, has an entry, and ends it however the call ends.
class RecordingAlg::Scope {
 public:
  Scope(RecordingAlg& alg, session::CallKind kind) : alg_(alg), lock_(alg.mutex_) {
    if (alg.closed_) return;
    session::Unit& unit = alg.unit_;
    if (unit.used == unit.entries.size()) unit.entries.emplace_back();
    index_ = unit.used;
    session::Entry& entry = unit.entries[index_];
    entry.logs.clear();
    entry.blocks.clear();
    session::Call& call = entry.call;
    session::Bytes payload = std::move(call.payload);
    session::Bytes output = std::move(call.output);
    payload.clear();
    output.clear();
    call = session::Call();
    call.payload = std::move(payload);
    call.output = std::move(output);
    call.index = alg.nextIndex_;
    call.kind = kind;
    if (!alg.running_.empty()) {
      const Running& outer = alg.running_.back();
      call.parent = unit.entries[outer.entry].call.index;
      call.parentStep = outer.steps - 1;
    }
    alg.running_.push_back({index_, 0});
    ++unit.used;
    ++alg.nextIndex_;
    recorded_ = true;
  }

  ~Scope() {
    if (!recorded_) return;
    if (!call().returned) endClock();
    alg_.running_.pop_back();
    if (!alg_.running_.empty()) return;
    alg_.recorder_.append(alg_.unit_);
    alg_.unit_.used = 0;
    alg_.unit_.truth.clear();
  }

  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

  /// Fills what the host passed; the clock is read last.
  template <typename Fill>
  void enter(Fill fill) {
    if (!recorded_) return;
    fill(call());
    begunNs_ = monotonicNs();
    call().startNs = alg_.clock_ ? alg_.clock_() : begunNs_;
  }

  template <typename Result>
  Result leave(Result result) {
    if (!recorded_) return result;
    endClock();
    call().returned = static_cast<int>(result);
    return result;
  }

  bool recorded() const { return recorded_; }
  session::Call& call() { return alg_.unit_.entries[index_].call; }

 private:
  void endClock() {
    if (alg_.measureDurations_) call().durationNs = monotonicNs() - begunNs_;
  }

  RecordingAlg& alg_;
  std::unique_lock<std::recursive_mutex> lock_;
  std::size_t index_ = 0;
  std::int64_t begunNs_ = 0;
  bool recorded_ = false;
};

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path)
    : RecordingAlg(alg, path, RecordingAlgOptions()) {}

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path,
                           const RecordingAlgOptions& options)
    : alg_(alg != nullptr
               ? alg
               : throw std::invalid_argument("expected an algorithm object to record, found null")),
      clock_(options.clock),
      measureDurations_(options.measureDurations),
      recorder_(path, withClock(options)) {}

RecordingAlg::~RecordingAlg() {
  close();
  if (dataSink_ != nullptr) alg_->SetDataCallback(dataSink_);
  if (logSink_ != nullptr) alg_->SetLogCallback(logSink_);
}

bool RecordingAlg::Init(int productType, const unsigned char* config, int configOffset) {
  Scope scope(*this, session::CallKind::kInit);
  productType_ = productType;
  scope.enter([&](session::Call& call) {
    call.type = productType;
    call.offset = configOffset;
    call.pointerGiven = config != nullptr;
    if (config != nullptr)
      copyBytes(config + configOffset, session::payloadSize(call, productType), call.payload);
  });
  return scope.leave(alg_->Init(productType, config, configOffset));
}

bool RecordingAlg::InputStream(int streamType, const unsigned char* buffer, int offset,
                               int length) {
  Scope scope(*this, session::CallKind::kInputStream);
  scope.enter([&](session::Call& call) {
    call.type = streamType;
    call.offset = offset;
    call.length = length;
    call.pointerGiven = buffer != nullptr;
    const std::size_t size = session::payloadSize(call, productType_);
    if (size > 0) copyBytes(buffer + offset, size, call.payload);
  });
  return scope.leave(alg_->InputStream(streamType, buffer, offset, length));
}

bool RecordingAlg::SetDataCallback(algorithm::DataSink* sink) {
  Scope scope(*this, session::CallKind::kSetDataCallback);
  scope.enter([&](session::Call& call) { call.pointerGiven = sink != nullptr; });
  if (sink != nullptr) dataSink_ = sink;
  return scope.leave(
      alg_->SetDataCallback(sink != nullptr ? static_cast<algorithm::DataSink*>(this) : nullptr));
}

bool RecordingAlg::SetLogCallback(algorithm::LogSink* sink) {
  Scope scope(*this, session::CallKind::kSetLogCallback);
  scope.enter([&](session::Call& call) { call.pointerGiven = sink != nullptr; });
  if (sink != nullptr) logSink_ = sink;
  return scope.leave(
      alg_->SetLogCallback(sink != nullptr ? static_cast<algorithm::LogSink*>(this) : nullptr));
}

bool RecordingAlg::SetFilterMode(int parameter, int mode, void* reserved) {
  Scope scope(*this, session::CallKind::kSetFilterMode);
  scope.enter([&](session::Call& call) {
    call.type = parameter;
    call.mode = mode;
    call.pointerGiven = reserved != nullptr;
  });
  return scope.leave(alg_->SetFilterMode(parameter, mode, reserved));
}

int RecordingAlg::GetFixedCode() {
  Scope scope(*this, session::CallKind::kGetFixedCode);
  scope.enter([](session::Call&) {});
  return scope.leave(alg_->GetFixedCode());
}

bool RecordingAlg::HandleEvent(int eventType, const void* input, void* output) {
  Scope scope(*this, session::CallKind::kHandleEvent);
  scope.enter([&](session::Call& call) {
    call.type = eventType;
    call.pointerGiven = input != nullptr;
    call.outputGiven = output != nullptr;
    const std::size_t size = session::payloadSize(call, productType_);
    if (size > 0) copyBytes(input, size, call.payload);
  });
  const bool answered = scope.leave(alg_->HandleEvent(eventType, input, output));
  if (scope.recorded() && answered && output != nullptr)
    copyBytes(output, session::answerSize(eventType), scope.call().output);
  return answered;
}

bool RecordingAlg::Deliver(const void* buffer, int offset, int length) {
  const std::lock_guard<std::recursive_mutex> guard(mutex_);
  // Outside of a recorded call: another object drives the pipeline past us.
  if (running_.empty() || length != sizeof(algorithm::ResultBlock))
    return dataSink_->Deliver(buffer, offset, length);

  Running& running = running_.back();
  const std::size_t entry = running.entry;
  auto& blocks = unit_.entries[entry].blocks;
  const std::size_t place = blocks.size();
  session::DeliveredBlock& delivered = blocks.emplace_back();
  delivered.step = running.steps++;
  std::memcpy(&delivered.block, static_cast<const unsigned char*>(buffer) + offset,
              sizeof delivered.block);
  try {
    return dataSink_->Deliver(buffer, offset, length);
  } catch (...) {
    unit_.entries[entry].blocks[place].threw = true;
    throw;
  }
}

bool RecordingAlg::Log(int level, const char* message) {
  const std::lock_guard<std::recursive_mutex> guard(mutex_);
  if (running_.empty()) return logSink_->Log(level, message);

  Running& running = running_.back();
  const std::size_t entry = running.entry;
  auto& logs = unit_.entries[entry].logs;
  const std::size_t place = logs.size();
  logs.push_back({running.steps++, level, message, false});
  try {
    return logSink_->Log(level, message);
  } catch (...) {
    unit_.entries[entry].logs[place].threw = true;
    throw;
  }
}

std::int64_t RecordingAlg::nextIndex() const {
  const std::lock_guard<std::recursive_mutex> guard(mutex_);
  return nextIndex_;
}

void RecordingAlg::addTruth(const std::vector<session::TruthRow>& rows) {
  const std::lock_guard<std::recursive_mutex> guard(mutex_);
  if (closed_) return;
  session::Unit unit;
  unit.truth = rows;
  recorder_.append(unit);
}

RecorderStatus RecordingAlg::close() {
  const std::lock_guard<std::recursive_mutex> guard(mutex_);
  closed_ = true;
  return recorder_.close();
}

}  // namespace recording
