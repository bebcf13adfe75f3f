// What the report says about rows of numbers: small functions without a recording.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace analysis {

/// A position as the library delivers it; NaN where there is none.
struct Place {
  float x, y, z;
};

constexpr std::size_t kAxes = 3;
constexpr std::size_t kSmoothingMemory = 3;  ///< packets: what the library's smoothing remembers

Place nowhere();
bool isSomewhere(const Place& place);
double axisOf(const Place& place, std::size_t axis);
double distance(const Place& a, const Place& b);

/// Percentiles are by nearest rank: the smallest value that at least the given share of the values
/// does not exceed. All are NaN when there is no value.
struct Distribution {
  std::int64_t count = 0;
  double mean, rootMeanSquare, median, p90, p95, p99, p999, largest;
};

/// Values that are not finite are left out.
Distribution distributionOf(std::vector<double> values);

struct HistogramBin {
  double from, to;  ///< from <= value < to
  std::int64_t count = 0;
};

/// Bins of equal width on a logarithmic scale, twenty to the factor of ten. Values that are not
/// positive and finite are left out.
std::vector<HistogramBin> logarithmicHistogram(const std::vector<double>& values);

/// Whether an object was in the block of a packet.
enum class Presence : std::uint8_t {
  kNoSuchObject,  ///< the product type does not have it
  kAbsent,
  kSeen,
};

/// A stretch of packets without the object, between two packets with it.
struct Gap {
  std::size_t first = 0;    ///< packet
  std::size_t packets = 0;  ///< without the object
};

std::vector<Gap> gapsOf(const std::vector<Presence>& presence);

/// A step from one sighting to the next.
struct Jump {
  std::size_t packet = 0;   ///< of the second one
  std::size_t packets = 1;  ///< since the first one
  double distance = 0;
};

/// The steps longer than `limit` per packet.
std::vector<Jump> jumpsOf(const std::vector<Place>& places, double limit);

/// Object `a` stood where object `b` was, or the other way round, or both.
struct Swap {
  std::size_t first = 0;    ///< packet
  std::size_t packets = 0;  ///< how long; where the truth is unknown, 1
  std::size_t a = 0, b = 0;
};

constexpr double kLeastTrueSeparation = 20;  ///< mm; objects nearer than this cannot be told apart

/// With the truth: in a run of packets one of two objects was reported nearest to the other's true
/// place, and within half of their true distance.
std::vector<Swap> swapsAgainstTruth(const std::vector<std::vector<Place>>& places,
                                    const std::vector<std::vector<Place>>& truths);

constexpr double kLeastSwapSeparation = 50;  ///< mm

/// Without the truth: three packets later each of two objects was within a quarter of their
/// distance of the place where the other had been. Real objects that change places so fast would
/// count too.
std::vector<Swap> suspectedSwaps(const std::vector<std::vector<Place>>& places);

/// Windows of `kRestWindow` packets, disjoint, in which an object was at rest, by first packet.
constexpr std::size_t kRestWindow = 45;
constexpr double kTrueRest = 0.1;  ///< mm; the truth moves less along every axis

std::vector<std::size_t> restAgainstTruth(const std::vector<Place>& places,
                                          const std::vector<Place>& truth);

/// Without the truth: along every axis, at least half of the variance in the window is already
/// there between packets three apart. Noise does that, motion does not: it takes longer.
std::vector<std::size_t> suspectedRest(const std::vector<Place>& places);

/// How far positions scatter about the mean of their window.
struct Jitter {
  std::size_t windows = 0;
  std::array<double, kAxes> deviation{};  ///< standard, per axis, pooled over the windows
  double total = 0;                       ///< root of the sum of their squares
  double largest = 0;                     ///< distance from the mean
};

/// Windows in which a place is missing do not count.
Jitter jitterOf(const std::vector<Place>& places, const std::vector<std::size_t>& windows);

/// A column of a plot: the smallest and largest value of every bucket, NaN for a bucket without
/// any. Where every bucket holds one value at most, both are the same.
struct Envelope {
  std::vector<double> low, high;
};

/// Divides time for plots. Few packets get a bucket each, with an empty one in every long pause;
/// many share buckets of equal width in time.
class Buckets {
 public:
  /// @param times  seconds, ascending
  /// @param most   packets that still get a bucket each; more share half as many buckets
  Buckets(const std::vector<double>& times, std::size_t most);

  bool shared() const { return shared_; }
  double width() const { return width_; }                      ///< seconds; 0 unless shared
  const std::vector<double>& times() const { return times_; }  ///< seconds, ascending

  /// @param values  one per packet; NaN = none
  Envelope envelopeOf(const std::vector<double>& values) const;

  /// The number of packets in every bucket of which `chosen` holds.
  template <typename Chosen>
  std::vector<std::int64_t> count(Chosen chosen) const {
    std::vector<std::int64_t> counts(times_.size(), 0);
    for (std::size_t packet = 0; packet < bucketOf_.size(); ++packet)
      if (chosen(packet)) ++counts[bucketOf_[packet]];
    return counts;
  }

 private:
  bool shared_ = false;
  double width_ = 0;
  std::vector<double> times_;
  std::vector<std::size_t> bucketOf_;
};

/// The packets that a drawn path needs: all, or, of more than `most`, those that are smallest or
/// largest along an axis within their share of the packets.
std::vector<std::size_t> pathPackets(const std::vector<Place>& places, std::size_t most);

}  // namespace analysis
