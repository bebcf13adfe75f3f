#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/session/Player.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace recording {

/// A second recording of what is replayed, with today's answers and durations. Times stay those of
/// the recorded calls, and the truth comes along.
class ReRecording {
 public:
  /// @param reader  what is replayed; as `player`, used until this object's end
  /// @param player  plays through the new recorder from here on
  /// @param alg     what the recorder stands before
  /// @param library the one that the file names
  /// @param path    of the new file; an existing one is replaced
  /// @param facts   added to those of the recording
  /// @throws RecordingError if the file cannot be made
  ReRecording(const RecordingReader& reader, session::Player& player, algorithm::AlgBase* alg,
              const algorithm::AlgBase* library, const std::string& path,
              const std::map<std::string, std::string>& facts);

  /// Before every outermost call.
  void willPlay(const session::Call& call);

  /// Adds the truth and completes the file.
  RecorderStatus finish();

 private:
  /// Calls without a gap between them: where the recording has one, the new recording has none.
  struct Stretch {
    std::int64_t first, last;
    std::int64_t shift;  ///< of their new indices
  };

  std::optional<std::int64_t> newIndexOf(std::optional<std::int64_t> call) const;

  const RecordingReader& reader_;
  RecordingAlg alg_;
  std::vector<Stretch> played_;
};

}  // namespace recording
