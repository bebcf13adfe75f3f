#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_factory/filter/KalmanFilter.h>

namespace algorithm {

/// The system's motion model: state (x, y, z, vx, vy, vz), measurement (x, y, z), constant velocity
/// over frames of 1/90 s. Positions are in the unit u of the calibration's translation, velocities
/// in u/s. The noises are the system's own choice of values. The matrices are empty until `build`.
struct ConstantVelocityModel {
  static constexpr double kTimeStep = 0.011111111111111112;  ///< seconds, 1/90

  KalmanFilter::Matrix transition;         ///< 6x6, identity with the time step above the diagonal
  KalmanFilter::Matrix observation;        ///< 3x6, the position
  KalmanFilter::Matrix processNoise;       ///< 6x6, 1e-5 I; u^2 and (u/s)^2 a frame
  KalmanFilter::Matrix measurementNoise;   ///< 3x3, 1e-4 I in mode 1, otherwise 1e-6 I; u^2
  KalmanFilter::Matrix initialCovariance;  ///< 6x6, zero

  static ConstantVelocityModel build(int filterMode);

  /// A filter of this model, not started.
  KalmanFilter makeFilter() const;
};

}  // namespace algorithm
