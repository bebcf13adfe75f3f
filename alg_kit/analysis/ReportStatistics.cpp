#include <alg_kit/analysis/ReportStatistics.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace analysis {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kBinsPerDecade = 20;
constexpr double kMostBins = 400;
constexpr double kLongPause = 1;           // seconds
constexpr double kLongPauseIntervals = 5;  // and so many median intervals
constexpr double kNoScatter = 1e-6;        // mm^2; below it, a variance is no motion
constexpr double kLeastNoiseShare = 0.5;
constexpr std::size_t kRestStep = 15;

double nearestRank(const std::vector<double>& sorted, double share) {
  const double rank = std::ceil(share * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

bool wholeWindow(const std::vector<Place>& places, std::size_t first) {
  if (first + kRestWindow > places.size()) return false;
  for (std::size_t i = first; i < first + kRestWindow; ++i)
    if (!isSomewhere(places[i])) return false;
  return true;
}

double meanAlong(std::size_t axis, const std::vector<Place>& places, std::size_t first) {
  double sum = 0;
  for (std::size_t i = first; i < first + kRestWindow; ++i) sum += axisOf(places[i], axis);
  return sum / kRestWindow;
}

double squaresAlong(std::size_t axis, const std::vector<Place>& places, std::size_t first) {
  const double mean = meanAlong(axis, places, first);
  double sum = 0;
  for (std::size_t i = first; i < first + kRestWindow; ++i) {
    const double d = axisOf(places[i], axis) - mean;
    sum += d * d;
  }
  return sum;
}

bool truthRests(const std::vector<Place>& truth, std::size_t first) {
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    double low = axisOf(truth[first], axis), high = low;
    for (std::size_t i = first; i < first + kRestWindow; ++i) {
      low = std::min(low, axisOf(truth[i], axis));
      high = std::max(high, axisOf(truth[i], axis));
    }
    if (high - low >= kTrueRest) return false;
  }
  return true;
}

bool seemsToRest(const std::vector<Place>& places, std::size_t first) {
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    const double variance = squaresAlong(axis, places, first) / (kRestWindow - 1);
    if (variance < kNoScatter) continue;
    double squares = 0;
    for (std::size_t i = first; i + kSmoothingMemory < first + kRestWindow; ++i) {
      const double d = axisOf(places[i + kSmoothingMemory], axis) - axisOf(places[i], axis);
      squares += d * d;
    }
    const double noise = squares / (2 * (kRestWindow - kSmoothingMemory));
    if (noise < kLeastNoiseShare * variance) return false;
  }
  return true;
}

template <typename Rests>
std::vector<std::size_t> restWindows(const std::vector<Place>& places, Rests rests) {
  std::vector<std::size_t> windows;
  for (std::size_t first = 0; first + kRestWindow <= places.size();) {
    const bool resting = wholeWindow(places, first) && rests(first);
    if (resting) windows.push_back(first);
    first += resting ? kRestWindow : kRestStep;
  }
  return windows;
}

/// Joins packets that follow each other.
void noteSwap(std::vector<Swap>& swaps, std::size_t packet, std::size_t a, std::size_t b) {
  for (auto swap = swaps.rbegin(); swap != swaps.rend(); ++swap) {
    if (swap->a != a || swap->b != b) continue;
    if (swap->first + swap->packets != packet) break;
    ++swap->packets;
    return;
  }
  swaps.push_back({packet, 1, a, b});
}

/// Calls `visit(packet, a, b)` for all packets and pairs of objects.
template <typename Visit>
void forPairs(const std::vector<std::vector<Place>>& places, std::size_t firstPacket, Visit visit) {
  const std::size_t packets = places.empty() ? 0 : places[0].size();
  for (std::size_t packet = firstPacket; packet < packets; ++packet)
    for (std::size_t a = 0; a < places.size(); ++a)
      for (std::size_t b = a + 1; b < places.size(); ++b) visit(packet, a, b);
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

Distribution distributionOf(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(),
                              [](double value) { return !std::isfinite(value); }),
               values.end());
  Distribution d{0, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN};
  if (values.empty()) return d;
  std::sort(values.begin(), values.end());
  double sum = 0, squares = 0;
  for (const double value : values) {
    sum += value;
    squares += value * value;
  }
  const auto count = static_cast<double>(values.size());
  d.count = static_cast<std::int64_t>(values.size());
  d.mean = sum / count;
  d.rootMeanSquare = std::sqrt(squares / count);
  d.median = nearestRank(values, 0.5);
  d.p90 = nearestRank(values, 0.9);
  d.p95 = nearestRank(values, 0.95);
  d.p99 = nearestRank(values, 0.99);
  d.p999 = nearestRank(values, 0.999);
  d.largest = values.back();
  return d;
}

