#pragma once

#include <cstdint>
#include <vector>

namespace algorithm {

/// Compares two headings of one rigid object: the optical one, given by the line between its two
/// marker points, and the one of an orientation that the host sends. Angles are single-precision
/// degrees; heading is about the camera's vertical axis.
class HeadingAlignment {
 public:
  struct TaggedPoint {
    float tag = 0;  ///< not read
    float x = 0, y = 0, z = 0;
  };

  static constexpr std::size_t kDistances = 10;
  static constexpr std::size_t kHeadings = 30;

  HeadingAlignment();

  /// Adds the two points of one frame. Ignored when the first point's coordinates are not pairwise
  /// distinct (kept: such points are placeholders; only the first is looked at).
  void addPair(const TaggedPoint& a, const TaggedPoint& b);

  /// @param q  four values: quaternion w, x, y, z
  void setOrientation(const float* q);

  /// Writes six values (yaw, pitch, roll, yaw - yaw offset, pair distance, score) and clears both
  /// flags.
  /// @return -1 without an orientation since the last read-out (nothing is written), 1 when there
  ///         is a new offset, else 0.
  int readAngles(float* out);

  /// Writes four values, the orientation turned by the yaw offset about the vertical axis; flags
  /// and results as `readAngles`. The second element has the other sign of s q3 than a rotation
  /// would give (kept: hosts have adapted to it).
  int readCorrectedOrientation(float* out);

  TaggedPoint pointA, pointB;  ///< the last pair, the one with the smaller x first
  float yaw = 0, pitch = 0, roll = 0;
  float orientation[4] = {};    ///< as received
  float yawOffset = 0;          ///< yaw minus the mean optical heading
  bool hasResult = false;       ///< a new offset and score were computed
  bool hasOrientation = false;  ///< an orientation was received
  float pairDistance = 0;       ///< of the last pair
  /// 1 = best, 0 = worst; a mean heading just under 45 degrees takes it a little below 0.
  float score = 0;
  std::vector<float> distanceHistory;  ///< at most 10, oldest first
  std::vector<float> headingHistory;   ///< at most 30, oldest first

 private:
  int takeFlags();
};

/// Arctangent of y / x in degrees, [-180, 180): in the first octant an odd polynomial of degree 7,
/// fitted to the arctangent there, whose largest error is 0.0096 degrees, at 45 degrees.
float atan2Deg(float y, float x);

/// Arcsine in degrees, clamped; 0 for not a number.
float asinDeg(float v);

/// Mean of the headings, over a divisor that is 30 even while fewer are held (kept: the mean grows
/// in). Headings near +-180 degrees are averaged across the seam. Precondition: not empty.
float meanHeading(const std::vector<float>& headings);

/// Score of a mean heading, the largest deviation from it, and the distance of the pair: the
/// product of three scores of 0 to 1. Each falls in straight lines from its ideal (0, 0 and 68) to
/// a limit (45 degrees, 10 degrees, 5 apart) and is 0 beyond; corners and slopes are set by hand,
/// not fitted, and leave steps where the lines do not meet.
float alignmentScore(float mean, float spread, float pairDistance);

}  // namespace algorithm
