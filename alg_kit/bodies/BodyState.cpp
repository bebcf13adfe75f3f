#include <alg_kit/bodies/BodyState.h>
#include <alg_kit/bodies/SmallMatrix.h>

#include <cmath>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// P F^T, in place.
void moveColumns(Matrix15d& p, const ErrorStep& by) {
  using Whole = Column<kStateSize>;
  const auto at = [&p](int column) { return p.col(column).data(); };
  const auto& s = by.step;
  const Whole turn[3] = {Whole(at(kTurn)), Whole(at(kTurn + 1)), Whole(at(kTurn + 2))};
  for (int i = 0; i < 3; ++i) {
    Whole position(at(kPosition + i)), velocity(at(kVelocity + i));
    Whole acceleration(at(kAcceleration + i)), turned;
    position.add(s.t, velocity);
    position.add(s.ap, acceleration);
    velocity.add(s.av, acceleration);
    acceleration.scale(s.fade);
    for (int k = 0; k < 3; ++k) turned.add(by.turned(i, k), turn[k]);
    turned.add(s.t, Whole(at(kTurnRate + i)));
    position.store(at(kPosition + i));
    turned.store(at(kTurn + i));
    velocity.store(at(kVelocity + i));
    acceleration.store(at(kAcceleration + i));
  }
}

/// F P, in place: no row but those that reach below the diagonal.
void moveRows(Matrix15d& p, const ErrorStep& by) {
  const auto& s = by.step;
  for (int j = 0; j < kStateSize; ++j) {
    double* const x = p.col(j).data();
    for (int i = 0; i < 3; ++i) {
      if (j < kTurn) x[kPosition + i] += s.t * x[kVelocity + i] + s.ap * x[kAcceleration + i];
      if (j < kTurnRate) x[kVelocity + i] += s.av * x[kAcceleration + i];
      x[kAcceleration + i] *= s.fade;
    }
    if (j >= kVelocity) continue;
    const double turn[3] = {x[kTurn], x[kTurn + 1], x[kTurn + 2]};
    for (int i = 0; i < 3; ++i)
      x[kTurn + i] = by.turned(i, 0) * turn[0] + by.turned(i, 1) * turn[1] +
                     by.turned(i, 2) * turn[2] + s.t * x[kTurnRate + i];
  }
}

/// The part below the diagonal counts: rounding makes the two uneven, and what the steps do to the
/// uneven part grows without bound.
void makeEven(Matrix15d& p) {
  for (int column = 1; column < kStateSize; ++column)
    for (int row = 0; row < column; ++row) p(row, column) = p(column, row);
}

/// p -= taken taken^T in five columns, from the row of the first on. Bands of fixed size are
/// quicker than the exact triangle.
template <int kFrom>
void takeOffBand(Matrix15d& p, const StateByPose& taken) {
  using Below = Column<kStateSize - kFrom>;
  for (int j = kFrom; j < kFrom + 5; ++j) {
    Below column(&p(kFrom, j));
    for (int k = 0; k < 6; ++k) column.add(-taken(j, k), Below(&taken(kFrom, k)));
    column.store(&p(kFrom, j));
  }
}

/// Gives back what was taken off turns and rates that are left as they were.
void leaveOpen(Matrix15d& p, Vector15d& change, const StateByPose& taken, const Matrix3d& open) {
  for (const int part : {kTurn, kTurnRate}) {
    change.segment<3>(part) -= open * change.segment<3>(part);
    const Eigen::Matrix<double, 3, 6> own = open * taken.middleRows<3>(part);
    for (const int other : {kTurn, kTurnRate})
      p.block<3, 3>(part, other) += own * taken.middleRows<3>(other).transpose() * open;
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
  moveRows(p, by);
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

PoseUpdate updateOf(const Matrix6d& prior, const RootedInformation& information) {
  // A measurement of R^T pose with noises of 1: R^T P R + I is the covariance of what it shows.
  PoseUpdate update;
  const Matrix6d& root = information.root;
  update.taken = timesLower(prior, root);
  Matrix6d shown;
  for (int j = 0; j < 6; ++j)
    for (int i = j; i < 6; ++i) {
      double sum = i == j ? 1 : 0;
      for (int k = i; k < 6; ++k) sum += root(k, i) * update.taken(k, j);
      shown(i, j) = shown(j, i) = sum;
    }
  update.good = rootOf(shown, update.inner);
  if (!update.good) {
    update.distance2 = HUGE_VAL;
    return update;
  }
  divideByTransposed(update.taken, update.inner);
  update.pulled = solveLower(update.inner, information.pulled);
  Column<6> change;
  for (int j = 0; j < 6; ++j) {
    Column<6> left(prior.col(j).data());
    for (int k = 0; k < 6; ++k)
      left.add(-update.taken(j, k), Column<6>(update.taken.col(k).data()));
    left.store(update.covariance.col(j).data());
    change.add(update.pulled[j], Column<6>(update.taken.col(j).data()));
  }
  change.store(update.change.data());
  update.distance2 = information.rest + update.pulled.squaredNorm();
  return update;
}

void leaveOpen(PoseUpdate& update, const Matrix3d& open) {
  const Eigen::Matrix<double, 3, 6> turn = open * update.taken.bottomRows<3>();
  update.covariance.bottomRightCorner<3, 3>() += turn * turn.transpose();
  update.change.tail<3>() -= open * update.change.tail<3>();
}

StateByPose correct(BodyState& s, const RootedInformation& information, const PoseUpdate& update,
                    const Matrix3d& open) {
  StateByPose taken = timesLower<kStateSize, 6>(s.covariance.leftCols<6>(), information.root);
  divideByTransposed(taken, update.inner);
  takeOffBand<0>(s.covariance, taken);
  takeOffBand<5>(s.covariance, taken);
  takeOffBand<10>(s.covariance, taken);
  makeEven(s.covariance);
  Column<kStateSize> moved;
  for (int k = 0; k < 6; ++k) moved.add(update.pulled[k], Column<kStateSize>(taken.col(k).data()));
  Vector15d change;
  moved.store(change.data());
  if (open != Matrix3d::Zero()) leaveOpen(s.covariance, change, taken, open);
  changeBy(s, change);
  return taken;
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
