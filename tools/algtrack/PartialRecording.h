#pragma once

#include <alg_kit/recording/Recorder.h>
#include <tools/algtrack/terminal/OutputFile.h>

#include <string>

namespace algtrack {

/// A recording in the making, removed again unless it was completed: beside its final name, or, for
/// the standard output and devices, which cannot hold a database that grows, in a folder of its own
/// among the temporary files. Ctrl-C is for the command to look at meanwhile.
class PartialRecording {
 public:
  /// @param suffix  of its name until it is complete
  /// @throws std::runtime_error as outputPlace, or if there is one in the making already
  PartialRecording(const std::string& finalName, bool force, const std::string& suffix = kPartial);
  ~PartialRecording();
  PartialRecording(const PartialRecording&) = delete;
  PartialRecording& operator=(const PartialRecording&) = delete;

  const std::string& path() const { return path_; }

  /// Gives a closed recording its name, or copies it to where it was asked for.
  /// @throws std::runtime_error if anything could not be written, or after Ctrl-C
  void complete(const recording::RecorderStatus& status);

  /// The same for one that was closed without a fault.
  void complete();

 private:
  void removeAll() const;

  InterruptsNoted interrupts_;
  OutputPlace place_;
  Unfinished unfinished_;
  std::string folder_;  ///< temporary; empty = beside the final name
  std::string path_;
  bool completed_ = false;
};

}  // namespace algtrack
