#include <alg_kit/view/FrameLog.h>

#include <algorithm>

namespace view {
namespace {

std::uint64_t framesIn(std::size_t level) {
  std::uint64_t frames = FrameLog::kShare;
  for (std::size_t i = 0; i < level; ++i) frames *= FrameLog::kShare;
  return frames;
}

bool has(const Summary& summary, EventSet wanted) {
  for (std::size_t i = 0; i < kEvents; ++i)
    if (((wanted >> i) & 1u) != 0 && summary.events[i] > 0) return true;
  return false;
}

}  // namespace

FrameLog::FrameLog() = default;

void FrameLog::add(const Frame& frame) {
  const std::lock_guard<std::mutex> guard(mutex_);
  close();
  open_ = frame;
  ++changes_;
}

void FrameLog::amend(const Frame& frame) {
  const std::lock_guard<std::mutex> guard(mutex_);
  open_ = frame;
  ++changes_;
}

void FrameLog::close() {
  if (!open_) return;
  const std::string bytes = bytesOf(*open_);
  Row row;
  row.seconds = open_->seconds;
  row.offset = frames_.append(bytes.data(), bytes.size());
  row.size = static_cast<std::uint32_t>(bytes.size());
  row.events = open_->events;
  rows_.append(row);
  const Summary summary(*open_, before_);
  for (std::size_t i = 0; i < levels_.size(); ++i) {
    Level& level = levels_[i];
    level.open.add(summary);
    if (level.open.frames < framesIn(i)) continue;
    level.rows.append(level.open);
    level.open = Summary();
  }
  before_ = open_->seconds;
  open_.reset();
}

void FrameLog::mark(std::int64_t frame, Event event) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto i = static_cast<std::uint64_t>(frame);
  ++changes_;
  if (i >= rows_.size()) {
    if (open_) open_->events |= setOf(event);
    return;
  }
  Row row = rows_.at(i);
  if ((row.events & setOf(event)) != 0) return;
  row.events |= setOf(event);
  rows_.replace(i, row);
  for (std::size_t k = 0; k < levels_.size(); ++k) {
    Level& level = levels_[k];
    const std::uint64_t at = i / framesIn(k);
    if (at >= level.rows.size()) {
      ++level.open.events[static_cast<std::size_t>(event)];
      continue;
    }
    Summary summary = level.rows.at(at);
    ++summary.events[static_cast<std::size_t>(event)];
    level.rows.replace(at, summary);
  }
}

std::int64_t FrameLog::size() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return count();
}

std::int64_t FrameLog::changes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return changes_;
}

FrameLog::Row FrameLog::rowAt(std::int64_t i) const {
  if (static_cast<std::uint64_t>(i) < rows_.size()) return rows_.at(static_cast<std::uint64_t>(i));
  Row row;
  row.seconds = open_->seconds;
  row.events = open_->events;
  return row;
}

Frame FrameLog::frameAt(std::int64_t i) const {
  if (static_cast<std::uint64_t>(i) >= rows_.size()) return *open_;
  const Row row = rowAt(i);
  std::string bytes(row.size, '\0');
  frames_.read(row.offset, bytes.data(), bytes.size());
  Frame frame = frameFrom(bytes);
  frame.events = row.events;
  return frame;
}

Frame FrameLog::frame(std::int64_t i) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return frameAt(i);
}

double FrameLog::secondsOf(std::int64_t i) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return rowAt(i).seconds;
}

std::int64_t FrameLog::at(double seconds) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::int64_t low = 0, high = count();
  while (low < high) {
    const std::int64_t middle = low + (high - low) / 2;
    if (rowAt(middle).seconds <= seconds)
      low = middle + 1;
    else
      high = middle;
  }
  return low > 0 ? low - 1 : (count() > 0 ? 0 : -1);
}

Summary FrameLog::summaryAt(std::size_t level, std::uint64_t i) const {
  Level& rows = levels_[level];
  return i < rows.rows.size() ? rows.rows.at(i) : rows.open;
}

FrameLog::Series FrameLog::series(std::int64_t from, std::int64_t to, std::int64_t most) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  Series series;
  if (to - from < most) {
    for (std::int64_t i = from; i <= to; ++i) {
      series.first.push_back(i);
      series.columns.emplace_back(frameAt(i), i > 0 ? rowAt(i - 1).seconds : -1);
    }
    return series;
  }
  std::size_t level = 0;
  const auto columnsOf = [&](std::size_t l) {
    const auto each = static_cast<std::int64_t>(framesIn(l));
    return to / each - from / each + 1;
  };
  while (level + 1 < levels_.size() && columnsOf(level) > most) ++level;
  series.framesEach = static_cast<std::int64_t>(framesIn(level));
  for (std::int64_t i = from / series.framesEach; i <= to / series.framesEach; ++i) {
    Summary summary = summaryAt(level, static_cast<std::uint64_t>(i));
    if (summary.frames == 0) continue;
    series.first.push_back(i * series.framesEach);
    series.columns.push_back(summary);
  }
  return series;
}

std::optional<std::int64_t> FrameLog::next(std::int64_t from, bool forward, EventSet wanted) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const std::int64_t step = forward ? 1 : -1;
  for (std::int64_t i = std::clamp<std::int64_t>(from, -1, count()) + step;
       i >= 0 && i < count();) {
    if ((rowAt(i).events & wanted) != 0) return i;
    // Passes by the largest group that begins (or ends) here and has none.
    std::int64_t passed = 1;
    for (std::size_t level = 0; level < levels_.size(); ++level) {
      const auto each = static_cast<std::int64_t>(framesIn(level));
      const std::int64_t edge = forward ? i : i + 1;
      if (edge % each != 0) break;
      const std::int64_t group = i / each;
      if (static_cast<std::uint64_t>(group) >= levels_[level].rows.size()) break;
      if (has(summaryAt(level, static_cast<std::uint64_t>(group)), wanted)) break;
      passed = each;
    }
    i += step * passed;
  }
  return std::nullopt;
}

std::uint64_t FrameLog::bytesOnDisk() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::uint64_t bytes = frames_.size() + rows_.bytes();
  for (const Level& level : levels_) bytes += level.rows.bytes();
  return bytes;
}

}  // namespace view
