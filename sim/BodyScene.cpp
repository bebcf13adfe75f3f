#include <sim/BodyScene.h>

#include <stdexcept>
#include <utility>

namespace sim {

Scene sceneOf(const bodies::Body& body, const std::string& name, int productType,
              Trajectory trajectory) {
  std::vector<SceneObject> objects;
  const Eigen::Vector3d middle = bodies::meanOf(body);
  for (const bodies::BodyMarker& marker : body.markers) {
    if (marker.id >= objectCount(productType))
      throw std::invalid_argument(name + ": expected ids below " +
                                  std::to_string(objectCount(productType)) +
                                  ", which product type " + std::to_string(productType) +
                                  " has, found " + std::to_string(marker.id));
    SceneObject& object = objects.emplace_back();
    object.id = marker.id;
    object.markers = {Eigen::Vector3d::Zero()};
    object.mount = marker.position;
    const Eigen::Vector3d facing =
        marker.facing.isZero(0) ? (marker.position - middle).normalized() : marker.facing;
    object.facings = {facing};
  }
  return Scene(productType, std::move(objects), std::move(trajectory));
}

}  // namespace sim
