#include <bindings/c/Host.h>

#include <bindings/c/Records.h>

#include <climits>
#include <cstring>
#include <utility>

namespace c_interface {
namespace {

void requireTrue(bool returned, const char* what) {
  if (!returned) throw Failure(ALG_REFUSED, std::string(what) + ": the library refused it");
}

template <typename Action>
void call(Action action) {
  try {
    action();
  } catch (const CallbackThrew&) {
    throw Failure(ALG_CALLBACK_FAILED, alg_status_text(ALG_CALLBACK_FAILED));
  }
}

}  // namespace

bool Callbacks::Deliver(const void* buffer, int offset, int length) {
  const Callback<alg_block_fn> callback = block_;
  if (callback.function == nullptr || length != sizeof(algorithm::ResultBlock)) return true;
  algorithm::ResultBlock block;
  std::memcpy(&block, static_cast<const unsigned char*>(buffer) + offset, sizeof block);
  const alg_block given = blockFrom(block);
  try {
    callback.function(&given, callback.user);
  } catch (...) {
    throw CallbackThrew();
  }
  return true;
}

bool Callbacks::Log(int level, const char* message) {
  const Callback<alg_log_fn> callback = log_;
  if (callback.function == nullptr) return true;
  try {
    callback.function(level, message, callback.user);
  } catch (...) {
    throw CallbackThrew();
  }
  return true;
}

Host& Host::instance() {
  static Host* const host = new Host;
  return *host;
}

Host::Host()
    : library_(algorithm::AlgFactory::CreateALG(0)), alg_(library_, [](algorithm::AlgBase*) {}) {}

Host& Host::at(alg_host* handle) {
  requireGiven(handle, "host");
  Host& host = instance();
  if (handle != host.handle() || host.opens_ == 0)
    throw Failure(ALG_BAD_HANDLE, "host: expected an open one, found a closed or foreign handle");
  return host;
}

void Host::giveSinks(algorithm::AlgBase& alg) {
  alg.SetLogCallback(&callbacks_);
  alg.SetDataCallback(&callbacks_);
}

void Host::open(int productType) {
  if (!algorithm::isProductType(productType))
    throw Failure(ALG_BAD_ARGUMENT,
                  "product type: expected 0, 1 or 2, found " + std::to_string(productType));
  const std::lock_guard<std::mutex> guard(opening_);
  if (replaying_) throw Failure(ALG_BUSY, "host: expected no replay, found one that runs");
  if (opens_ > 0 && productType != setUp_.productType)
    throw Failure(ALG_OTHER_SETTINGS, "host: expected product type " +
                                          std::to_string(setUp_.productType) +
                                          ", with which the process's one host is open, found " +
                                          std::to_string(productType));
  if (opens_ == 0) {
    setUp_.productType = productType;
    giveSinks(*library_);
  }
  ++opens_;
}

void Host::close() {
  const std::lock_guard<std::mutex> guard(opening_);
  if (--opens_ > 0) return;
  callbacks_.forget();
  ready_ = false;
  setUp_ = SetUp();
  if (recording_ == nullptr) return;
  const RecordingEnd end = stopRecording();
  if (!end.problem.empty()) throw Failure(ALG_FILE, end.problem);
}

void Host::init(const algorithm::StereoCalibration& calibration) {
  used_ = true;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&calibration);
  call([&] { requireTrue(alg()->Init(setUp_.productType, bytes, 0), "init"); });
  setUp_.calibration = calibration;
  ready_ = true;
}

void Host::setFilterMode(int mode) {
  used_ = true;
  call([&] { requireTrue(alg()->SetFilterMode(0, mode, nullptr), "filter mode"); });
  setUp_.filterMode = mode;
}

void Host::input(int streamType, const unsigned char* payload, std::size_t size) {
  requireReady();
  if (!algorithm::isStreamType(streamType))
    throw Failure(ALG_BAD_ARGUMENT,
                  "stream type: expected 0 to 5, found " + std::to_string(streamType));
  if (size > 0) requireGiven(payload, "payload");
  const std::size_t least = algorithm::leastPayloadSize(streamType);
  if (size < least || size > INT_MAX)
    throw Failure(ALG_BAD_SIZE, "payload: expected at least " + std::to_string(least) +
                                    " bytes and less than 2 GiB, found " + std::to_string(size));
  call([&] {
    requireTrue(alg()->InputStream(streamType, payload, 0, static_cast<int>(size)), "input");
  });
}

void Host::requireReady() const {
  if (!ready_)
    throw Failure(ALG_NOT_READY,
                  "host: expected one with a calibration, found none: alg_host_init");
}

void Host::record(std::unique_ptr<HostRecording> recording) {
  giveSinks(*recording->alg());
  recording->repeat(setUp_);
  std::atomic_store(&alg_, recording->alg());
  recording_ = std::move(recording);
}

RecordingEnd Host::stopRecording() {
  const std::unique_ptr<HostRecording> recording = std::move(recording_);
  // From here on nobody calls through the recorder; a query that is inside keeps it.
  std::atomic_store(&alg_, std::shared_ptr<algorithm::AlgBase>(library_, [](auto*) {}));
  giveSinks(*library_);
  return recording->close();
}

Host::Alone::Alone(Host& host) : host_(host) {
  if (host.alone_.test_and_set())
    throw Failure(ALG_BUSY, "host: expected no other call, found one that must be alone and runs");
}

Host::Alone::~Alone() {
  host_.alone_.clear();
}

Host::Replaying::Replaying(Host& host) : host_(host) {
  const std::lock_guard<std::mutex> guard(host.opening_);
  if (host.opens_ > 0 || host.replaying_)
    throw Failure(ALG_BUSY, host.replaying_ ? "replay: expected no other one, found one that runs"
                                            : "replay: expected no open host, found one");
  host.replaying_ = true;
  fresh_ = !std::exchange(host.used_, true);
}

Host::Replaying::~Replaying() {
  host_.giveSinks(*host_.library_);
  const std::lock_guard<std::mutex> guard(host_.opening_);
  host_.replaying_ = false;
}

}  // namespace c_interface
