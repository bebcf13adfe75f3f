// A moving body as a Gaussian on the rigid motions, and the two steps of a filter on it.
#pragma once

#include <alg_kit/bodies/PoseInformation.h>
#include <alg_kit/bodies/RigidFit.h>
#include <alg_kit/estimate/MotionState.h>

#include <Eigen/Core>

namespace bodies {

constexpr int kStateSize = 15;
/// Where the errors stand in a state's covariance, three each. The pose comes first.
enum StatePart { kPosition = 0, kTurn = 3, kVelocity = 6, kTurnRate = 9, kAcceleration = 12 };

using Matrix15d = Eigen::Matrix<double, kStateSize, kStateSize>;
using Vector15d = Eigen::Matrix<double, kStateSize, 1>;
using StateByPose = Eigen::Matrix<double, kStateSize, 6>;

/// The error state of Sola (Quaternion kinematics for the error-state Kalman filter, 2017), with
/// the rotation's error in the outer frame: true orientation = exp(error) orientation. Camera
/// frame; mm, radians, seconds.
struct BodyState {
  RigidMotion motion;
  Eigen::Vector3d velocity = Eigen::Vector3d::Zero();
  Eigen::Vector3d turnRate = Eigen::Vector3d::Zero();  ///< angular velocity
  Eigen::Vector3d acceleration = Eigen::Vector3d::Zero();
  Matrix15d covariance = Matrix15d::Zero();
};

// A body of which only a pose is known moves as fast as a hand can, standard deviations.
constexpr double kFirstSpeed = 1000;          ///< mm/s
constexpr double kFirstTurnRate = 5;          ///< rad/s
constexpr double kFirstAcceleration = 10000;  ///< mm/s^2

/// What drives a body, and what displaces it in one frame alone.
struct BodyDrive {
  double jerk = 0;        ///< spectral density of the white jerk, mm^2/s^5
  double turn = 0;        ///< of the white angular acceleration, rad^2/s^3
  double tremor = 0;      ///< mm^2 per axis
  double turnTremor = 0;  ///< rad^2 per axis

  Vector6d tremors() const {
    return (Vector6d() << tremor, tremor, tremor, turnTremor, turnTremor, turnTremor).finished();
  }
};

/// How errors move on with the state: what `moveOn` did to them.
struct ErrorStep {
  estimate::Step step{0, 1};
  Eigen::Matrix3d turned = Eigen::Matrix3d::Identity();  ///< what turned the orientation
};

/// Moves the mean on: the acceleration fades with estimate::Step's memory, the angular velocity
/// stays.
ErrorStep moveOn(BodyState& state, const estimate::Step& step);

/// Moves the covariance on.
void spread(Matrix15d& covariance, const ErrorStep& step, const BodyDrive& drive);

/// The matrix of `step`, for the smoother.
Matrix15d matrixOf(const ErrorStep& step);

/// A pose after a measurement, tremor included: what the measurement saw.
struct PoseUpdate {
  Vector6d change = Vector6d::Zero();  ///< of the pose
  Matrix6d covariance;                 ///< of the changed pose; set where `good`
  double distance2 = 0;                ///< squared standard deviations of all numbers
  bool good = true;                    ///< false: a covariance that is none

  // With the covariance before P, the weight R R^T and I + R^T P R = K K^T: what the measurement
  // takes off P is taken taken^T.
  Matrix6d inner;                      ///< K
  Matrix6d taken = Matrix6d::Zero();   ///< P R K^-T
  Vector6d pulled = Vector6d::Zero();  ///< K^-1 of the measurement's: change = taken pulled
};

/// @param prior  covariance of the pose before, tremor included
PoseUpdate updateOf(const Matrix6d& prior, const RootedInformation& information);

/// Some turns may be left as they were expected, with their uncertainty, while everything else is
/// corrected as if they were not (Schmidt, Advances in Control Systems 3, 1966).
/// @param open  projector onto them
void leaveOpen(PoseUpdate& update, const Eigen::Matrix3d& open);

/// Corrects the state by what became of its pose.
/// @param open  projector onto the turns that are left as they were, and so are their rates
/// @return what the measurement took off the state's covariance is it times its transpose; the
///         covariance of the state's errors with the seen pose's lost it times update.taken^T
StateByPose correct(BodyState& state, const RootedInformation& information,
                    const PoseUpdate& update, const Eigen::Matrix3d& open);

/// state + error and its opposite.
void changeBy(BodyState& state, const Vector15d& change);
Vector15d changeFrom(const BodyState& from, const BodyState& to);

}  // namespace bodies
