#pragma once

#include <optional>

#include <Eigen/Core>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

/// The constant-velocity model with position observed, one axis of it: A = [1 h; 0 1], C = [1 0],
/// Q = q I, R = r. All axes have the same covariance and gain, which do not depend on what is
/// measured, so one set serves them all. Every operation is the one that the dense products of
/// KalmanFilter do on the entries that are not zero, in the same order: the bits are the same.
class AxisFilter {
 public:
  static constexpr int kAxes = 3;
  static constexpr int kStates = 2 * kAxes;

  /// The axis filter of a six-state model of this kind; nothing for any other model.
  static std::optional<AxisFilter> recognise(const Eigen::MatrixXd& transition,
                                             const Eigen::MatrixXd& observation,
                                             const Eigen::MatrixXd& processNoise,
                                             const Eigen::MatrixXd& measurementNoise,
                                             const Eigen::MatrixXd& initialCovariance);

  void start();

  /// Predicts and corrects the covariance, which gives the gain of this update.
  void advanceCovariance();

  /// Predicts and corrects the six states at `state` with the three measurements at `y`.
  /// @return false, with nothing changed, when a number that is not finite would spread from one
  ///         axis to the others, as it does in the dense products.
  bool advanceState(const double* y, double* state) const;

  bool started() const { return started_; }
  Eigen::MatrixXd covariance() const;  ///< six by six, empty before the first start
  Eigen::MatrixXd gain() const;        ///< six by three, empty before the first update

 private:
  AxisFilter(double step, double processNoise, double measurementNoise, double initialVariance)
      : step_(step),
        processNoise_(processNoise),
        measurementNoise_(measurementNoise),
        initialVariance_(initialVariance) {}

  double step_;              ///< h
  double processNoise_;      ///< q
  double measurementNoise_;  ///< r
  double initialVariance_;

  // Covariance of (position, velocity), by row; it is not symmetric to the last bit.
  double pp_ = 0, pv_ = 0, vp_ = 0, vv_ = 0;
  double positionGain_ = 0, velocityGain_ = 0;
  bool started_ = false;
  bool updated_ = false;
};

inline void AxisFilter::start() {
  pp_ = vv_ = initialVariance_;
  pv_ = vp_ = 0.0;
  started_ = true;
}

inline void AxisFilter::advanceCovariance() {
  const double h = step_;
  // A P, then (A P) A^T + Q
  const double app = pp_ + h * vp_;
  const double apv = pv_ + h * vv_;
  const double pp = (app + apv * h) + processNoise_;
  const double pv = apv;
  const double vp = vp_ + vv_ * h;
  const double vv = vv_ + processNoise_;

  // The inverse as a factorisation with pivoting gives it: the reciprocal of the pivot.
  const double inverse = 1.0 / (pp + measurementNoise_);
  positionGain_ = pp * inverse;
  velocityGain_ = vp * inverse;

  const double keep = 1.0 - positionGain_;
  pp_ = keep * pp;
  pv_ = keep * pv;
  vp_ = -velocityGain_ * pp + vp;
  vv_ = -velocityGain_ * pv + vv;
  updated_ = true;
}

inline bool AxisFilter::advanceState(const double* y, double* state) const {
  // Two axes side by side, then the third. The dense products start their sums from zero, which
  // turns a negative zero into a positive.
  const Twin velocity2 = 0.0 + load(state + kAxes);
  const Twin position2 = (0.0 + load(state)) + step_ * velocity2;
  const Twin innovation2 = load(y) - position2;
  const double velocity = 0.0 + state[2 + kAxes];
  const double position = (0.0 + state[2]) + step_ * velocity;
  const double innovation = y[2] - position;

  // Zero while the innovations, hence all they come from, are finite.
  const Twin zero2 = 0.0 * innovation2;
  if (!(zero2[0] + zero2[1] + 0.0 * innovation == 0.0)) return false;
  store(position2 + positionGain_ * innovation2, state);
  state[2] = position + positionGain_ * innovation;
  store(velocity2 + velocityGain_ * innovation2, state + kAxes);
  state[2 + kAxes] = velocity + velocityGain_ * innovation;
  return true;
}

}  // namespace algorithm
