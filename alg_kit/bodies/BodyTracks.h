// Where the bodies of a recording were.
#pragma once

#include <alg_kit/bodies/BodyFilter.h>

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace bodies {

enum class Manner {
  kLive,      ///< by what came before, as it would have been during the recording
  kSmoothed,  ///< by the whole recording
  kSingle,    ///< every frame by itself
};

struct BodyTrackOptions {
  Manner manner = Manner::kLive;
  double ahead = 0;  ///< seconds, at most kFarthestAhead; live only
  double noise = 0;  ///< px, of blob centres; 0 = from the recording's own light
};

struct BodyRow {
  std::int64_t call = 0;    ///< of the packet
  std::int64_t packet = 0;  ///< its number in the recording, from 0
  double time = 0;          ///< seconds since the recording's first call, plus `ahead`
  std::size_t body = 0;
  TrackedPose pose;  ///< axes as delivered
};

/// In order of time and bodies; rows only where something is known.
using BodyRowTaker = std::function<void(const BodyRow& row)>;

/// @return the blob noise that was assumed, px
/// @throws as readFrames
double trackBodies(const recording::RecordingReader& reader, const std::vector<Body>& bodies,
                   const BodyTrackOptions& options, const BodyRowTaker& take);

/// Standard deviations of the position (mm) and of the turns about the axes (degrees).
std::array<double, 6> deviationsOf(const BodyPose& pose);

/// The poses of single frames, camera frame, where there is one.
/// @param noise  px, of blob centres
/// @throws as readFrames
std::vector<BodyPose> posesOf(const recording::RecordingReader& reader, const Body& body,
                              double noise);

}  // namespace bodies
