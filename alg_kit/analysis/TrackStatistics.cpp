#include <alg_kit/analysis/TrackStatistics.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace analysis {
namespace {

constexpr double kNoScatter = 1e-6;  // mm^2; below it, a variance is no motion
constexpr double kLeastNoiseShare = 0.5;
constexpr std::size_t kRestStep = 15;  // packets to go on by after a window without rest

bool isWhole(const std::vector<Place>& places) {
  return std::all_of(places.begin(), places.end(), isSomewhere);
}

double meanAlong(std::size_t axis, const std::vector<Place>& places) {
  double sum = 0;
  for (const Place& place : places) sum += axisOf(place, axis);
  return sum / static_cast<double>(places.size());
}

double squaresAlong(std::size_t axis, const std::vector<Place>& places) {
  const double mean = meanAlong(axis, places);
  double sum = 0;
  for (const Place& place : places) {
    const double d = axisOf(place, axis) - mean;
    sum += d * d;
  }
  return sum;
}

bool truthRests(const std::vector<Place>& truth) {
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    double low = axisOf(truth[0], axis), high = low;
    for (const Place& place : truth) {
      low = std::min(low, axisOf(place, axis));
      high = std::max(high, axisOf(place, axis));
    }
    if (high - low >= kTrueRest) return false;
  }
  return true;
}

bool seemsToRest(const std::vector<Place>& places) {
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    const double variance = squaresAlong(axis, places) / (static_cast<double>(places.size()) - 1);
    if (variance < kNoScatter) continue;
    double squares = 0;
    for (std::size_t i = 0; i + kSmoothingMemory < places.size(); ++i) {
      const double d = axisOf(places[i + kSmoothingMemory], axis) - axisOf(places[i], axis);
      squares += d * d;
    }
    const double noise = squares / (2 * static_cast<double>(places.size() - kSmoothingMemory));
    if (noise < kLeastNoiseShare * variance) return false;
  }
  return true;
}

/// Calls `visit(a, b, index of the pair)` for all pairs of objects.
template <typename Visit>
void forPairs(std::size_t objects, Visit visit) {
  std::size_t pair = 0;
  for (std::size_t a = 0; a < objects; ++a)
    for (std::size_t b = a + 1; b < objects; ++b) visit(a, b, pair++);
}

}  // namespace

Place nowhere() {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  return {nan, nan, nan};
}

bool isSomewhere(const Place& place) {
  return std::isfinite(place.x) && std::isfinite(place.y) && std::isfinite(place.z);
}

double axisOf(const Place& place, std::size_t axis) {
  return static_cast<double>(axis == 0 ? place.x : axis == 1 ? place.y : place.z);
}

double distance(const Place& a, const Place& b) {
  return std::hypot(axisOf(a, 0) - axisOf(b, 0), axisOf(a, 1) - axisOf(b, 1),
                    axisOf(a, 2) - axisOf(b, 2));
}

std::optional<Gap> GapFinder::add(const Moment& at, Presence presence) {
  last_ = at.seconds;
  if (presence == Presence::kAbsent) {
    if (!seen_) seen_ = at.seconds;
    if (gap_.packets++ == 0) gap_.first = at;
    return std::nullopt;
  }
  const auto gap = close(at.seconds);
  seen_.reset();
  if (presence == Presence::kSeen) seen_ = at.seconds;
  return gap;
}

std::optional<Gap> GapFinder::finish() {
  return close(last_);
}

std::optional<Gap> GapFinder::close(double seconds) {
  if (gap_.packets == 0) return std::nullopt;
  Gap gap = gap_;
  gap.seconds = seconds - seen_.value_or(gap.first.seconds);
  gap.without = seconds - gap.first.seconds;
  gap_ = {};
  return gap;
}

std::optional<Jump> JumpFinder::add(const Moment& at, const Place& place) {
  if (!isSomewhere(place)) return std::nullopt;
  std::optional<Jump> jump;
  if (last_) {
    const std::int64_t packets = at.packet - last_->packet;
    const double step = distance(place_, place);
    if (step > limitMm_ * static_cast<double>(packets)) jump = {at, packets, step};
  }
  last_ = at;
  place_ = place;
  return jump;
}

