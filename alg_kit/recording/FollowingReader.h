#pragma once

#include <alg_kit/recording/Recording.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace recording {

/// Whether there is a file of this name by now, for who would wait for it.
/// @throws RecordingError where there can be none: empty, too long, a loop of links, below a file
bool isThere(const std::string& path);

/// Reads a recording that a host may still be writing, in this process or another, as far as it has
/// been committed. `next` never waits: who follows asks again after a while.
///
///     recording::FollowingReader follower(path);
///     while (follower.state() != recording::FollowingReader::State::kEnded) {
///       while (follower.next(unit)) use(unit);
///       std::this_thread::sleep_for(std::chrono::milliseconds(50));
///     }
///
/// The file is open only inside `next`: between two calls nothing keeps the recorder from working
/// its journal in or from completing the file, and nothing on disk is changed, as with any reader.
/// Memory is bounded by one outermost call or 1 MB, whichever is more.
///
/// A recording that goes on in a next file is followed there. One that was cut off (its host was
/// killed) never ends: who follows decides how long to wait.
class FollowingReader {
 public:
  enum class State {
    kAbsent,    ///< there is no file of this name yet
    kUnderWay,  ///< all that `next` gave so far; more may follow
    kEnded,     ///< completed by its recorder, and all of it was given
  };

  /// @param path       the file; it need not be there yet
  /// @param firstCall  the index of the first outermost call to give
  explicit FollowingReader(std::string path, std::int64_t firstCall = 0);

  /// Fills `unit` (its storage is reused) with the next unit that was committed; false if there is
  /// none now. Units have no truth: see RecordingReader::truthOf.
  /// @throws RecordingError as a RecordingReader does, where another file took the name, and where
  ///         no file can have it
  bool next(session::Unit& unit);

  State state() const { return state_; }

  /// What the file that is read said of itself when it was last looked at.
  const Metadata& metadata() const { return metadata_; }

  /// The file that is read: the first one, or the one in which it goes on.
  const std::string& path() const { return path_; }

  /// The index from which `next` goes on.
  std::int64_t nextCall() const { return nextCall_; }

 private:
  void fill();
  bool read();
  bool goOnInNextFile();
  bool hasFile();

  std::string path_;
  std::set<std::string> parts_;   ///< the names of all files that were read
  std::string identity_;          ///< of the file on its disk; empty = not known yet
  std::int64_t firstUnread_ = 0;  ///< behind the calls in `ahead_`
  std::int64_t nextCall_ = 0;     ///< behind the calls that were given
  std::vector<session::Unit> ahead_;
  std::size_t aheadUsed_ = 0;
  std::size_t given_ = 0;  ///< of those in `ahead_`
  bool ended_ = false;     ///< the file is complete, and `ahead_` has its last unit
  State state_ = State::kAbsent;
  Metadata metadata_;
};

}  // namespace recording
