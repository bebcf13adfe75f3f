#include <alg_kit/bodies/Body.h>

#include <Eigen/Eigenvalues>
#include <cmath>

namespace bodies {

const BodyMarker* Body::markerOf(int id) const {
  for (const BodyMarker& marker : markers)
    if (marker.id == id) return &marker;
  return nullptr;
}

bool Body::isPair() const {
  return markers.size() == 2 && markers[0].id == kPairId && markers[1].id == kSecondOfPair;
}

Eigen::Vector3d axisOf(const Body& pair) {
  return (pair.markers[1].position - pair.markers[0].position).normalized();
}

Eigen::Vector3d meanOf(const Body& body) {
  Eigen::Vector3d sum = Eigen::Vector3d::Zero();
  for (const BodyMarker& marker : body.markers) sum += marker.position;
  return sum / static_cast<double>(body.markers.size());
}

bool spanPlane(const std::vector<Eigen::Vector3d>& points, double least) {
  if (points.size() < 3) return false;
  Eigen::Vector3d mean = Eigen::Vector3d::Zero();
  for (const Eigen::Vector3d& point : points) mean += point / static_cast<double>(points.size());
  Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
  for (const Eigen::Vector3d& point : points)
    scatter += (point - mean) * (point - mean).transpose() / static_cast<double>(points.size());
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> axes(scatter, Eigen::EigenvaluesOnly);
  return std::sqrt(std::max(0.0, axes.eigenvalues()[1])) > least;
}

}  // namespace bodies
