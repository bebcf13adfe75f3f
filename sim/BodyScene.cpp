#include <sim/BodyScene.h>

#include <stdexcept>
#include <utility>

namespace sim {
namespace {

constexpr int kTwoPointType = 1;  // the product type that has such an object

Scene pairScene(const bodies::Body& pair, const std::string& name, int productType,
                Trajectory trajectory) {
  if (productType != kTwoPointType)
    throw std::invalid_argument(name +
                                ": expected product type 1 with two markers of one id, found " +
                                std::to_string(productType));
  SceneObject object;
  object.id = bodies::kPairId;
  object.mount = bodies::meanOf(pair);
  for (const bodies::BodyMarker& marker : pair.markers) {
    object.markers.push_back(marker.position - object.mount);
    object.facings.push_back(marker.facing);
  }
  return Scene(productType, {object}, std::move(trajectory));
}

}  // namespace

Scene sceneOf(const bodies::Body& body, const std::string& name, int productType,
              Trajectory trajectory) {
  if (body.isPair()) return pairScene(body, name, productType, std::move(trajectory));
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
