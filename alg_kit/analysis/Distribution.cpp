#include <alg_kit/analysis/Distribution.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace analysis {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kBinsPerOctave = 256;
constexpr double kBinsPerDecade = 20;
constexpr int kMostBins = 400;
constexpr int kBinOfZero = std::numeric_limits<int>::min();

/// The place of a share in `count` sorted values, from 0.
std::int64_t rankOf(double share, std::int64_t count) {
  return std::max<std::int64_t>(std::llround(std::ceil(share * static_cast<double>(count))), 1) - 1;
}

}  // namespace

void RunningDistribution::add(double value) {
  if (!std::isfinite(value)) return;
  ++count_;
  sum_ += value;
  squares_ += value * value;
  largest_ = std::max(largest_, value);
  if (!bins_.empty()) {
    addToBins(value);
    return;
  }
  values_.push_back(value);
  if (values_.size() <= kExact) return;
  for (const double earlier : values_) addToBins(earlier);
  values_ = {};
}

void RunningDistribution::addToBins(double value) {
  ++bins_[value < kLeast ? kBinOfZero
                         : static_cast<int>(std::floor(std::log2(value) * kBinsPerOctave))];
}

double RunningDistribution::fromBins(std::int64_t rank) const {
  for (const auto& [bin, count] : bins_) {
    rank -= count;
    if (rank >= 0) continue;
    if (bin == kBinOfZero) return 0;
    return std::min(std::exp2((bin + 0.5) / kBinsPerOctave), largest_);
  }
  return largest_;
}

Distribution RunningDistribution::get() const {
  Distribution d{0, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN};
  if (count_ == 0) return d;
  auto from = values_.begin();
  /// @param share  not below that of the question before: what is smaller lies before `from`
  const auto nearestRank = [&](double share) {
    const std::int64_t rank = rankOf(share, count_);
    if (!bins_.empty()) return fromBins(rank);
    const auto place = values_.begin() + rank;
    std::nth_element(from, place, values_.end());
    from = place;
    return *place;
  };
  d.count = count_;
  d.mean = sum_ / static_cast<double>(count_);
  d.rootMeanSquare = std::sqrt(squares_ / static_cast<double>(count_));
  d.median = nearestRank(0.5);
  d.p90 = nearestRank(0.9);
  d.p95 = nearestRank(0.95);
  d.p99 = nearestRank(0.99);
  d.p999 = nearestRank(0.999);
  d.largest = largest_;
  return d;
}

void LogarithmicHistogram::add(double value) {
  if (std::isfinite(value) && value > 0)
    ++counts_[static_cast<int>(std::floor(std::log10(value) * kBinsPerDecade))];
}

std::vector<HistogramBin> LogarithmicHistogram::bins() const {
  std::vector<HistogramBin> bins;
  if (counts_.empty()) return bins;
  const int first = counts_.begin()->first;
  const int count = std::min(counts_.rbegin()->first - first + 1, kMostBins);
  for (int bin = first; bin < first + count; ++bin)
    bins.push_back({std::pow(10, bin / kBinsPerDecade), std::pow(10, (bin + 1) / kBinsPerDecade)});
  // Nonsense in a damaged file must not cost memory: beyond the last bin, it takes the rest.
  for (const auto& [bin, number] : counts_)
    bins[static_cast<std::size_t>(std::min(bin - first, count - 1))].count += number;
  return bins;
}

}  // namespace analysis