std::vector<HistogramBin> logarithmicHistogram(const std::vector<double>& values) {
  const auto usable = [](double value) { return std::isfinite(value) && value > 0; };
  const auto binOf = [](double value) { return std::floor(std::log10(value) * kBinsPerDecade); };
  double first = std::numeric_limits<double>::infinity(), last = -first;
  for (const double value : values) {
    if (!usable(value)) continue;
    first = std::min(first, binOf(value));
    last = std::max(last, binOf(value));
  }
  std::vector<HistogramBin> bins;
  if (first > last) return bins;
  // Nonsense in a damaged file must not cost memory: beyond this, the last bin takes the rest.
  const double count = std::min(last - first + 1, kMostBins);
  for (double bin = first; bin < first + count; ++bin)
    bins.push_back({std::pow(10, bin / kBinsPerDecade), std::pow(10, (bin + 1) / kBinsPerDecade)});
  for (const double value : values)
    if (usable(value))
      ++bins[static_cast<std::size_t>(std::min(binOf(value) - first, count - 1))].count;
  return bins;
}

std::vector<Gap> gapsOf(const std::vector<Presence>& presence) {
  std::vector<Gap> gaps;
  Gap gap;
  bool seenBefore = false;
  for (std::size_t packet = 0; packet < presence.size(); ++packet) {
    if (presence[packet] == Presence::kSeen) {
      if (seenBefore && gap.packets > 0) gaps.push_back(gap);
      seenBefore = true;
      gap = {packet + 1, 0};
    } else if (presence[packet] == Presence::kNoSuchObject) {
      seenBefore = false;
    } else {
      ++gap.packets;
    }
  }
  return gaps;
}

std::vector<Jump> jumpsOf(const std::vector<Place>& places, double limit) {
  std::vector<Jump> jumps;
  std::size_t last = places.size();
  for (std::size_t packet = 0; packet < places.size(); ++packet) {
    if (!isSomewhere(places[packet])) continue;
    if (last < packet) {
      const double step = distance(places[last], places[packet]);
      if (step > limit * static_cast<double>(packet - last))
        jumps.push_back({packet, packet - last, step});
    }
    last = packet;
  }
  return jumps;
}

std::vector<Swap> swapsAgainstTruth(const std::vector<std::vector<Place>>& places,
                                    const std::vector<std::vector<Place>>& truths) {
  std::vector<Swap> swaps;
  forPairs(places, 0, [&](std::size_t packet, std::size_t a, std::size_t b) {
    const double apart = distance(truths[a][packet], truths[b][packet]);
    const auto standsAt = [&](std::size_t object, std::size_t other) {
      const Place& place = places[object][packet];
      const double away = distance(place, truths[other][packet]);
      // False where a place is missing, which is at a distance of NaN.
      return away < apart / 2 && std::none_of(truths.begin(), truths.end(), [&](const auto& truth) {
               return distance(place, truth[packet]) < away;
             });
    };
    if (apart >= kLeastTrueSeparation && (standsAt(a, b) || standsAt(b, a)))
      noteSwap(swaps, packet, a, b);
  });
  return swaps;
}

std::vector<Swap> suspectedSwaps(const std::vector<std::vector<Place>>& places) {
  std::vector<Swap> swaps;
  forPairs(places, kSmoothingMemory, [&](std::size_t packet, std::size_t a, std::size_t b) {
    const Place& oldA = places[a][packet - kSmoothingMemory];
    const Place& oldB = places[b][packet - kSmoothingMemory];
    const double apart = distance(oldA, oldB);
    if (apart >= kLeastSwapSeparation && distance(places[a][packet], oldB) < apart / 4 &&
        distance(places[b][packet], oldA) < apart / 4)
      noteSwap(swaps, packet, a, b);
  });
  // The same swap shows for as long as the packets compared lie on both sides of it.
  for (Swap& swap : swaps) swap.packets = 1;
  return swaps;
}

