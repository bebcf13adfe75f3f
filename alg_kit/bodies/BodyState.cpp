#include <alg_kit/bodies/BodyState.h>
#include <alg_kit/bodies/SmallMatrix.h>

#include <cmath>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// P F^T, in place.
void moveColumns(Matrix15d& p, const ErrorStep& by) {
  const auto& s = by.step;
  p.middleCols<3>(kPosition) += s.t * p.middleCols<3>(kVelocity);
  p.middleCols<3>(kPosition) += s.ap * p.middleCols<3>(kAcceleration);
  const Eigen::Matrix<double, kStateSize, 3> turn = p.middleCols<3>(kTurn);
  for (int i = 0; i < 3; ++i)
    p.col(kTurn + i) = by.turned(i, 0) * turn.col(0) + by.turned(i, 1) * turn.col(1) +
                       by.turned(i, 2) * turn.col(2) + s.t * p.col(kTurnRate + i);
  p.middleCols<3>(kVelocity) += s.av * p.middleCols<3>(kAcceleration);
  p.middleCols<3>(kAcceleration) *= s.fade;
}

/// The part below the diagonal counts: rounding makes the two uneven, and what the steps do to the
/// uneven part grows without bound.
void makeEven(Matrix15d& p) {
  for (int column = 1; column < kStateSize; ++column)
    for (int row = 0; row < column; ++row) p(row, column) = p(column, row);
}

/// p += reach reach^T - follow follow^T in five columns, from the row of the first on. Bands of
/// fixed size are quicker than the exact triangle.
template <int kFrom>
void addToBand(Matrix15d& p, const StateByPose& reach, const StateByPose& follow) {
  for (int j = kFrom; j < kFrom + 5; ++j) {
    double column[kStateSize - kFrom] = {};
    for (int k = 0; k < 6; ++k) {
      const double r = reach(j, k), f = follow(j, k);
      for (int i = kFrom; i < kStateSize; ++i)
        column[i - kFrom] += reach(i, k) * r - follow(i, k) * f;
    }
    for (int i = kFrom; i < kStateSize; ++i) p(i, j) += column[i - kFrom];
  }
}

}  // namespace

ErrorStep moveOn(BodyState& s, const estimate::Step& step) {
  Vector6d change;
  change << step.t * s.velocity + step.ap * s.acceleration, step.t * s.turnRate;
  s.motion = changedBy(s.motion, change);
  s.velocity += step.av * s.acceleration;
  s.acceleration *= step.fade;
  return {step, changedBy({}, change).orientation.toRotationMatrix()};
}

void spread(Matrix15d& p, const ErrorStep& by, const BodyDrive& drive) {
  moveColumns(p, by);
  p.transposeInPlace();
  moveColumns(p, by);
  const double t = by.step.t, t2 = t * t, t3 = t2 * t;
  const auto add = [&p](int row, int column, double value) {
    for (int i = 0; i < 3; ++i) p(row + i, column + i) += value;
  };
  // The white-jerk model's noise, as estimate::predict has it; below it the white-acceleration
  // model's (Bar-Shalom, Li, Kirubarajan, Estimation with Applications to Tracking and Navigation,
  // 2001, sections 6.2.2 and 6.2.3).
  add(kPosition, kPosition, drive.jerk * t3 * t2 / 20);
  add(kVelocity, kPosition, drive.jerk * t2 * t2 / 8);
  add(kAcceleration, kPosition, drive.jerk * t3 / 6);
  add(kVelocity, kVelocity, drive.jerk * t3 / 3);
  add(kAcceleration, kVelocity, drive.jerk * t2 / 2);
  add(kAcceleration, kAcceleration, drive.jerk * t);
  add(kTurn, kTurn, drive.turn * t3 / 3);
  add(kTurnRate, kTurn, drive.turn * t2 / 2);
  add(kTurnRate, kTurnRate, drive.turn * t);
  makeEven(p);
}

Matrix15d matrixOf(const ErrorStep& by) {
  Matrix15d transposed = Matrix15d::Identity();
  moveColumns(transposed, by);
  return transposed.transpose();
}

PoseUpdate updateOf(const Matrix6d& prior, const PoseInformation& information) {
  // The covariance after is L (I + L^T W L)^-1 L^T, for a W of any rank.
  PoseUpdate update;
  update.good = rootOf(prior, update.before);
  const Matrix6d upper = update.before.transpose();
  Matrix6d spread = times(upper, times(information.weight, update.before));
  for (int i = 0; i < 6; ++i) spread(i, i) += 1;
  update.good = update.good && rootOf(spread, update.inner);
  if (!update.good) {
    update.distance2 = HUGE_VAL;
    return update;
  }
  Matrix6d halfTransposed = update.before;
  divideByTransposed(halfTransposed, update.inner);
  update.half = halfTransposed.transpose();
  update.covariance = squareOf(update.half);
  for (int i = 0; i < 6; ++i) update.change += update.covariance.col(i) * information.pull[i];
  update.distance2 = information.misfit - information.pull.dot(update.change);
  return update;
}

StateByPose correct(BodyState& s, const PoseUpdate& update) {
  // What of the state follows the pose, Y = P_pose L^-T: known exactly, the pose would leave
  // P - Y Y^T; known as well as the measurement tells, it leaves Y (K K^T)^-1 Y^T more.
  StateByPose follow = s.covariance.leftCols<6>();
  divideByTransposed(follow, update.before);
  StateByPose reach = follow;
  divideByTransposed(reach, update.inner);
  addToBand<0>(s.covariance, reach, follow);
  addToBand<5>(s.covariance, reach, follow);
  addToBand<10>(s.covariance, reach, follow);
  makeEven(s.covariance);
  // change = half^T half pull, and follow's share of it: follow L^-1 change = reach half pull.
  Eigen::Matrix<double, 1, 6> pulled = update.change.transpose();
  divideByTransposed(pulled, update.before);
  Vector15d change = Vector15d::Zero();
  for (int k = 0; k < 6; ++k) change += follow.col(k) * pulled[k];
  changeBy(s, change);
  return reach;
}

void changeBy(BodyState& s, const Vector15d& change) {
  s.motion = changedBy(s.motion, change.head<6>());
  s.velocity += change.segment<3>(kVelocity);
  s.turnRate += change.segment<3>(kTurnRate);
  s.acceleration += change.segment<3>(kAcceleration);
}

Vector15d changeFrom(const BodyState& from, const BodyState& to) {
  Vector15d change;
  change << differenceOf(from.motion, to.motion), to.velocity - from.velocity,
      to.turnRate - from.turnRate, to.acceleration - from.acceleration;
  return change;
}

}  // namespace bodies
