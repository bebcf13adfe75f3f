#include <alg_kit/session/TimedAlg.h>

#include <chrono>

namespace session {

/// From here to its end the time belongs to the other side; exceptions cross back as well.
class TimedAlg::Crossing {
 public:
  explicit Crossing(TimedAlg& timed, bool intoLibrary) : timed_(timed), before_(timed.inLibrary_) {
    if (timed_.depth_++ == 0) timed_.times_ = timed_.calls_++ % timed_.every_ == 0;
    cross(intoLibrary);
  }
  ~Crossing() {
    cross(before_);
    --timed_.depth_;
  }
  Crossing(const Crossing&) = delete;
  Crossing& operator=(const Crossing&) = delete;

 private:
  void cross(bool intoLibrary) {
    if (!timed_.times_) {
      timed_.inLibrary_ = intoLibrary;
      return;
    }
    const std::int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::steady_clock::now().time_since_epoch())
                                 .count();
    if (timed_.inLibrary_) timed_.libraryNs_ += timed_.every_ * (now - timed_.sinceNs_);
    timed_.inLibrary_ = intoLibrary;
    timed_.sinceNs_ = now;
  }

  TimedAlg& timed_;
  bool before_;
};

bool TimedAlg::Init(int productType, const unsigned char* config, int configOffset) {
  const Crossing crossing(*this, true);
  return alg_->Init(productType, config, configOffset);
}

bool TimedAlg::InputStream(int streamType, const unsigned char* buffer, int offset, int length) {
  const Crossing crossing(*this, true);
  return alg_->InputStream(streamType, buffer, offset, length);
}

bool TimedAlg::SetDataCallback(algorithm::DataSink* sink) {
  dataSink_ = sink;
  const Crossing crossing(*this, true);
  return alg_->SetDataCallback(sink == nullptr ? nullptr : this);
}

bool TimedAlg::SetLogCallback(algorithm::LogSink* sink) {
  logSink_ = sink;
  const Crossing crossing(*this, true);
  return alg_->SetLogCallback(sink == nullptr ? nullptr : this);
}

bool TimedAlg::SetFilterMode(int parameter, int mode, void* reserved) {
  const Crossing crossing(*this, true);
  return alg_->SetFilterMode(parameter, mode, reserved);
}

int TimedAlg::GetFixedCode() {
  const Crossing crossing(*this, true);
  return alg_->GetFixedCode();
}

bool TimedAlg::HandleEvent(int eventType, const void* input, void* output) {
  const Crossing crossing(*this, true);
  return alg_->HandleEvent(eventType, input, output);
}

bool TimedAlg::Deliver(const void* buffer, int offset, int length) {
  const Crossing crossing(*this, false);
  return dataSink_->Deliver(buffer, offset, length);
}

bool TimedAlg::Log(int level, const char* message) {
  const Crossing crossing(*this, false);
  return logSink_->Log(level, message);
}

}  // namespace session