std::vector<std::size_t> restAgainstTruth(const std::vector<Place>& places,
                                          const std::vector<Place>& truth) {
  return restWindows(places, [&](std::size_t first) {
    return wholeWindow(truth, first) && truthRests(truth, first);
  });
}

std::vector<std::size_t> suspectedRest(const std::vector<Place>& places) {
  return restWindows(places, [&](std::size_t first) { return seemsToRest(places, first); });
}

Jitter jitterOf(const std::vector<Place>& places, const std::vector<std::size_t>& windows) {
  Jitter jitter;
  std::array<double, kAxes> squares{};
  for (const std::size_t first : windows) {
    if (!wholeWindow(places, first)) continue;
    ++jitter.windows;
    std::array<double, kAxes> mean{};
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      mean[axis] = meanAlong(axis, places, first);
      squares[axis] += squaresAlong(axis, places, first);
    }
    for (std::size_t i = first; i < first + kRestWindow; ++i)
      jitter.largest = std::max(
          jitter.largest, std::hypot(axisOf(places[i], 0) - mean[0], axisOf(places[i], 1) - mean[1],
                                     axisOf(places[i], 2) - mean[2]));
  }
  if (jitter.windows == 0) return jitter;
  const auto freedom = static_cast<double>(jitter.windows * (kRestWindow - 1));
  double total = 0;
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    jitter.deviation[axis] = std::sqrt(squares[axis] / freedom);
    total += squares[axis] / freedom;
  }
  jitter.total = std::sqrt(total);
  return jitter;
}

Buckets::Buckets(const std::vector<double>& times, std::size_t most) {
  if (times.size() <= most) {
    std::vector<double> intervals;
    for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
    const double pause =
        std::max(kLongPause, kLongPauseIntervals * distributionOf(intervals).median);  // 1 if NaN
    for (std::size_t i = 0; i < times.size(); ++i) {
      if (i > 0 && times[i] - times[i - 1] > pause) times_.push_back((times[i] + times[i - 1]) / 2);
      bucketOf_.push_back(times_.size());
      times_.push_back(times[i]);
    }
    return;
  }
  shared_ = true;
  // Two packets or more on average: a bucket is empty only where there is a pause.
  const std::size_t count = std::max<std::size_t>(most / 2, 1);
  width_ = (times.back() - times.front()) / static_cast<double>(count);
  for (std::size_t i = 0; i < count; ++i)
    times_.push_back(times.front() + (static_cast<double>(i) + 0.5) * width_);
  for (const double time : times) {
    const double bucket = width_ > 0 ? (time - times.front()) / width_ : 0;
    bucketOf_.push_back(std::min(static_cast<std::size_t>(bucket), count - 1));
  }
}

Envelope Buckets::envelopeOf(const std::vector<double>& values) const {
  Envelope envelope{std::vector<double>(times_.size(), kNaN),
                    std::vector<double>(times_.size(), kNaN)};
  for (std::size_t packet = 0; packet < bucketOf_.size(); ++packet) {
    if (!std::isfinite(values[packet])) continue;
    double& low = envelope.low[bucketOf_[packet]];
    double& high = envelope.high[bucketOf_[packet]];
    // fmin and fmax take the number where the other is NaN.
    low = std::fmin(low, values[packet]);
    high = std::fmax(high, values[packet]);
  }
  return envelope;
}

std::vector<std::size_t> pathPackets(const std::vector<Place>& places, std::size_t most) {
  std::vector<std::size_t> present;
  for (std::size_t packet = 0; packet < places.size(); ++packet)
    if (isSomewhere(places[packet])) present.push_back(packet);
  if (present.size() <= most) return present;

  const std::size_t shares = std::max<std::size_t>(most / (2 * kAxes), 1);
  std::vector<std::size_t> chosen;
  for (std::size_t share = 0; share < shares; ++share) {
    const auto begin =
        present.begin() + static_cast<std::ptrdiff_t>(present.size() * share / shares);
    const auto end =
        present.begin() + static_cast<std::ptrdiff_t>(present.size() * (share + 1) / shares);
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
      const auto [low, high] = std::minmax_element(begin, end, [&](std::size_t a, std::size_t b) {
        return axisOf(places[a], axis) < axisOf(places[b], axis);
      });
      chosen.push_back(*low);
      chosen.push_back(*high);
    }
  }
  std::sort(chosen.begin(), chosen.end());
  chosen.erase(std::unique(chosen.begin(), chosen.end()), chosen.end());
  return chosen;
}

}  // namespace analysis
