#include <alg_kit/bodies/BodyMap.h>

#include <alg_kit/bodies/PoseInformation.h>

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <cmath>
#include <optional>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// The 24 turns that take a cube to itself.
std::vector<Matrix3d> cubeTurns() {
  std::vector<Matrix3d> turns;
  for (int x = 0; x < 3; ++x)
    for (int y = 0; y < 3; ++y)
      for (const double sx : {1.0, -1.0})
        for (const double sy : {1.0, -1.0}) {
          if (x == y) continue;
          Matrix3d turn;
          turn.col(0) = sx * Vector3d::Unit(x);
          turn.col(1) = sy * Vector3d::Unit(y);
          turn.col(2) = turn.col(0).cross(turn.col(1));
          turns.push_back(turn);
        }
  return turns;
}

/// The pose's covariance by all pixels; nothing where they do not tell a pose.
std::optional<Matrix6d> covarianceAt(const Body& body, const estimate::PixelEquations& cameras,
                                     double noise, const Matrix3d& turn, const Vector3d& place) {
  const Vector3d middle = meanOf(body);
  PoseInformation all;
  for (const BodyMarker& marker : body.markers) {
    const Vector3d arm = turn * (marker.position - middle);
    estimate::Sighting sighting;
    for (const int camera : {estimate::kLeft, estimate::kRight}) {
      const auto image = cameras.project(camera, place + arm);
      if (!image) return std::nullopt;
      sighting.pixel[camera] = image->pixel;
    }
    all.add(arm, *cameras.information(sighting, place + arm, noise));
  }
  const Matrix6d covariance = all.weight.inverse();
  if (!covariance.allFinite() || covariance.diagonal().minCoeff() <= 0) return std::nullopt;
  return covariance;
}

}  // namespace

std::vector<ExpectedErrors> expectedErrors(const Body& body,
                                           const estimate::PixelEquations& cameras, double noise,
                                           const std::vector<double>& distances) {
  const std::vector<Matrix3d> turns = cubeTurns();
  std::vector<ExpectedErrors> result;
  for (const double distance : distances) {
    // In front of the point between the cameras.
    const Vector3d place = 0.5 * cameras.centreOf(estimate::kLeft) + distance * Vector3d::UnitZ();
    Vector6d sum = Vector6d::Zero();
    bool seen = true;
    for (const Matrix3d& turn : turns) {
      const auto covariance = covarianceAt(body, cameras, noise, turn, place);
      seen = seen && covariance;
      if (covariance) sum += covariance->diagonal() / static_cast<double>(turns.size());
    }
    if (!seen) continue;
    result.push_back({distance, std::sqrt(0.5 * (sum[0] + sum[1])), std::sqrt(sum[2]),
                      kDegrees * std::sqrt(sum[5]), kDegrees * std::sqrt(0.5 * (sum[3] + sum[4]))});
  }
  return result;
}

}  // namespace bodies
