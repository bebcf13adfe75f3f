// What the rows of a recording say about its objects. Packet by packet, in bounded memory.
#pragma once

#include <alg_kit/analysis/Moment.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
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

/// Whether an object was in the block of a packet.
enum class Presence : std::uint8_t {
  kNoSuchObject,  ///< the product type does not have it
  kAbsent,
  kSeen,
};

/// A stretch of packets without the object.
struct Gap {
  Moment first;        ///< the first packet without it
  double seconds = 0;  ///< from the sighting before to the one behind, or to the recording's ends
  double without = 0;  ///< seconds from the first packet without it to the sighting behind
  std::int64_t packets = 0;  ///< without it
};

/// Finds gaps. An object that never came has one gap as long as the recording.
class GapFinder {
 public:
  std::optional<Gap> add(const Moment& at, Presence presence);
  std::optional<Gap> finish();

 private:
  std::optional<Gap> close(double seconds);

  Gap gap_;
  std::optional<double> seen_;  ///< the last sighting, or the first packet before any
  double last_ = 0;             ///< the last packet
};

/// A step from one sighting to the next.
struct Jump {
  Moment at;                 ///< the second sighting
  std::int64_t packets = 1;  ///< since the first one
  double distanceMm = 0;
};

/// Finds the steps longer than a limit per packet.
class JumpFinder {
 public:
  explicit JumpFinder(double limitMm) : limitMm_(limitMm) {}
  std::optional<Jump> add(const Moment& at, const Place& place);

 private:
  double limitMm_;
  std::optional<Moment> last_;
  Place place_{};
};

/// A sighting off the object's track.
struct Outlier {
  Moment at;
  double distanceMm = 0;
};

/// Finds sightings that cannot belong to the track although the time around them was long: at most
/// `kLonelyPackets` in a row with the object gone before and after them, and farther than the limit
/// from the straight line, over time, between the sightings around them.
class OutlierFinder {
 public:
  static constexpr std::size_t kLonelyPackets = 3;

  explicit OutlierFinder(double limitMm) : limitMm_(limitMm) {}

  /// The farthest sighting of a run that proved to be off.
  std::optional<Outlier> add(const Moment& at, const Place& place);

 private:
  struct Sighting {
    Moment at;
    Place place;
  };
  double limitMm_;
  std::optional<Sighting> before_;  ///< the last one of the track
  std::vector<Sighting> run_;       ///< since the object came back; empty = the track goes on
};

/// Objects `a` and `b` exchanged their identities.
struct Swap {
  Moment from;
  std::int64_t packets = 0;  ///< how long; where the truth is unknown, 0
  std::size_t a = 0, b = 0;
};

constexpr double kLeastTrueSeparation = 20;  ///< mm; objects nearer than this cannot be told apart
constexpr double kLeastSwapSeparation = 50;  ///< mm; likewise, without the truth
constexpr std::int64_t kLeastSwapPackets = 2;

/// Finds exchanged identities: what lasts one packet only is none.
///  - With the truth: both objects are nearer to the other's true place than to their own, and
///    within half of the distance of the true places.
///  - Without it: three packets later, both are within a quarter of their distance of the place
///    where the other had been. Real objects that change places so fast would count too.
class SwapFinder {
 public:
  SwapFinder(std::size_t objects, bool withTruth);

  /// @param places, truths  of every object in this packet
  void add(const Moment& at, const std::vector<Place>& places, const std::vector<Place>& truths,
           const std::function<void(const Swap&)>& found);
  void finish(const std::function<void(const Swap&)>& found);

 private:
  bool exchanged(const std::vector<Place>& places, const std::vector<Place>& truths, std::size_t a,
                 std::size_t b) const;
  void close(Swap& run, const std::function<void(const Swap&)>& found) const;

  std::size_t objects_;
  bool withTruth_;
  std::vector<std::vector<Place>> earlier_;  ///< the last kSmoothingMemory packets, oldest first
  std::vector<Swap> runs_;  ///< of every pair, the one that goes on; packets 0 = none
};

/// How far positions scatter about the mean of the windows in which the object was at rest.
struct Jitter {
  std::int64_t windows = 0;
  std::array<double, kAxes> deviation{};  ///< standard, per axis, pooled over the windows
  double total = 0;                       ///< root of the sum of their squares
  double largest = 0;                     ///< distance from the mean
};

constexpr std::size_t kRestWindow = 45;  ///< packets
constexpr double kTrueRest = 0.1;        ///< mm; the truth moves less along every axis

/// Measures jitter in windows of `kRestWindow` packets, disjoint, in which an object was seen
/// throughout and at rest.
///  - With the truth: it moves less than `kTrueRest` along every axis.
///  - Without it: along every axis, at least half of the variance in the window is already there
///    between packets three apart. Noise does that, motion does not: it takes longer.
class JitterMeter {
 public:
  explicit JitterMeter(bool withTruth) : withTruth_(withTruth) {}
  void add(const Place& raw, const Place& filtered, const Place& truth);

  Jitter raw() const { return raw_.get(); }
  Jitter filtered() const { return filtered_.get(); }  ///< windows without a gap in its row

 private:
  class Pool {
   public:
    void add(const std::vector<Place>& window);
    Jitter get() const;

   private:
    std::int64_t windows_ = 0;
    std::array<double, kAxes> squares_{};
    double largest_ = 0;
  };

  bool withTruth_;
  std::vector<Place> rawWindow_, filteredWindow_, truthWindow_;
  Pool raw_, filtered_;
};

/// How much later the filtered positions are than the raw ones.
struct Lag {
  double packets = 0;       ///< the shift, in intervals of the packets, at which they agree best
  double differenceMm = 0;  ///< root mean square of filtered minus raw
  double shiftedMm = 0;     ///< ... with the raw ones shifted by the lag
  std::int64_t samples = 0;
};

/// Finds the shift of the raw row, from `kFewestPackets` to `kMostPackets`, at which the squared
/// distance of the filtered row from it is least; between packets, by a parabola through the three
/// least sums.
class LagMeter {
 public:
  static constexpr int kFewestPackets = -3;
  static constexpr int kMostPackets = 24;

  void add(const Place& raw, const Place& filtered);

  /// None where the object moved too little for a shift to make a difference: the worst shift must
  /// differ `kLeastContrast` times as much as the best one.
  std::optional<Lag> get() const;
  static constexpr double kLeastContrast = 3;

 private:
  static constexpr std::size_t kShifts = kMostPackets - kFewestPackets + 1;
  static constexpr std::size_t kNoShift = -kFewestPackets;
  static constexpr std::int64_t kLeastSamples = 90;

  /// The raw row's last kShifts packets, each axis by itself, twice over: from `oldest_` on they
  /// lie in one piece, so that all shifts are reckoned side by side.
  std::array<std::array<double, 2 * kShifts>, kAxes> raw_{};
  std::size_t oldest_ = 0;
  std::size_t whole_ = 0;                       ///< packets with a raw place, up to the latest
  std::array<Place, kNoShift + 1> filtered_{};  ///< the last ones, by packet modulo their number
  std::size_t packets_ = 0;
  std::array<double, kShifts> squares_{};  ///< by age of the raw place, oldest first
  std::int64_t samples_ = 0;
};

}  // namespace analysis
