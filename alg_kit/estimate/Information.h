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

}  // namespace estimate
