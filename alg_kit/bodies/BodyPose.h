// Where a body is in one frame, and how well that is known.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>
#include <alg_kit/bodies/RigidFit.h>

#include <array>

namespace bodies {

/// What became of a body's marker in a frame.
enum class MarkerEnd {
  kNotSeen,    ///< by any camera
  kUsed,       ///< both cameras saw it
  kOneCamera,  ///< one camera saw it; used
  kRaysApart,  ///< the two cameras' rays miss each other by too much
  kOffShape,   ///< it is not where the body's others say
  kOffTrack,   ///< it is too far from where the body must be, and so is all that was seen
};

/// For people and programs: "off shape".
const char* nameOf(MarkerEnd end);

/// The camera frame: the right camera's, x right, y down, z forward. `delivered` gives the axes of
/// the library's answers.
struct BodyPose {
  RigidMotion motion;  ///< the body's frame to the camera frame
  /// Of the position (mm) and of a rotation vector (radians) that turns the body a little, axes of
  /// the camera frame: position first. What the blobs' noise makes of them; the body counts as
  /// known.
  /// A pair's turn about its axis is not known: infinite wherever the axis has a part.
  Eigen::Matrix<double, 6, 6> covariance = Eigen::Matrix<double, 6, 6>::Zero();
  double directionDeviation = 0;  ///< of a pair: radians, per axis across its direction
  int markers = 0;                ///< used
  double residual = 0;            ///< px, root mean square of a used pixel's distance, per number
  std::array<MarkerEnd, kMostMarkers> ends{};  ///< by place in the body
};

/// The axes of the library's answers: y and z negated (x right, y up, z towards the viewer).
BodyPose delivered(const BodyPose& pose);

/// The pose that fits the pixels best: least squares of all pixels of the markers that at least one
/// camera saw, begun with the closed form over those that both saw. One marker that does not fit,
/// or two, are left out where the others say so.
/// @param noise  px, standard deviation of a blob centre's x and of its y
/// @param frame  of a pair: told apart
/// @return nothing if fewer than three markers, which span a plane, are seen by both cameras (of a
///         pair both), or if
///         they do not fit the shape and nobody can tell which. Allocates nothing.
std::optional<BodyPose> poseOf(const Body& body, const BodyFrame& frame,
                               const estimate::PixelEquations& cameras, double noise);

/// The same, for a filter to go on with: a pair's turn about its axis counts as known there.
std::optional<BodyPose> pinnedPoseOf(const Body& body, const BodyFrame& frame,
                                     const estimate::PixelEquations& cameras, double noise);

/// What a pinned pose tells: of a pair the turn about the axis is forgotten.
void unpin(const Body& body, BodyPose& pose);

}  // namespace bodies
