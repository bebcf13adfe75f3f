#include <sim/Scene.h>

#include <alg_factory/api/Constants.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace sim {
namespace {

// The pair lies along `pairAxis`; every other object has its marker in its origin.
std::vector<SceneObject> objectsOf(int productType, const std::vector<Eigen::Vector3d>& mounts,
                                   const Eigen::Vector3d& pairAxis) {
  std::vector<SceneObject> objects;
  for (int id = 0; id < objectCount(productType); ++id) {
    SceneObject object;
    object.id = id;
    object.mount = mounts[id];
    object.markers = {Eigen::Vector3d::Zero()};
    if (algorithm::markerCount(productType, id) == 2)
      object.markers = {-kPairSpacing / 2 * pairAxis, kPairSpacing / 2 * pairAxis};
    objects.push_back(std::move(object));
  }
  return objects;
}

std::vector<SceneObject> objectsInFront(int productType) {
  return objectsOf(productType,
                   {{-250, -60, 1500},
                    {250, -40, 1550},
                    {0, 150, 1450},
                    {-180, -200, 1600},
                    {190, -180, 1400},
                    {20, -20, 1650}},
                   Eigen::Vector3d::UnitX());
}

}  // namespace

int objectCount(int productType) {
  if (algorithm::isProductType(productType)) return algorithm::objectCount(productType);
  throw std::invalid_argument("expected product type 0, 1 or 2, found " +
                              std::to_string(productType));
}

Scene::Scene(int productType, std::vector<SceneObject> objects,
             std::optional<Trajectory> trajectory)
    : productType_(productType), objects_(std::move(objects)), trajectory_(std::move(trajectory)) {
  objectCount(productType);  // refuses an unknown product type
}

Scene Scene::moving(int productType, std::uint64_t seed) {
  auto objects = objectsInFront(productType);
  for (auto& object : objects)
    object.motion = SmoothMotion::handheld(seed * 100 + static_cast<std::uint64_t>(object.id));
  return Scene(productType, std::move(objects));
}

Scene Scene::still(int productType) {
  return Scene(productType, objectsInFront(productType));
}

Scene Scene::following(int productType, Trajectory trajectory) {
  return Scene(productType,
               objectsOf(productType,
                         {{-180, 40, 60},
                          {180, 40, 60},
                          {0, 0, 130},
                          {-120, -60, -90},
                          {120, -60, -90},
                          {0, 100, -150}},
                         Eigen::Vector3d(0.5, 0, std::sqrt(0.75))),
               std::move(trajectory));
}

Pose Scene::poseOf(const SceneObject& object, double seconds) const {
  if (trajectory_) {
    const Pose body = trajectory_->at(seconds);
    return {body.position + body.orientation * object.mount, body.orientation};
  }
  Pose pose = object.motion.at(seconds);
  pose.position += object.mount;
  return pose;
}

SceneState Scene::at(double seconds) const {
  SceneState state;
  state.time = seconds;
  for (const SceneObject& object : objects_) {
    const Pose pose = poseOf(object, seconds);
    for (std::size_t i = 0; i < object.markers.size(); ++i) {
      MarkerTruth marker;
      marker.objectId = object.id;
      marker.markerIndex = static_cast<int>(i);
      marker.position = pose.position + pose.orientation * object.markers[i];
      if (i < object.facings.size()) marker.facing = pose.orientation * object.facings[i];
      state.markers.push_back(marker);
    }
    state.objects.push_back({object.id, pose.position});
  }
  return state;
}

double Scene::duration() const {
  return trajectory_ ? trajectory_->duration() : std::numeric_limits<double>::infinity();
}

}  // namespace sim
