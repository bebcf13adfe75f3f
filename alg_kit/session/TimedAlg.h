#pragma once

#include <alg_factory/api/AlgFactory.h>

#include <cstdint>

namespace session {

/// An algorithm object that measures the time in another: from entry to return of its calls, less
/// the time in the host's callbacks. What a recorder between the host and the library costs is not
/// the library's. For one thread at a time.
class TimedAlg final : public algorithm::AlgBase,
                       private algorithm::DataSink,
                       private algorithm::LogSink {
 public:
  /// @param alg    not owned; it keeps this object as its sinks
  /// @param every  of so many calls that the host makes from outside one is timed, with all that
  ///               happens inside it, and stands for the others: looks at the clock cost as well
  explicit TimedAlg(algorithm::AlgBase* alg, int every = 1) : alg_(alg), every_(every) {}
  TimedAlg(const TimedAlg&) = delete;
  TimedAlg& operator=(const TimedAlg&) = delete;

  bool Init(int productType, const unsigned char* config, int configOffset) override;
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override;
  bool SetDataCallback(algorithm::DataSink* sink) override;
  bool SetLogCallback(algorithm::LogSink* sink) override;
  bool SetFilterMode(int parameter, int mode, void* reserved) override;
  int GetFixedCode() override;
  bool HandleEvent(int eventType, const void* input, void* output) override;

  /// Nanoseconds in the library so far.
  std::int64_t libraryNs() const { return libraryNs_; }

 private:
  class Crossing;

  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;

  algorithm::AlgBase* alg_;
  algorithm::DataSink* dataSink_ = nullptr;
  algorithm::LogSink* logSink_ = nullptr;
  const std::int64_t every_;
  std::int64_t calls_ = 0;  ///< from outside
  int depth_ = 0;           ///< crossings that are open
  bool times_ = false;      ///< the call from outside that goes on is timed
  bool inLibrary_ = false;
  std::int64_t sinceNs_ = 0;  ///< of the latest crossing
  std::int64_t libraryNs_ = 0;
};

}  // namespace session