std::optional<Outlier> OutlierFinder::add(const Moment& at, const Place& place) {
  if (!isSomewhere(place)) return std::nullopt;
  const bool goesOn = before_ && run_.empty() && at.packet == before_->at.packet + 1;
  const bool runGoesOn = !run_.empty() && at.packet == run_.back().at.packet + 1;
  if (!before_ || goesOn) {
    before_ = Sighting{at, place};
    return std::nullopt;
  }
  if (run_.empty()) {
    run_.push_back({at, place});
    return std::nullopt;
  }
  if (runGoesOn) {
    run_.push_back({at, place});
    if (run_.size() > kLonelyPackets) {  // it has company: this is the track
      before_ = run_.back();
      run_.clear();
    }
    return std::nullopt;
  }
  // The run stood alone: this sighting is the one behind it.
  Outlier farthest;
  for (const Sighting& sighting : run_) {
    const double whole = at.seconds - before_->at.seconds;
    const double share = whole > 0 ? (sighting.at.seconds - before_->at.seconds) / whole : 0.5;
    const auto between = [&](float from, float to) {
      return static_cast<float>(static_cast<double>(from) +
                                share * (static_cast<double>(to) - static_cast<double>(from)));
    };
    const Place expected{between(before_->place.x, place.x), between(before_->place.y, place.y),
                         between(before_->place.z, place.z)};
    const double off = distance(expected, sighting.place);
    if (off > farthest.distanceMm) farthest = {sighting.at, off};
  }
  const bool isOff = farthest.distanceMm > limitMm_;
  if (!isOff) before_ = run_.back();
  run_ = {{at, place}};
  return isOff ? std::optional(farthest) : std::nullopt;
}

SwapFinder::SwapFinder(std::size_t objects, bool withTruth)
    : objects_(objects),
      withTruth_(withTruth),
      runs_(objects > 0 ? objects * (objects - 1) / 2 : 0) {}

bool SwapFinder::exchanged(const std::vector<Place>& places, const std::vector<Place>& truths,
                           std::size_t a, std::size_t b) const {
  // Comparisons are false where a place is missing, which is at a distance of NaN.
  if (withTruth_) {
    const double apart = distance(truths[a], truths[b]);
    const auto standsAt = [&](std::size_t object, std::size_t other) {
      const double away = distance(places[object], truths[other]);
      return away < apart / 2 && away < distance(places[object], truths[object]);
    };
    return apart >= kLeastTrueSeparation && standsAt(a, b) && standsAt(b, a);
  }
  if (earlier_.size() < kSmoothingMemory) return false;
  const Place &oldA = earlier_[0][a], &oldB = earlier_[0][b];
  const double apart = distance(oldA, oldB);
  return apart >= kLeastSwapSeparation && distance(places[a], oldB) < apart / 4 &&
         distance(places[b], oldA) < apart / 4;
}

void SwapFinder::close(Swap& run, const std::function<void(const Swap&)>& found) const {
  if (run.packets >= kLeastSwapPackets) {
    // Without the truth, it shows for as long as the packets compared lie on both sides of it.
    if (!withTruth_) run.packets = 0;
    found(run);
  }
  run = {};
}

void SwapFinder::add(const Moment& at, const std::vector<Place>& places,
                     const std::vector<Place>& truths,
                     const std::function<void(const Swap&)>& found) {
  forPairs(objects_, [&](std::size_t a, std::size_t b, std::size_t pair) {
    Swap& run = runs_[pair];
    if (!exchanged(places, truths, a, b)) {
      close(run, found);
      return;
    }
    if (run.packets == 0) run = {at, 0, a, b};
    ++run.packets;
  });
  if (withTruth_) return;
  if (earlier_.size() == kSmoothingMemory) earlier_.erase(earlier_.begin());
  earlier_.push_back(places);
}

