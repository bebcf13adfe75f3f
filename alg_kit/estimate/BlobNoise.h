// How far blob centres are off.
#pragma once

namespace estimate {

/// The blobs' noise from by how much the two cameras' rays miss each other: of a pair's four
/// numbers three go into the position; the fourth is noise alone, however the object moves. What a
/// calibration does not know is in it too. A running mean of squares; an outlier counts as three
/// standard deviations.
class BlobNoise {
 public:
  static constexpr double kLeast =
      0.005;                          ///< px: the moments of small blobs are rounded by as much
  static constexpr double kMost = 5;  ///< px: what misses by more is no noise

  explicit BlobNoise(double first) : variance_(first * first) {}

  /// @param raysMiss2  px^2, of variance noise^2
  void add(double raysMiss2);

  double value() const;  ///< px, standard deviation of a centre's x and of its y

 private:
  double variance_;
  long count_ = 0;
};

}  // namespace estimate
