#pragma once

#include <cstdint>

#include <Eigen/Core>

namespace algorithm {

/// Linear Kalman filter (Kalman, "A New Approach to Linear Filtering and Prediction Problems",
/// 1960) over matrices of any size, with n states and m measurements:
///   predict  x = A x,  P = A P A^T + Q
///   correct  K = P C^T (C P C^T + R)^-1,  x += K (y - C x),  P = (I - K C) P
/// No operation checks shapes or singularity: the caller guarantees them. Copies are deep.
class KalmanFilter {
 public:
  using Matrix = Eigen::MatrixXd;
  using Vector = Eigen::VectorXd;

  /// A slot to be assigned from a built filter: every matrix is empty.
  KalmanFilter() = default;

  /// @param timeStep          seconds between updates; bookkeeping only
  /// @param transition        A, n x n
  /// @param observation       C, m x n
  /// @param processNoise      Q, n x n
  /// @param measurementNoise  R, m x m, positive definite
  /// @param covariance        P0, n x n, restored by every `init`
  KalmanFilter(double timeStep, const Matrix& transition, const Matrix& observation,
               const Matrix& processNoise, const Matrix& measurementNoise,
               const Matrix& covariance);

  /// Starts from the zero state at time 0.
  void init();

  /// Starts at `startTime` from x0; a shorter x0 fills the leading entries and the rest are zero, a
  /// longer one is cut.
  void init(double startTime, const Vector& x0);

  /// One predict-and-correct step. Starts from the zero state if the filter was never started.
  /// @param y  measurement, m entries
  void update(const Vector& y);

  /// As `update(y)`, after replacing the time step and the transition matrix.
  void update(const Vector& y, double timeStep, Matrix transition);

  /// The estimate, n entries; zeros before the first start, empty in a default-constructed filter.
  const Vector& state() const { return stateEstimate_; }

  const Matrix& transition() const { return transition_; }
  const Matrix& observation() const { return observation_; }
  const Matrix& processNoise() const { return processNoise_; }
  const Matrix& measurementNoise() const { return measurementNoise_; }
  const Matrix& covariance() const { return covariance_; }
  const Matrix& gain() const { return gain_; }
  const Matrix& initialCovariance() const { return initialCovariance_; }
  const Matrix& identity() const { return identity_; }
  const Vector& predictedState() const { return predictedState_; }
  std::int32_t measurementDim() const { return measurementDim_; }
  std::int32_t stateDim() const { return stateDim_; }
  double startTime() const { return startTime_; }
  double time() const { return time_; }
  double timeStep() const { return timeStep_; }
  bool initialized() const { return initialized_; }

 private:
  Matrix transition_;         ///< A
  Matrix observation_;        ///< C
  Matrix processNoise_;       ///< Q
  Matrix measurementNoise_;   ///< R
  Matrix covariance_;         ///< P, empty until the first `init`
  Matrix gain_;               ///< K, empty until the first update
  Matrix initialCovariance_;  ///< P0
  std::int32_t measurementDim_ = 0;
  std::int32_t stateDim_ = 0;
  double startTime_ = 0.0;
  double time_ = 0.0;
  double timeStep_ = 0.0;
  bool initialized_ = false;
  Matrix identity_;
  Vector stateEstimate_;
  Vector predictedState_;
};

}  // namespace algorithm
