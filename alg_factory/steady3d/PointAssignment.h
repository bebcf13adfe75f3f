#pragma once

#include <cstdint>
#include <vector>

#include <alg_factory/steady3d/PointF.h>
#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// What is remembered of every object: its last point, and the frames since it was seen.
struct ObjectSightings {
  std::vector<StereoPoint> lastSeen;    ///< position and id only; id -1 = none
  std::vector<std::int32_t> missCount;  ///< holds at the largest 32-bit value
};

/// The product's marker points (an object has one or two) and what this frame put on them.
struct MarkerPoints {
  std::vector<std::int32_t> index;     ///< the object seen at the marker point, -1 = none
  std::vector<PointF> position;        ///< of the latest sighting
  std::vector<std::int32_t> diameter;  ///< of the latest sighting, in the images, pixels
};

/// For each object, notes the first point that carries its id, or counts a miss.
void noteSightings(const std::vector<StereoPoint>& points, ObjectSightings& sightings);

/// Appends the last point of every object missed for 1 to `holdFrames` frames.
void holdMissing(int holdFrames, const ObjectSightings& sightings,
                 std::vector<StereoPoint>& points);

/// The object of every marker point, in order.
std::vector<std::int32_t> objectsByMarker(const std::vector<std::int32_t>& pointsPerObject);

/// Walks the marker points in order; each takes, and removes from `points`, the first point that
/// carries its object's id.
void distribute(const std::vector<std::int32_t>& objectByMarker, std::vector<StereoPoint>& points,
                MarkerPoints& markers);

}  // namespace algorithm