void SwapFinder::finish(const std::function<void(const Swap&)>& found) {
  for (Swap& run : runs_) close(run, found);
}

void JitterMeter::add(const Place& raw, const Place& filtered, const Place& truth) {
  rawWindow_.push_back(raw);
  filteredWindow_.push_back(filtered);
  truthWindow_.push_back(truth);
  if (rawWindow_.size() < kRestWindow) return;
  const bool rests =
      isWhole(rawWindow_) &&
      (withTruth_ ? isWhole(truthWindow_) && truthRests(truthWindow_) : seemsToRest(rawWindow_));
  if (rests) {
    raw_.add(rawWindow_);
    if (isWhole(filteredWindow_)) filtered_.add(filteredWindow_);
  }
  const auto done = static_cast<std::ptrdiff_t>(rests ? kRestWindow : kRestStep);
  for (auto* window : {&rawWindow_, &filteredWindow_, &truthWindow_})
    window->erase(window->begin(), window->begin() + done);
}

void JitterMeter::Pool::add(const std::vector<Place>& window) {
  ++windows_;
  std::array<double, kAxes> mean{};
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    mean[axis] = meanAlong(axis, window);
    squares_[axis] += squaresAlong(axis, window);
  }
  for (const Place& place : window)
    largest_ = std::max(largest_, std::hypot(axisOf(place, 0) - mean[0], axisOf(place, 1) - mean[1],
                                             axisOf(place, 2) - mean[2]));
}

Jitter JitterMeter::Pool::get() const {
  Jitter jitter;
  jitter.windows = windows_;
  if (windows_ == 0) return jitter;
  const double freedom = static_cast<double>(windows_) * (kRestWindow - 1);
  double total = 0;
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    jitter.deviation[axis] = std::sqrt(squares_[axis] / freedom);
    total += squares_[axis] / freedom;
  }
  jitter.total = std::sqrt(total);
  jitter.largest = largest_;
  return jitter;
}

void LagMeter::add(const Place& raw, const Place& filtered) {
  for (std::size_t axis = 0; axis < kAxes; ++axis)
    raw_[axis][oldest_] = raw_[axis][oldest_ + kShifts] = axisOf(raw, axis);
  oldest_ = (oldest_ + 1) % kShifts;
  whole_ = isSomewhere(raw) ? whole_ + 1 : 0;
  filtered_[packets_++ % filtered_.size()] = filtered;
  // The filtered position that all shifts have a raw one for.
  const Place& late = filtered_[packets_ % filtered_.size()];
  if (whole_ < kShifts || !isSomewhere(late)) return;
  ++samples_;
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    const double place = axisOf(late, axis);
    const double* const row = raw_[axis].data() + oldest_;
    for (std::size_t i = 0; i < kShifts; ++i) {
      const double d = place - row[i];
      squares_[i] += d * d;
    }
  }
}

std::optional<Lag> LagMeter::get() const {
  // By shift - kFewestPackets: the newest raw place has the least shift.
  std::array<double, kShifts> squares;
  std::reverse_copy(squares_.begin(), squares_.end(), squares.begin());
  const auto least = std::min_element(squares.begin(), squares.end());
  const double worst = *std::max_element(squares.begin(), squares.end());
  if (samples_ < kLeastSamples || !(worst > kLeastContrast * kLeastContrast * *least))
    return std::nullopt;
  const auto at = static_cast<std::size_t>(least - squares.begin());
  double shift = static_cast<double>(at);
  double sum = *least;
  if (at > 0 && at + 1 < kShifts) {
    const double before = squares[at - 1], after = squares[at + 1];
    const double curvature = before - 2 * *least + after;
    const double offset = curvature > 0 ? 0.5 * (before - after) / curvature : 0;
    shift += offset;
    sum = std::max(0.0, *least - 0.25 * (before - after) * offset);
  }
  const auto count = static_cast<double>(samples_);
  return Lag{shift + kFewestPackets, std::sqrt(squares[kNoShift] / count), std::sqrt(sum / count),
             samples_};
}

}  // namespace analysis
