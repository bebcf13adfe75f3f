#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/session/UnitSink.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace recording {

struct RecorderOptions {
  bool overwrite = false;            ///< replace an existing file
  std::size_t queueCapacity = 8192;  ///< calls that may wait for the disk
  bool waitWhenFull = false;         ///< wait for the disk instead of dropping: for programs that
                                     ///< have no device to keep up with
  std::map<std::string, std::string> facts;  ///< added to the file's table `meta`
};

/// What became of the calls.
struct RecorderStatus {
  std::int64_t written = 0;  ///< calls that are safe in the file
  std::int64_t dropped = 0;  ///< calls that the queue or the disk did not take
  std::string error;         ///< what the disk said last; empty if nothing
};

/// Writes a recording on a thread of its own. What is handed over waits in a bounded queue; the
/// writer commits four times a second, so that a killed process or a full disk costs less than the
/// last second and never the file.
class Recorder final : public session::UnitSink {
 public:
  /// The file appears under its name at once, with all its tables.
  /// @throws RecordingError if it cannot be made, or exists and must not be replaced
  Recorder(const std::string& path, const RecorderOptions& options = {});

  /// Closes; what goes wrong shows in `status` only if `close` was called.
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Hands over a unit and leaves in its place, where there is one, a written unit for its storage.
  /// Neither waits (unless asked to) nor takes a lock. One thread at a time.
  void append(session::Unit& unit);

  /// Hands over a copy of a unit, as above.
  void take(const session::Unit& unit) noexcept override;

  /// Counts calls as dropped.
  void miss(std::int64_t calls) noexcept override;

  /// Has the writer write what waits and complete the file; does not wait for it.
  void end() noexcept override;

  /// Ends, and waits until the recording is one complete file. The second call does nothing.
  RecorderStatus close();

  RecorderStatus status() const;

 private:
  class Writer;

  void run();
  void drain();

  /// A bounded queue between two threads: one puts in, one takes out.
  class Ring {
   public:
    explicit Ring(std::size_t capacity) : units_(capacity) {}
    bool put(session::Unit& unit);   ///< moves it in; false where there is no room
    bool take(session::Unit& unit);  ///< moves one out; false where there is none
    std::size_t size() const;
    std::size_t capacity() const { return units_.size(); }

   private:
    std::vector<session::Unit> units_;
    std::atomic<std::size_t> head_{0};  ///< next to put
    std::atomic<std::size_t> tail_{0};  ///< next to take
  };

  Ring waiting_;
  Ring spent_;  ///< written units go back: a host's calls reuse little memory, which stays warm
  session::Unit copy_;  ///< of the unit to append
  bool waitWhenFull_;

  std::unique_ptr<Writer> writer_;
  std::atomic<std::int64_t> written_{0};
  std::atomic<std::int64_t> droppedByQueue_{0};
  std::atomic<std::int64_t> droppedByDisk_{0};
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::string error_;
  std::thread thread_;
};

}  // namespace recording
