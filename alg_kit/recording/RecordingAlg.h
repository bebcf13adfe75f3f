#pragma once

#include <alg_kit/recording/Recorder.h>
#include <alg_kit/session/TapAlg.h>

#include <chrono>
#include <string>

namespace recording {

struct RecordingAlgOptions : RecorderOptions, session::TapOptions {
  std::string clockName = "monotonic";  ///< Metadata::clock
  /// The library that the file names, where the recorded object is one around it; not owned.
  const algorithm::AlgBase* library = nullptr;
};

/// An algorithm object that records another: a tap with a recorder as its first sink.
///
///     recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), "session.algrec");
///
/// Use it in the place of the other object, from the host's first call on: a recording replays to
/// the same bytes only if the library was fresh when it began.
class RecordingAlg final : public session::TapAlg {
 public:
  /// @param alg   not owned; used until this object's end
  /// @param path  of the file that is made
  /// @throws RecordingError if the file cannot be made; std::invalid_argument if `alg` is null
  RecordingAlg(algorithm::AlgBase* alg, const std::string& path);
  RecordingAlg(algorithm::AlgBase* alg, const std::string& path,
               const RecordingAlgOptions& options);

  /// Completes the file.
  ~RecordingAlg() override;

  /// The recording goes on in another file, without a gap: see Recorder::continueIn.
  void continueIn(const std::string& path) { recorder_.continueIn(path); }

  /// Ends the recording and completes the file; later calls are only forwarded. Waits for the disk,
  /// for `limit` at the most (see Recorder::close); other threads' calls do not. From inside a
  /// callback it returns at once: the call that is under way is recorded too, and the file is
  /// complete soon after its return.
  RecorderStatus close(std::chrono::milliseconds limit = std::chrono::hours(1));

  RecorderStatus status() const { return recorder_.status(); }

 private:
  Recorder recorder_;
};

}  // namespace recording
