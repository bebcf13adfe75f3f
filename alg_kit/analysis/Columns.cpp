#include <alg_kit/analysis/Columns.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace analysis {
namespace {

constexpr float kNoValue = std::numeric_limits<float>::quiet_NaN();
constexpr std::int64_t kNone = -1;
constexpr double kLongPause = 1;           // seconds
constexpr double kLongPauseIntervals = 5;  // and so many median intervals

double medianInterval(const std::vector<double>& times) {
  std::vector<double> intervals;
  for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
  if (intervals.empty()) return 0;
  const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
  std::nth_element(intervals.begin(), middle, intervals.end());
  return *middle;
}

void keepFirst(std::int64_t& kept, std::int64_t other) {
  if (kept == kNone) kept = other;
}

}  // namespace

Columns::Columns(std::size_t envelopes, std::size_t counts, std::size_t most)
    : most_(std::max<std::size_t>(most, 4)), envelopes_(envelopes), counts_(counts) {}

void Columns::append(double time) {
  times_.push_back(time);
  packets_.push_back(kNone);
  calls_.push_back(kNone);
  for (Envelope& envelope : envelopes_) {
    envelope.low.push_back(kNoValue);
    envelope.high.push_back(kNoValue);
  }
  for (auto& counts : counts_) counts.push_back(0);
}

void Columns::begin(double time, std::int64_t packet, std::int64_t call) {
  latest_ = times_.empty() ? Packet{time, 0} : Packet{time, latest_.number + 1};
  if (times_.empty()) begin_ = time;
  if (width_ == 0 && times_.size() == most_) shareColumns();
  if (width_ == 0) {
    append(time);
  } else {
    // Damaged times may lie far off: the width doubles some 60 times at most.
    while ((time - begin_) / width_ >= static_cast<double>(most_)) doubleWidth();
    const std::size_t column = columnOf(latest_);
    while (times_.size() <= column)
      append(begin_ + (static_cast<double>(times_.size()) + 0.5) * width_);
  }
  keepFirst(packets_.back(), packet);
  keepFirst(calls_.back(), call);
}

std::size_t Columns::columnOf(const Packet& packet) const {
  return width_ == 0 ? packet.number : static_cast<std::size_t>((packet.time - begin_) / width_);
}

void Columns::add(std::size_t column, std::size_t envelope, double value) {
  if (!std::isfinite(value)) return;
  // fmin and fmax take the number where the other is NaN.
  float& low = envelopes_[envelope].low[column];
  float& high = envelopes_[envelope].high[column];
  low = std::fmin(low, static_cast<float>(value));
  high = std::fmax(high, static_cast<float>(value));
}

void Columns::regroup(const std::vector<std::size_t>& columnOf, std::size_t count) {
  const auto gather = [&](auto& row, auto empty, auto join) {
    auto joined = std::decay_t<decltype(row)>(count, empty);
    for (std::size_t i = 0; i < row.size(); ++i) join(joined[columnOf[i]], row[i]);
    row = std::move(joined);
  };
  gather(packets_, kNone, keepFirst);
  gather(calls_, kNone, keepFirst);
  for (Envelope& envelope : envelopes_) {
    gather(envelope.low, kNoValue, [](float& low, float other) { low = std::fmin(low, other); });
    gather(envelope.high, kNoValue,
           [](float& high, float other) { high = std::fmax(high, other); });
  }
  for (auto& counts : counts_)
    gather(counts, std::int32_t{0}, [](std::int32_t& sum, std::int32_t n) { sum += n; });
  times_.resize(count);
  for (std::size_t i = 0; i < count; ++i)
    times_[i] = begin_ + (static_cast<double>(i) + 0.5) * width_;
}

void Columns::shareColumns() {
  // Two packets or more on average: a column is empty only where there is a pause.
  const double span = times_.back() - begin_;
  if (!(span > 0)) {  // all at one time, as in a damaged file
    width_ = 1;
    regroup(std::vector<std::size_t>(times_.size(), 0), 1);
    return;
  }
  width_ = span / (static_cast<double>(most_) / 2);
  std::vector<std::size_t> columnOf;
  for (const double time : times_)
    columnOf.push_back(static_cast<std::size_t>((time - begin_) / width_));
  regroup(columnOf, columnOf.back() + 1);
}

void Columns::doubleWidth() {
  width_ *= 2;
  std::vector<std::size_t> columnOf(times_.size());
  for (std::size_t i = 0; i < columnOf.size(); ++i) columnOf[i] = i / 2;
  regroup(columnOf, (times_.size() + 1) / 2);
}

void Columns::breakAtPauses() {
  if (width_ > 0) return;
  const double pause = std::max(kLongPause, kLongPauseIntervals * medianInterval(times_));
  std::vector<std::size_t> columnOf;
  std::vector<double> times;
  for (std::size_t i = 0; i < times_.size(); ++i) {
    if (i > 0 && times_[i] - times_[i - 1] > pause)
      times.push_back((times_[i] + times_[i - 1]) / 2);
    columnOf.push_back(times.size());
    times.push_back(times_[i]);
  }
  regroup(columnOf, times.size());
  times_ = std::move(times);
}

}  // namespace analysis
