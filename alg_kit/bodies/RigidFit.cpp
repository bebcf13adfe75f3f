#include <alg_kit/bodies/RigidFit.h>

#include <Eigen/SVD>

namespace bodies {

using Eigen::Matrix3d;
using Eigen::Vector3d;

RigidMotion changedBy(const RigidMotion& motion, const Eigen::Matrix<double, 6, 1>& change) {
  const Vector3d rotation = change.tail<3>();
  const double angle = rotation.norm();
  RigidMotion result = motion;
  result.position += change.head<3>();
  if (angle > 0)
    result.orientation =
        (Eigen::Quaterniond(Eigen::AngleAxisd(angle, rotation / angle)) * motion.orientation)
            .normalized();
  return result;
}

Eigen::Matrix<double, 6, 1> differenceOf(const RigidMotion& from, const RigidMotion& to) {
  const Eigen::AngleAxisd turn(to.orientation * from.orientation.conjugate());
  Eigen::Matrix<double, 6, 1> change;
  change << to.position - from.position, turn.angle() * turn.axis();
  return change;
}

RigidMotion fitRigid(const Vector3d* from, const Vector3d* to, const double* weights,
                     std::size_t count) {
  double sum = 0;
  Vector3d meanFrom = Vector3d::Zero(), meanTo = Vector3d::Zero();
  for (std::size_t i = 0; i < count; ++i) {
    sum += weights[i];
    meanFrom += weights[i] * from[i];
    meanTo += weights[i] * to[i];
  }
  meanFrom /= sum;
  meanTo /= sum;
  Matrix3d correlation = Matrix3d::Zero();
  for (std::size_t i = 0; i < count; ++i)
    correlation += weights[i] * (to[i] - meanTo) * (from[i] - meanFrom).transpose();
  const Eigen::JacobiSVD<Matrix3d> svd(correlation, Eigen::ComputeFullU | Eigen::ComputeFullV);
  const double sign = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0 ? -1 : 1;
  const Matrix3d rotation =
      svd.matrixU() * Vector3d(1, 1, sign).asDiagonal() * svd.matrixV().transpose();
  RigidMotion result;
  result.orientation = Eigen::Quaterniond(rotation).normalized();
  result.position = meanTo - result.orientation * meanFrom;
  return result;
}

Matrix3d skew(const Vector3d& v) {
  Matrix3d result;
  result << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
  return result;
}

}  // namespace bodies
