// Which of a pair's markers a camera's blobs are: both have one id.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>
#include <alg_kit/bodies/PoseInformation.h>
#include <alg_kit/bodies/RigidFit.h>

#include <optional>

namespace bodies {

/// The frame with the pair's blobs given to its markers: each to where it is expected.
/// @param expected  camera frame
BodyFrame toldApart(const BodyFrame& frame, const Body& pair, const RigidMotion& expected,
                    const estimate::PixelEquations& cameras);

/// Without an expectation, where both cameras saw two blobs: of both ways to put them together the
/// one that fits the known distance. The first marker is the one with the smaller x.
std::optional<BodyFrame> toldApart(const BodyFrame& frame, const Body& pair,
                                   const estimate::PixelEquations& cameras, double noise);

/// The pair laid over two places, without a turn about its axis but the shortest.
RigidMotion pairMotion(const Body& pair, const Eigen::Vector3d& first,
                       const Eigen::Vector3d& second);

/// The same with its ends exchanged.
RigidMotion otherWayRound(const Body& pair, const RigidMotion& motion);

/// Says in a covariance of turns, or of turn rates, that the turn about an axis is not known:
/// infinite wherever the axis has a part.
void forgetTurn(Eigen::Ref<Eigen::Matrix3d> covariance, const Eigen::Vector3d& axis);

/// Radians, standard deviation of the direction, per axis across it.
double directionDeviation(const Matrix6d& covariance, const Eigen::Vector3d& axis);

}  // namespace bodies
