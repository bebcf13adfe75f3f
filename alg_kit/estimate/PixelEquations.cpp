#include <alg_kit/estimate/PixelEquations.h>

#include <Eigen/LU>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr double kOnAxis = 1e-9;          // lateral over z
constexpr int kMostLensSteps = 20;        // Newton
constexpr int kMostPointSteps = 10;       // Gauss-Newton
constexpr double kPointPrecision = 1e-9;  // of the distance

}  // namespace

Sighting onlyOf(const Sighting& sighting, int camera) {
  Sighting result;
  result.pixel[camera] = sighting.pixel[camera];
  return result;
}

Sighting commonOf(const Sighting& sighting, const Sighting& other) {
  Sighting result;
  for (const int camera : {kLeft, kRight})
    if (other.pixel[camera]) result.pixel[camera] = sighting.pixel[camera];
  return result;
}

PixelEquations::PixelEquations(const algorithm::StereoCalibration& c) {
  const auto camera = [](const double(&k)[9], const double(&d)[8]) {
    return Camera{
        k[0], k[4], k[2], k[5], {d[0], d[1], d[2], d[3]}, Matrix3d::Identity(), Vector3d::Zero()};
  };
  cameras_[kLeft] = camera(c.leftIntrinsics, c.leftDistortion);
  cameras_[kRight] = camera(c.rightIntrinsics, c.rightDistortion);
  // The calibration takes the left frame to the right one: R is its inverse's transpose.
  cameras_[kLeft].R_RtoC = Eigen::Map<const Matrix3d>(c.rotation);  // column by column: transposed
  cameras_[kLeft].centre = Vector3d(c.translation);
}

std::optional<Projection> PixelEquations::project(int camera, const Vector3d& point) const {
  const Camera& c = cameras_[camera];
  const Vector3d q = camera == kRight ? point : Vector3d(c.R_RtoC * (point - c.centre));
  if (!(q.z() > 0)) return std::nullopt;
  const double lateral2 = q.x() * q.x() + q.y() * q.y();
  const double lateral = std::sqrt(lateral2);
  // scale: pixel offset over focal length and lateral offset; its slopes along lateral and z.
  double scale = 1 / q.z();
  double slopeOverLateral = 0;
  double slopeZ = -scale * scale;
  if (lateral > kOnAxis * q.z()) {
    const double theta = std::atan2(lateral, q.z());
    const double t2 = theta * theta;
    const double* const k = c.k;
    const double radius = theta * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
    const double slope = 1 + t2 * (3 * k[0] + t2 * (5 * k[1] + t2 * (7 * k[2] + t2 * 9 * k[3])));
    if (!(slope > 0 && radius > 0)) return std::nullopt;
    const double distance2 = lateral2 + q.z() * q.z();
    scale = radius / lateral;
    slopeOverLateral = (slope * q.z() / distance2 - scale) / lateral2;
    slopeZ = -slope / distance2;
  }
  Projection result;
  result.pixel = Vector2d(c.fx * q.x() * scale + c.cx, c.fy * q.y() * scale + c.cy);
  Eigen::Matrix<double, 2, 3>& j = result.jacobian;
  const double cross = q.x() * q.y() * slopeOverLateral;
  j(0, 0) = c.fx * (scale + q.x() * q.x() * slopeOverLateral);
  j(0, 1) = c.fx * cross;
  j(0, 2) = c.fx * q.x() * slopeZ;
  j(1, 0) = c.fy * cross;
  j(1, 1) = c.fy * (scale + q.y() * q.y() * slopeOverLateral);
  j(1, 2) = c.fy * q.y() * slopeZ;
  if (camera == kLeft) j = (j * c.R_RtoC).eval();
  return result;
}

std::optional<PositionInformation> PixelEquations::information(const Sighting& sighting,
                                                               const Vector3d& at,
                                                               double noise) const {
  Projections seen;
  for (const int camera : {kLeft, kRight})
    if (sighting.pixel[camera]) seen[static_cast<std::size_t>(camera)] = project(camera, at);
  return information(sighting, at, seen, noise);
}

std::optional<PositionInformation> PixelEquations::information(const Sighting& sighting,
                                                               const Vector3d& at,
                                                               const Projections& projections,
                                                               double noise) {
  PositionInformation result;
  result.at = at;
  const double precision = 1 / (noise * noise);
  for (const int camera : {kLeft, kRight}) {
    if (!sighting.pixel[camera]) continue;
    const std::optional<Projection>& seen = projections[static_cast<std::size_t>(camera)];
    if (!seen) return std::nullopt;
    const Vector2d residual = *sighting.pixel[camera] - seen->pixel;
    result.weight += precision * seen->jacobian.transpose() * seen->jacobian;
    result.pull += precision * seen->jacobian.transpose() * residual;
    result.misfit += precision * residual.squaredNorm();
    result.numbers += 2;
  }
  if (sighting.both()) determine(result);
  return result;
}

std::optional<Vector3d> PixelEquations::rayOf(int camera, const Vector2d& pixel) const {
  const Camera& c = cameras_[camera];
  const double x = (pixel.x() - c.cx) / c.fx, y = (pixel.y() - c.cy) / c.fy;
  const double radius = std::hypot(x, y);
  double theta = radius;
  for (int step = 0; step < kMostLensSteps; ++step) {
    const double t2 = theta * theta;
    const double* const k = c.k;
    const double value = theta * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
    const double slope = 1 + t2 * (3 * k[0] + t2 * (5 * k[1] + t2 * (7 * k[2] + t2 * 9 * k[3])));
    if (!(slope > 0)) return std::nullopt;
    const double change = (radius - value) / slope;
    theta += change;
    if (std::abs(change) < 1e-12) break;
  }
  if (!(theta >= 0 && theta < 1.5707)) return std::nullopt;  // not in front of the camera
  const double share = radius > kOnAxis ? std::tan(theta) / radius : 1;
  const Vector3d ray(x * share, y * share, 1);
  return camera == kRight ? ray : Vector3d(c.R_RtoC.transpose() * ray);
}

std::optional<Vector3d> PixelEquations::triangulate(const Sighting& sighting) const {
  const auto left = rayOf(kLeft, *sighting.pixel[kLeft]);
  const auto right = rayOf(kRight, *sighting.pixel[kRight]);
  if (!left || !right) return std::nullopt;
  // The middle of the rays' closest points, refined in the images.
  const Vector3d& centre = cameras_[kLeft].centre;
  const double ll = left->squaredNorm(), rr = right->squaredNorm(), lr = left->dot(*right);
  const double determinant = ll * rr - lr * lr;
  if (!(determinant > 1e-12 * ll * rr)) return std::nullopt;
  const double s = (lr * right->dot(centre) - rr * left->dot(centre)) / determinant;
  const double t = (ll * right->dot(centre) - lr * left->dot(centre)) / determinant;
  Vector3d point = 0.5 * (t * *right + centre + s * *left);
  for (int step = 0; step < kMostPointSteps; ++step) {
    const auto fit = information(sighting, point, 1);
    if (!fit) return std::nullopt;
    const Vector3d change = fit->weight.inverse() * fit->pull;
    point += change;
    if (!point.allFinite()) return std::nullopt;
    if (change.norm() < kPointPrecision * point.norm()) break;
  }
  if (!project(kLeft, point) || !project(kRight, point)) return std::nullopt;
  return point;
}

}  // namespace estimate
