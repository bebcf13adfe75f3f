#include <alg_kit/estimate/MarkerSpacing.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// Of what is known before a frame: the mean runs over a thousand, by then it is known to a tenth
/// of a millimetre or so, and what was taken in with a wrong blob noise at first is forgotten.
constexpr double kKept = 0.999;

/// Half of how far apart, in standard deviations, the two points have to be where the direction is
/// taken for known. Nearer, the wrong one could be taken, for sure from then on.
constexpr double kApart = 4;
/// Of the variance, what the spacing has to leave at most. Its error, and that of the direction, is
/// the same from frame to frame: it must not be taken in again and again.
constexpr double kOfUse = 0.5;

/// Of an offset's square, if it has a normal distribution: 4 o^T C o + 2 tr C^2.
double varianceOfSquare(const Vector3d& offset, const Matrix3d& covariance) {
  return 4 * offset.dot(covariance * offset) + 2 * covariance.squaredNorm();
}

}  // namespace

void MarkerSpacing::add(const PositionInformation& offset, const Vector3d& expected) {
  const Vector3d measured = offset.at + offset.covariance * offset.pull;
  const double weight = 1 / varianceOfSquare(expected, offset.covariance);
  weight_ = kKept * weight_ + weight;
  sum_ = kKept * sum_ + weight * (measured.squaredNorm() - offset.covariance.trace());
}

std::optional<PositionInformation> MarkerSpacing::informationAt(
    const InteractingModels::Place& offset) const {
  if (!(weight_ > 0)) return std::nullopt;
  // Along the least certain direction the offset is on a line, and the spacing is a sphere.
  Eigen::SelfAdjointEigenSolver<Matrix3d> axes;
  axes.computeDirect(offset.pp);
  const Vector3d along = axes.eigenvectors().col(2);
  const double variance = axes.eigenvalues()[2], at = along.dot(offset.p);
  const Vector3d across = offset.p - at * along;
  const Matrix3d covariance = offset.pp - variance * along * along.transpose();

  // They meet at +root and -root: each with its own variance, and as likely as it is near.
  const double square = sum_ / weight_ - across.squaredNorm() - covariance.trace();
  const double spread = 1 / weight_ + varianceOfSquare(across, covariance);
  const bool apart = square > kApart * kApart * variance;
  if (!apart && square > variance) return std::nullopt;
  const double root = std::sqrt(std::max(square, 0.0));
  const double own = spread / (4 * root * root + std::sqrt(spread));
  const double share = variance / (variance + own);
  const double side = std::tanh(at * root / (variance + own));
  const double mean = share * side * root + (1 - share) * at;
  const double left = share * own + share * share * root * root * (1 - side * side);
  if (!(left < kOfUse * variance)) return std::nullopt;

  PositionInformation result;
  const double weight = 1 / left - 1 / variance, pull = (mean - at) / left;
  result.at = offset.p;
  result.weight = weight * along * along.transpose();
  result.pull = pull * along;
  result.misfit = pull * pull / weight;
  result.numbers = 1;
  return result;
}

}  // namespace estimate
