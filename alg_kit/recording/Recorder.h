#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/session/UnitSink.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace recording {

struct RecorderOptions {
  bool overwrite = false;                     ///< replace an existing file
  std::size_t queueCapacity = 8192;           ///< calls that may wait for the disk
  std::size_t queueBytes = 64 * 1024 * 1024;  ///< and the memory that they may take
  bool waitWhenFull = false;  ///< wait for the disk instead of dropping: for programs that
                              ///< have no device to keep up with
  std::int64_t maxBytes = 0;  ///< goes on in a next file once one is as large; 0 = never
  double maxSeconds = 0;      ///< the same for a file's duration
  std::int64_t minFreeBytes = 16 * 1024 * 1024;  ///< left free on the disk: drops what needs them
  std::chrono::milliseconds closeLimit{10000};   ///< how long the destructor waits for the disk
  /// Between two commits. What was committed survives the process, and who follows the file sees it
  /// so much later at most. Each costs the writer's thread a write that waits for the disk.
  std::chrono::milliseconds commitInterval{250};
  std::map<std::string, std::string> facts;  ///< added to the file's table `meta`
};

/// What became of the calls.
struct RecorderStatus {
  std::int64_t written = 0;  ///< calls that are safe in a file that still has its name
  std::int64_t dropped = 0;  ///< calls that are in no file
  std::string error;         ///< what went wrong last; empty if nothing
  std::string file;          ///< the file that is being written, or was written last
  int files = 1;             ///< so many files hold the recording
  bool closed = false;       ///< everything is on the disk, and the last file is complete
};

/// Writes a recording on a thread of its own. What is handed over waits in a bounded queue; the
/// writer commits several times a second, so that a killed process or a full disk costs less than
/// the last second and never the file.
///
/// - One file has one recorder: a second one is refused, in this process or another.
/// - A file that is removed, replaced or renamed while it is recorded shows in `status`; its calls
///   count as dropped unless they live on under the other name.
/// - A recording that goes on in a next file begins there with the calls that set the library up,
///   once more; `meta` names the neighbours.
/// - A forked child records nothing and may destroy its copy. The parent goes on.
/// - Where memory runs out, calls are dropped and counted. Nothing but the constructors throws.
/// - A process that ends without the destructor leaves a file that is not complete.
class Recorder final : public session::UnitSink {
 public:
  /// The file appears under its name at once, with all its tables.
  /// @throws RecordingError if it cannot be made, exists and must not be replaced, or has a
  /// recorder
  Recorder(const std::string& path, const RecorderOptions& options = {});

  /// Closes within `closeLimit`; what goes wrong shows in `status` only if `close` was called.
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Hands over a unit and leaves in its place, where there is one, a spent unit for its storage.
  /// Neither waits (unless asked to) nor takes a lock nor throws. One thread at a time.
  void append(session::Unit& unit) noexcept;

  /// Hands over a copy of a unit, as above.
  void take(const session::Unit& unit) noexcept override;

  /// Hands over the unit itself.
  void takeOver(session::Unit& unit) noexcept override;

  /// Counts calls as dropped. Any thread.
  void miss(std::int64_t calls) noexcept override;

  /// Has the writer write what waits and complete the file; does not wait for it.
  void end() noexcept override;

  /// What is appended from here on goes to another file, without a gap. Any thread; nothing that is
  /// appended meanwhile waits.
  /// @throws RecordingError if the file cannot be made; then the recording goes on as it was
  void continueIn(const std::string& path);

  /// Writes what waits and makes the recording one complete file. Returns after `limit` at the
  /// latest: `closed` is false where the disk still does not answer; the writing goes on then as
  /// long as the process lives, and `close` may be called again.
  RecorderStatus close(std::chrono::milliseconds limit = std::chrono::hours(1));

  RecorderStatus status() const;

 private:
  struct State;

  session::Unit copy_;            ///< of the unit to append
  std::shared_ptr<State> state_;  ///< the writer's too, which may outlive this object
};

}  // namespace recording
