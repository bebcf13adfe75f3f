#include <alg_factory/stereo3d/Triangulation.h>

#include <Eigen/LU>

namespace algorithm {

namespace {
constexpr double kMinDepth = 10.0;
}

Eigen::Vector3d midpoint(const StereoRays& rays, const Blob2DPoint& left,
                         const Blob2DPoint& right) {
  const Eigen::Vector3d& T = rays.leftCentreInRight;
  const Eigen::Vector3d dL = rays.leftRayInRight * Eigen::Vector3d(left.x, left.y, 1.0);
  const Eigen::Vector3d dR = rays.rightRay * Eigen::Vector3d(right.x, right.y, 1.0);

  Eigen::Matrix2d normal;
  normal << dR.dot(dR), dR.dot(dL), dL.dot(dR), dL.dot(dL);
  const Eigen::Vector2d parameters = normal.inverse() * Eigen::Vector2d(dR.dot(T), dL.dot(T));
  const double t = parameters(0);
  const double s = -parameters(1);
  return (t * dR + T + s * dL) / 2;
}

void triangulate(const StereoRays& rays, const BlobPairs& pairs, int id,
                 std::vector<StereoPoint>& points) {
  for (std::size_t i = 0; i + 1 < pairs.size(); i += 2) {
    const Blob2DPoint& left = pairs[i];
    const Blob2DPoint& right = pairs[i + 1];
    const Eigen::Vector3d p = midpoint(rays, left, right);
    if (!(p.z() > kMinDepth)) continue;
    points.push_back({p.x(), p.y(), p.z(), left.x, left.y, right.x, right.y,
                      (left.diameter + right.diameter) / 2, id});
  }
}

}  // namespace algorithm
