// A point's motion as a Gaussian, and the two steps of a Kalman filter on it.
#pragma once

#include <Eigen/Core>

namespace estimate {

/// Position, velocity and acceleration of a point with their joint covariance, in 3x3 blocks: `pv`
/// is the covariance of p with v. The blocks below the diagonal are the transposes. Right camera's
/// frame; the unit of the calibration's translation (mm) and seconds.
struct MotionState {
  Eigen::Vector3d p = Eigen::Vector3d::Zero();
  Eigen::Vector3d v = Eigen::Vector3d::Zero();
  Eigen::Vector3d a = Eigen::Vector3d::Zero();
  Eigen::Matrix3d pp = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d pv = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d pa = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d vv = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d va = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d aa = Eigen::Matrix3d::Zero();
};

/// What a measurement says about a position, in information form, so that two cameras and one are
/// the same to the filter: of one camera's sighting `weight` has rank 2. With the residual r, the
/// Jacobian J (both at the position `at`) and the noise R of the measurement:
///     weight = J^T R^-1 J,  pull = J^T R^-1 r,  misfit = r^T R^-1 r.
struct PositionInformation {
  Eigen::Vector3d at = Eigen::Vector3d::Zero();
  Eigen::Matrix3d weight = Eigen::Matrix3d::Zero();
  Eigen::Vector3d pull = Eigen::Vector3d::Zero();
  double misfit = 0;
  int numbers = 0;  ///< of the measurement: 2 per camera
};

/// How a measurement fits a state.
struct Fit {
  double distance2 = 0;      ///< squared Mahalanobis distance of the measurement's numbers
  double logLikelihood = 0;  ///< but for terms that are the same for every state
};

/// How a state moves on in a certain time: the acceleration fades with the time constant `memory`
/// and is driven by white noise.
struct Step {
  /// @param memory  seconds
  Step(double seconds, double memory);

  double t;     ///< seconds
  double fade;  ///< of the acceleration
  double av;    ///< acceleration into velocity
  double ap;    ///< acceleration into position
};

/// Moves the state on. The acceleration's noise is white jerk of the spectral density `jerk`
/// (mm^2/s^5). Singer, IEEE Trans. Aerospace and Electronic Systems 6, 1970; the noise's covariance
/// is that of the white-jerk model, to which Singer's tends for steps short against the memory
/// (Bar-Shalom, Li, Kirubarajan, Estimation with Applications to Tracking and Navigation, 2001,
/// sections 6.2.3 and 8.2.3).
void predict(MotionState& state, const Step& step, double jerk);

/// How the measurement fits.
Fit fitOf(const MotionState& state, const PositionInformation& information);

/// The Kalman update, and how the measurement fitted before it.
/// @param tremor  standard deviation per axis of what displaces the marker from `state` in this
///                frame alone, mm
/// @param marker  filled with the displaced marker's state, if not null
Fit fitAndCorrect(MotionState& state, const PositionInformation& information, double tremor = 0,
                  MotionState* marker = nullptr);

}  // namespace estimate
