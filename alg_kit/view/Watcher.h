#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/bodies/Body.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/view/FrameLog.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace view {

/// Reads one recording on a thread of its own: from its first call to its last, and on while a host
/// is still writing it. What it read is in `log`.
class Watcher {
 public:
  enum class State {
    kAbsent,   ///< there is no such file yet
    kReading,  ///< behind what the file holds
    kLive,     ///< all that was committed is read; more may follow
    kEnded,    ///< complete, and all of it is read
    kFailed,   ///< `problem` says why; what was read before stands
  };

  struct Status {
    State state = State::kAbsent;
    std::string problem;
    std::string path;
    double share = 0;              ///< of the calls that are there, 0 to 1
    recording::Metadata metadata;  ///< as of the latest look, of a recording under way
    int productType = -1;          ///< of the latest Init; -1 = none yet
    std::optional<algorithm::StereoCalibration> calibration;
    bool hasTruth = false;
    /// Of the latest calibration, by what was read; none = not judged yet.
    std::optional<analysis::HealthFacts> health;
    /// Seconds since something new was read, by this machine's clock.
    double secondsSinceNews = 0;
  };

  /// @param bodies  that are followed in it
  explicit Watcher(std::string path, std::vector<bodies::Body> bodies = {});
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  const FrameLog& log() const { return log_; }

  /// Called by the watching thread behind everything new; none = nobody is told. When this returns,
  /// the one before is not being called any more.
  void setListener(std::function<void()> listener);

  const std::string& path() const { return path_; }
  const std::vector<bodies::Body>& bodies() const { return bodies_; }
  Status status() const;

 private:
  class Work;
  void run() noexcept;
  void tell();

  const std::string path_;
  const std::vector<bodies::Body> bodies_;
  FrameLog log_;
  mutable std::mutex mutex_;
  Status status_;
  std::int64_t newsNs_ = 0;
  std::mutex listenerMutex_;
  std::function<void()> listener_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

/// "live", "ended": for programs.
const char* keyOf(Watcher::State state);

}  // namespace view
