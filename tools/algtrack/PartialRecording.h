#pragma once

#include <alg_kit/recording/Recorder.h>

#include <string>

namespace algtrack {

/// A recording in the making, beside its final name; removed again unless it was completed.
class PartialRecording {
 public:
  explicit PartialRecording(std::string finalPath);
  ~PartialRecording();
  PartialRecording(const PartialRecording&) = delete;
  PartialRecording& operator=(const PartialRecording&) = delete;

  const std::string& path() const { return path_; }

  /// Gives a closed recording its name.
  /// @throws std::runtime_error if anything could not be written
  void complete(const recording::RecorderStatus& status);

 private:
  std::string finalPath_;
  std::string path_;
  bool completed_ = false;
};

}  // namespace algtrack
