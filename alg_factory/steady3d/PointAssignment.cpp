#include <alg_factory/steady3d/PointAssignment.h>

#include <algorithm>
#include <limits>

namespace algorithm {

namespace {

constexpr std::int32_t kTaken = std::numeric_limits<std::int32_t>::min();

}  // namespace

void noteSightings(const std::vector<StereoPoint>& points, ObjectSightings& sightings) {
  for (std::int32_t& misses : sightings.missCount) {
    if (misses < std::numeric_limits<std::int32_t>::max()) ++misses;
  }
  // Backwards: the first point of an id comes last and stays.
  for (auto point = points.rbegin(); point != points.rend(); ++point) {
    const auto object = static_cast<std::uint32_t>(point->id);
    if (object >= sightings.lastSeen.size()) continue;
    StereoPoint& last = sightings.lastSeen[object];
    last.x = point->x;
    last.y = point->y;
    last.z = point->z;
    last.id = point->id;
    sightings.missCount[object] = 0;
  }
}

void holdMissing(int holdFrames, const ObjectSightings& sightings,
                 std::vector<StereoPoint>& points) {
  if (holdFrames <= 0) return;
  for (std::size_t i = 0; i < sightings.lastSeen.size(); ++i) {
    const std::int32_t misses = sightings.missCount[i];
    if (misses >= 1 && misses <= holdFrames && sightings.lastSeen[i].id != -1) {
      points.push_back(sightings.lastSeen[i]);
    }
  }
}

void distribute(const std::vector<std::int32_t>& pointsPerObject, std::vector<StereoPoint>& points,
                MarkerPoints& markers) {
  auto front = points.begin();  // all points before it are taken
  std::size_t k = 0;
  for (std::size_t object = 0; object < pointsPerObject.size(); ++object) {
    const auto id = static_cast<std::int32_t>(object);
    for (std::int32_t n = 0; n < pointsPerObject[object] && k < markers.index.size(); ++n, ++k) {
      markers.index[k] = -1;
      while (front != points.end() && front->id == kTaken) ++front;
      auto found = front;
      while (found != points.end() && found->id != id) ++found;
      if (found == points.end()) continue;
      markers.index[k] = id;
      markers.position[k] = toSingle(*found);
      markers.diameter[k] = found->diameter;
      found->id = kTaken;
    }
  }
  const auto end =
      std::remove_if(front, points.end(), [](const StereoPoint& p) { return p.id == kTaken; });
  points.erase(std::move(front, end, points.begin()), points.end());
}

}  // namespace algorithm
