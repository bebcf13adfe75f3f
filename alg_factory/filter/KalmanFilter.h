#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

#include <alg_factory/filter/AxisFilter.h>

namespace algorithm {

/// Linear Kalman filter (Kalman, "A New Approach to Linear Filtering and Prediction Problems",
/// 1960) over matrices of any size, with n states and m measurements:
///   predict  x = A x,  P = A P A^T + Q
///   correct  K = P C^T (C P C^T + R)^-1,  x += K (y - C x),  P = (I - K C) P
/// No operation checks shapes or singularity: the caller guarantees them. Copies are deep.
///
/// The system's own model (constant velocity, position observed, noises that are multiples of the
/// identity) falls apart into one small filter per axis. It is recognised when the filter is built
/// and then runs without allocation, with the same bits as the dense products give.
class KalmanFilter {
 public:
  using Matrix = Eigen::MatrixXd;
  using Vector = Eigen::VectorXd;
  /// Any vector expression that lies in memory, without a copy.
  using VectorRef = Eigen::Ref<const Vector>;

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
  void init(double startTime, const VectorRef& x0);

  /// One predict-and-correct step. Starts from the zero state if the filter was never started.
  /// @param y  measurement, m entries
  void update(const VectorRef& y);

  /// As `update(y)`, after replacing the time step and the transition matrix.
  void update(const VectorRef& y, double timeStep, Matrix transition);

  /// The estimate, n entries; zeros before the first start, empty in a default-constructed filter.
  const Vector& state() const { return stateEstimate_; }

  const Matrix& transition() const { return transition_; }
  const Matrix& observation() const { return observation_; }
  const Matrix& processNoise() const { return processNoise_; }
  const Matrix& measurementNoise() const { return measurementNoise_; }
  Matrix covariance() const;  ///< empty until the first `init`
  Matrix gain() const;        ///< empty until the first update
  const Matrix& initialCovariance() const { return initialCovariance_; }
  const Matrix& identity() const { return identity_; }
  const Vector& predictedState() const { return predictedState_; }
  std::int32_t measurementDim() const { return measurementDim_; }
  std::int32_t stateDim() const { return stateDim_; }
  double startTime() const { return startTime_; }
  double time() const { return time_; }
  double timeStep() const { return timeStep_; }
  bool initialized() const { return initialized_; }

  /// True while the filter runs as one small filter per axis.
  bool runsPerAxis() const { return axis_.has_value(); }

 private:
  void updateDense(const VectorRef& y);
  /// With the covariance and gain of the axes.
  void updateAllAxes(const VectorRef& y);

  Matrix transition_;         ///< A
  Matrix observation_;        ///< C
  Matrix processNoise_;       ///< Q
  Matrix measurementNoise_;   ///< R
  Matrix covariance_;         ///< P; unused while `axis_` holds it
  Matrix gain_;               ///< K; unused while `axis_` holds it
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
  std::optional<AxisFilter> axis_;
};

}  // namespace algorithm
