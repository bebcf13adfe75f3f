// A point's motion as a Gaussian, and the two steps of a Kalman filter on it.
#pragma once

#include <Eigen/Core>

namespace estimate {

/// Position, velocity and acceleration of a point with their joint covariance, in 3x3 blocks: `pv`
/// is the covariance of p with v. The blocks below the diagonal are the transposes. Right camera's
/// frame; the unit of the calibration's translation (mm) and seconds. A number is a double or, for
/// all motion models at once, Lanes.
template <class Number>
struct MotionStateOf {
  using Vector = Eigen::Matrix<Number, 3, 1>;
  using Block = Eigen::Matrix<Number, 3, 3>;
  Vector p = Vector::Zero();
  Vector v = Vector::Zero();
  Vector a = Vector::Zero();
  Block pp = Block::Zero();
  Block pv = Block::Zero();
  Block pa = Block::Zero();
  Block vv = Block::Zero();
  Block va = Block::Zero();
  Block aa = Block::Zero();
};
using MotionState = MotionStateOf<double>;

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

  bool determined = false;  ///< the position; then, what the filter saves work with:
  Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();  ///< weight^-1
};

/// Fills `determined` and `covariance` from the weight.
void determine(PositionInformation& information);

/// How a measurement fits a state.
template <class Number>
struct FitOf {
  Number distance2 = 0;  ///< squared Mahalanobis distance of the measurement's numbers
  /// Of their covariance, but for a factor that is the same for every state: the likelihood is
  /// exp(-distance2 / 2) / sqrt(determinant).
  Number determinant = 1;
};
using Fit = FitOf<double>;

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
template <class Number>
void predict(MotionStateOf<Number>& state, const Step& step, Number jerk);

/// How the measurement fits, and what a correction by it needs.
template <class Number>
struct Gain {
  Eigen::Matrix<Number, 3, 3> inverse;  ///< of the covariance of measured minus expected position
  Eigen::Matrix<Number, 3, 1> drive;    ///< `inverse` times measured minus expected position
  FitOf<Number> fit;
};

/// @param tremor2  variance per axis of what displaces the marker from `state` in this frame alone,
///                 mm^2
template <class Number>
Gain<Number> gainOf(const MotionStateOf<Number>& state, const PositionInformation& information,
                    Number tremor2);

/// What a correction takes from the covariance: `Gain::inverse` times the blocks of the position.
template <class Number>
struct Taken {
  Eigen::Matrix<Number, 3, 3> p, v, a;
};

/// The Kalman update.
template <class Number>
Taken<Number> correct(MotionStateOf<Number>& state, const Gain<Number>& gain);

/// The marker that was displaced from the corrected `state`: fills its p, pp, pv and pa; v, a and
/// the other blocks are those of `state`.
template <class Number>
void displace(MotionStateOf<Number>& marker, const MotionStateOf<Number>& state,
              const Gain<Number>& gain, const Taken<Number>& taken, Number tremor2);

/// How the measurement fits.
Fit fitOf(const MotionState& state, const PositionInformation& information);

/// Both at once, with the tremor's standard deviation; `marker` is filled whole.
Fit fitAndCorrect(MotionState& state, const PositionInformation& information, double tremor = 0,
                  MotionState* marker = nullptr);

}  // namespace estimate
