#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/session/Session.h>

#include <chrono>
#include <optional>
#include <string>

namespace algtrack {

/// Says in one line on standard error that a recording's journal is not beside it: what the command
/// gives ends before the recording did.
void noteMissingJournal(const recording::RecordingReader& reader);

/// The same once for who follows a recording from before it was there. A recorder makes the journal
/// a moment after the file: it has to be missing for a while.
class LateJournalNote {
 public:
  /// @param metadata  of the file as it is now
  void look(const std::string& file, const recording::Metadata& metadata);

 private:
  std::optional<std::chrono::steady_clock::time_point> missingSince_;
  bool said_ = false;
};

/// Says in one line where the baseline of a recording's latest calibration has a length that no
/// pair in millimetres has.
void noteUnit(const recording::RecordingReader& reader);

/// The same of the calibration that an Init call of the recording `file` was given; of other calls
/// nothing.
void noteUnit(const session::Call& call, const std::string& file);

/// Both of a recording: a missing journal, and a unit that is not millimetres.
void noteDoubts(const recording::RecordingReader& reader);

}  // namespace algtrack
