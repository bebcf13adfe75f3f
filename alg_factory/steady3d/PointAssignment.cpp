#include <alg_factory/steady3d/PointAssignment.h>

#include <algorithm>
#include <limits>

namespace algorithm {

namespace {

constexpr std::int32_t kTaken = std::numeric_limits<std::int32_t>::min();

template <typename Points>
auto findId(Points& points, std::size_t id) {
  return std::find_if(points.begin(), points.end(),
                      [&](const StereoPoint& p) { return p.id == static_cast<std::int32_t>(id); });
}

}  // namespace

void noteSightings(const std::vector<StereoPoint>& points, ObjectSightings& sightings) {
  for (std::size_t i = 0; i < sightings.lastSeen.size(); ++i) {
    const auto found = findId(points, i);
    std::int32_t& misses = sightings.missCount[i];
    if (found != points.end()) {
      StereoPoint& last = sightings.lastSeen[i];
      last.x = found->x;
      last.y = found->y;
      last.z = found->z;
      last.id = found->id;
      misses = 0;
    } else if (misses < std::numeric_limits<std::int32_t>::max()) {
      ++misses;
    }
  }
}

void holdMissing(int holdFrames, const ObjectSightings& sightings,
                 std::vector<StereoPoint>& points) {
  for (std::size_t i = 0; i < sightings.lastSeen.size(); ++i) {
    const std::int32_t misses = sightings.missCount[i];
    if (misses >= 1 && misses <= holdFrames && sightings.lastSeen[i].id != -1) {
      points.push_back(sightings.lastSeen[i]);
    }
  }
}

void distribute(const std::vector<std::int32_t>& pointsPerObject, std::vector<StereoPoint>& points,
                MarkerPoints& markers) {
  std::size_t k = 0;
  for (std::size_t object = 0; object < pointsPerObject.size(); ++object) {
    for (std::int32_t n = 0; n < pointsPerObject[object] && k < markers.index.size(); ++n, ++k) {
      markers.index[k] = -1;
      markers.sighting[k].id = -1;
      const auto found = findId(points, object);
      if (found == points.end()) continue;
      markers.index[k] = static_cast<std::int32_t>(object);
      markers.position[k] = toSingle(*found);
      markers.sighting[k] = *found;
      found->id = kTaken;
    }
  }
  points.erase(std::remove_if(points.begin(), points.end(),
                              [](const StereoPoint& p) { return p.id == kTaken; }),
               points.end());
}

}  // namespace algorithm
