#pragma once

#include <alg_kit/view/Frame.h>
#include <alg_kit/view/SpillFile.h>
#include <alg_kit/view/Summary.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace view {

/// All frames of a recording, with a summary of every 8, 64, 512 ... of them, in temporary files:
/// memory does not grow with the recording. One thread adds, any thread reads.
class FrameLog {
 public:
  static constexpr std::uint64_t kShare = 8;  ///< summaries of one level in one of the next

  FrameLog();

  /// A further frame. It stays open: `amend` may still change it.
  void add(const Frame& frame);

  /// The latest frame as it is by now.
  void amend(const Frame& frame);

  /// Says later that an event happened in a frame.
  void mark(std::int64_t frame, Event event);

  std::int64_t size() const;
  /// Grows with everything that is added or changed.
  std::int64_t changes() const;

  /// @param i  from 0 to size() - 1
  Frame frame(std::int64_t i) const;
  double secondsOf(std::int64_t i) const;

  /// The last frame at or before a time; the first one before all. -1 without frames.
  std::int64_t at(double seconds) const;

  struct Series {
    std::int64_t framesEach = 1;
    std::vector<std::int64_t> first;  ///< the first frame of each
    std::vector<Summary> columns;
  };
  /// Frames `from` to `to` (included) in at most `most` columns, whole groups of frames.
  Series series(std::int64_t from, std::int64_t to, std::int64_t most) const;

  /// The nearest frame behind (or before) `from` that has any of the events.
  std::optional<std::int64_t> next(std::int64_t from, bool forward, EventSet wanted) const;

  std::uint64_t bytesOnDisk() const;

 private:
  struct Row {
    double seconds = 0;
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    EventSet events = 0;
  };
  struct Level {
    SpillRows<Summary> rows;
    Summary open;
  };

  void close();
  Row rowAt(std::int64_t i) const;
  Frame frameAt(std::int64_t i) const;
  Summary summaryAt(std::size_t level, std::uint64_t i) const;
  std::int64_t count() const { return static_cast<std::int64_t>(rows_.size()) + (open_ ? 1 : 0); }

  mutable std::mutex mutex_;
  mutable SpillFile frames_;
  mutable SpillRows<Row> rows_;
  mutable std::array<Level, 7> levels_;  ///< the last one's rows are 2 million frames each
  std::optional<Frame> open_;
  double before_ = -1;  ///< seconds of the frame before the open one
  std::int64_t changes_ = 0;
};

}  // namespace view
