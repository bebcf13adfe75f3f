#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/Recorder.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace recording {

struct RecordingAlgOptions : RecorderOptions {
  /// Nanoseconds for Call::startNs; empty = the monotonic clock.
  std::function<std::int64_t()> clock;
  std::string clockName = "monotonic";  ///< Metadata::clock
  bool measureDurations = true;         ///< by the monotonic clock, whatever `clock` is
};

/// An algorithm object that records another: it forwards all seven operations and keeps what went
/// in and out, both callbacks included.
///
///     recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), "session.algrec");
///
/// Use it in the place of the other object, from the host's first call on: a recording replays to
/// the same bytes only if the library was fresh when it began.
///
/// Calls from several threads are put in one order, the recorded one: a query waits for the packet
/// that is under way, with its callbacks. A host whose callback waits for another thread's call
/// would wait for ever (as it would in `Deliver` without the recorder).
class RecordingAlg final : public algorithm::AlgBase,
                           private algorithm::DataSink,
                           private algorithm::LogSink {
 public:
  /// @param alg  not owned; used until this object's end
  /// @throws RecordingError if the file cannot be made; std::invalid_argument if `alg` is null
  RecordingAlg(algorithm::AlgBase* alg, const std::string& path);
  RecordingAlg(algorithm::AlgBase* alg, const std::string& path,
               const RecordingAlgOptions& options);

  /// Gives the host's sinks back to the library and completes the file.
  ~RecordingAlg();
  RecordingAlg(const RecordingAlg&) = delete;
  RecordingAlg& operator=(const RecordingAlg&) = delete;

  bool Init(int productType, const unsigned char* config, int configOffset) override;
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override;
  bool SetDataCallback(algorithm::DataSink* sink) override;
  bool SetLogCallback(algorithm::LogSink* sink) override;
  bool SetFilterMode(int parameter, int mode, void* reserved) override;
  int GetFixedCode() override;
  bool HandleEvent(int eventType, const void* input, void* output) override;

  /// The index that the next call gets.
  std::int64_t nextIndex() const;

  /// Adds where simulated markers really were.
  void addTruth(const std::vector<session::TruthRow>& rows);

  /// Ends the recording and completes the file; later calls are only forwarded.
  RecorderStatus close();

  RecorderStatus status() const { return recorder_.status(); }

 private:
  class Scope;

  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;

  algorithm::AlgBase* alg_;
  std::function<std::int64_t()> clock_;
  bool measureDurations_;
  Recorder recorder_;

  mutable std::recursive_mutex mutex_;  ///< makes one order of all calls
  bool closed_ = false;
  std::int64_t nextIndex_ = 0;
  int productType_ = 0;  ///< of the latest Init: it decides which bytes the library reads
  algorithm::DataSink* dataSink_ = nullptr;
  algorithm::LogSink* logSink_ = nullptr;

  /// A call that has not returned yet.
  struct Running {
    std::size_t entry = 0;  ///< its place in `unit_`
    int steps = 0;          ///< callbacks so far
  };
  std::vector<Running> running_;  ///< outermost first
  session::Unit unit_;
};

}  // namespace recording
