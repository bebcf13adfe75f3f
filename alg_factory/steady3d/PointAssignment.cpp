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

std::vector<std::int32_t> objectsByMarker(const std::vector<std::int32_t>& pointsPerObject) {
  std::vector<std::int32_t> objects;
  for (std::size_t object = 0; object < pointsPerObject.size(); ++object) {
    objects.insert(objects.end(), static_cast<std::size_t>(pointsPerObject[object]),
                   static_cast<std::int32_t>(object));
  }
  return objects;
}

void distribute(const std::vector<std::int32_t>& objectByMarker, std::vector<StereoPoint>& points,
                MarkerPoints& markers) {
  StereoPoint* front = points.data();  // all points before it are taken
  StereoPoint* const end = front + points.size();
  const std::size_t count = std::min(objectByMarker.size(), markers.index.size());
  for (std::size_t k = 0; k < count; ++k) {
    const std::int32_t id = objectByMarker[k];
    while (front != end && front->id == kTaken) ++front;
    StereoPoint* found = front;
    while (found != end && found->id != id) ++found;
    if (found == end) {
      markers.index[k] = -1;
      continue;
    }
    markers.index[k] = id;
    markers.position[k] = toSingle(*found);
    markers.diameter[k] = found->diameter;
    found->id = kTaken;
  }
  const auto left = std::remove_if(front, end, [](const StereoPoint& p) { return p.id == kTaken; });
  points.resize(static_cast<std::size_t>(std::move(front, left, points.data()) - points.data()));
}

}  // namespace algorithm
