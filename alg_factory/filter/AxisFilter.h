#pragma once

#include <optional>

#include <Eigen/Core>

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

}  // namespace algorithm
