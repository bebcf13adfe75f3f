#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace analysis {

/// Percentiles are by nearest rank: the smallest value that at least the given share of the values
/// does not exceed. All are NaN when there is no value.
struct Distribution {
  std::int64_t count = 0;
  double mean, rootMeanSquare, median, p90, p95, p99, p999, largest;
};

struct HistogramBin {
  double from, to;  ///< from <= value < to
  std::int64_t count = 0;
};

/// Gathers the distribution of values that are not negative, in bounded memory. Count, mean, root
/// mean square and largest are exact always. Percentiles are exact up to `kExact` values; of more,
/// values are sorted into bins, and a percentile is off by a share of `kLargestError` of it at
/// most.
class RunningDistribution {
 public:
  static constexpr std::size_t kExact = 60000;
  static constexpr double kLargestError = 0.0014;  ///< half a bin: 2^(1/512) - 1
  static constexpr double kLeast = 1e-6;  ///< of more than kExact, smaller values count as 0

  /// Values that are not finite are left out.
  void add(double value);

  std::int64_t count() const { return count_; }
  Distribution get() const;

 private:
  double fromBins(std::int64_t rank) const;
  void addToBins(double value);

  std::int64_t count_ = 0;
  double sum_ = 0, squares_ = 0, largest_ = 0;
  mutable std::vector<double> values_;  ///< up to kExact; put in order as asked
  std::map<int, std::int64_t> bins_;    ///< of more; by the bin's number, 256 to the octave
};

/// How often values came, in bins of equal width on a logarithmic scale, twenty to the factor of
/// ten. Values that are not positive and finite are left out.
class LogarithmicHistogram {
 public:
  void add(double value);

  /// Without gaps, from the first bin with a value to the last, 400 at most: the last one takes
  /// what lies beyond.
  std::vector<HistogramBin> bins() const;

 private:
  std::map<int, std::int64_t> counts_;
};

}  // namespace analysis
