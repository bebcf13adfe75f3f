#include <alg_factory/filter/AxisFilter.h>

namespace algorithm {

namespace {

using Eigen::MatrixXd;

/// The factor of a multiple of the identity; nothing for any other matrix, nor for factors so large
/// or small that products of them could leave the range of double.
std::optional<double> factorOfIdentity(const MatrixXd& matrix, int size, double smallest) {
  constexpr double kLargest = 1e30;
  if (matrix.rows() != size || matrix.cols() != size) return std::nullopt;
  const double factor = matrix(0, 0);
  if (!(factor >= smallest && factor <= kLargest)) return std::nullopt;
  if (matrix != factor * MatrixXd::Identity(size, size)) return std::nullopt;
  return factor;
}

}  // namespace

std::optional<AxisFilter> AxisFilter::recognise(const MatrixXd& transition,
                                                const MatrixXd& observation,
                                                const MatrixXd& processNoise,
                                                const MatrixXd& measurementNoise,
                                                const MatrixXd& initialCovariance) {
  if (transition.rows() != kStates || transition.cols() != kStates) return std::nullopt;
  const auto step = factorOfIdentity(transition.topRightCorner(kAxes, kAxes), kAxes, 0.0);
  const auto q = factorOfIdentity(processNoise, kStates, 0.0);
  const auto r = factorOfIdentity(measurementNoise, kAxes, 1e-30);
  const auto p = factorOfIdentity(initialCovariance, kStates, 0.0);
  if (!step || !q || !r || !p) return std::nullopt;

  MatrixXd constantVelocity = MatrixXd::Identity(kStates, kStates);
  constantVelocity.topRightCorner(kAxes, kAxes) = *step * MatrixXd::Identity(kAxes, kAxes);
  if (transition != constantVelocity) return std::nullopt;
  if (observation.rows() != kAxes || observation.cols() != kStates) return std::nullopt;
  if (observation != MatrixXd::Identity(kAxes, kStates)) return std::nullopt;
  return AxisFilter(*step, *q, *r, *p);
}

MatrixXd AxisFilter::covariance() const {
  if (!started_) return {};
  MatrixXd p = MatrixXd::Zero(kStates, kStates);
  p.topLeftCorner(kAxes, kAxes).diagonal().setConstant(pp_);
  p.topRightCorner(kAxes, kAxes).diagonal().setConstant(pv_);
  p.bottomLeftCorner(kAxes, kAxes).diagonal().setConstant(vp_);
  p.bottomRightCorner(kAxes, kAxes).diagonal().setConstant(vv_);
  return p;
}

MatrixXd AxisFilter::gain() const {
  if (!updated_) return {};
  MatrixXd k = MatrixXd::Zero(kStates, kAxes);
  k.topRows(kAxes).diagonal().setConstant(positionGain_);
  k.bottomRows(kAxes).diagonal().setConstant(velocityGain_);
  return k;
}

}  // namespace algorithm
