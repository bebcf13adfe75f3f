// Reckoning with what measurements say of positions.
#pragma once

#include <alg_kit/estimate/MotionState.h>

namespace estimate {

/// What remains of a pair's misfit at the best position: how far the two rays miss each other, in
/// squared standard deviations.
double raysMiss(const PositionInformation& information);

/// The same measurement, linearised at another position.
PositionInformation movedTo(PositionInformation information, const Eigen::Vector3d& at);

/// What a measurement of a marker says of the middle, `offset` away from the marker.
PositionInformation ofMiddle(PositionInformation marker, const Eigen::Vector3d& offset,
                             const Eigen::Vector3d& at);

/// The same measurement of what is displaced from the marker by an unknown of that covariance.
PositionInformation blurred(const PositionInformation& information,
                            const Eigen::Matrix3d& covariance);

/// Two measurements of one position.
PositionInformation together(const PositionInformation& one, const PositionInformation& other);

/// What measurements of both markers say of their middle and of the offset from it to the second.
struct MiddleAndOffset {
  PositionInformation middle;
  PositionInformation offset;
};

/// Each by itself: sum and difference of two positions. Their errors are not independent of each
/// other where the markers are seen in different directions; each one's covariance is right.
MiddleAndOffset middleAndOffset(const PositionInformation& first,
                                const PositionInformation& second);

/// What light of two markers, of whichever cameras, says of both at once: how the errors hang
/// together is kept.
class PairInformation {
 public:
  /// Where the light is linearised.
  PairInformation(const Eigen::Vector3d& middle, const Eigen::Vector3d& offset);

  /// @param marker  0, at the middle less the offset, or 1
  void addMarker(int marker, const PositionInformation& information);
  void addOffset(const PositionInformation& information);

  /// What it says of the one where of the other nothing is known from elsewhere ...
  PositionInformation ofMiddle() const;
  PositionInformation ofOffset() const;

  /// ... or the offset is known to be where it was linearised, with that covariance.
  PositionInformation ofMiddle(const Eigen::Matrix3d& offset) const;

 private:
  PositionInformation middle_,
      offset_;  ///< of each if the other is exactly where it was linearised
  Eigen::Matrix3d cross_ = Eigen::Matrix3d::Zero();
};

}  // namespace estimate
