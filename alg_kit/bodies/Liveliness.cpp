#include <alg_kit/bodies/Liveliness.h>

#include <algorithm>
#include <cmath>

namespace bodies {
namespace {

constexpr double kLeastProbability = 1e-6;

double square(double x) {
  return x * x;
}

template <class Number>
estimate::Lanes lanesOf(const BodyModelSet& set, const Number& number) {
  estimate::Lanes result;
  for (int m = 0; m < kBodyModels; ++m)
    result.set(m, number(set.models[static_cast<std::size_t>(m)]));
  return result;
}

}  // namespace

Liveliness::Liveliness(const BodyModelSet& set)
    : set_(set),
      jerk_(lanesOf(set, [](const BodyModel& m) { return m.jerk; })),
      turn_(lanesOf(set, [](const BodyModel& m) { return m.turn; })),
      tremor2_(lanesOf(set, [](const BodyModel& m) { return square(m.tremor); })),
      turnTremor2_(lanesOf(set, [](const BodyModel& m) { return square(m.turnTremor); })),
      jerkRoot_(lanesOf(set, [](const BodyModel& m) { return std::pow(m.jerk, 1.0 / 6); })),
      turnRoot_(lanesOf(set, [](const BodyModel& m) { return std::pow(m.turn, 1.0 / 4); })),
      ofPosition_(1.0 / kBodyModels),
      ofRotation_(1.0 / kBodyModels) {}

void Liveliness::start(const Vector6d& place, const Vector6d& variance) {
  for (int i = 0; i < 3; ++i) {
    Line& line = lines_[static_cast<std::size_t>(i)];
    line = {place[i], 0, 0, variance[i], 0, 0, square(kFirstSpeed), 0, square(kFirstAcceleration)};
    Turn& turn = turns_[static_cast<std::size_t>(i)];
    turn = {place[3 + i], 0, variance[3 + i], 0, square(kFirstTurnRate)};
  }
  ofPosition_ = ofRotation_ = 1.0 / kBodyModels;
}

void Liveliness::Line::predict(const estimate::Step& step, Lanes jerk) {
  const Lanes t = step.t, av = step.av, ap = step.ap, fade = step.fade;
  p += t * v + ap * a;
  v += av * a;
  a *= fade;
  // The covariance of the new with the old, then of the new with the new.
  pp += t * pv + ap * pa;
  pv += t * vv + ap * va;
  pa += t * va + ap * aa;
  vv += av * va;
  va += av * aa;
  const double t1 = step.t, t2 = t1 * t1, t3 = t2 * t1;
  pp += t * pv + ap * pa + jerk * (t3 * t2 / 20);
  pv += av * pa + jerk * (t2 * t2 / 8);
  pa = fade * pa + jerk * (t3 / 6);
  vv += av * va + jerk * (t3 / 3);
  va = fade * va + jerk * (t2 / 2);
  aa = fade * fade * aa + jerk * t;
}

void Liveliness::Line::correct(Lanes gain, Lanes pull) {
  p += pp * pull;
  v += pv * pull;
  a += pa * pull;
  const Lanes ofV = gain * pv, ofA = gain * pa;
  aa -= ofA * pa;
  va -= ofA * pv;
  vv -= ofV * pv;
  pa -= ofA * pp;
  pv -= ofV * pp;
  pp -= gain * pp * pp;
}

void Liveliness::Turn::predict(double seconds, Lanes drive) {
  const Lanes t = seconds;
  p += t * v;
  pp += t * pv;
  pv += t * vv;
  pp += t * pv + drive * (seconds * seconds * seconds / 3);
  pv += drive * (seconds * seconds / 2);
  vv += drive * t;
}

void Liveliness::Turn::correct(Lanes gain, Lanes pull) {
  p += pp * pull;
  v += pv * pull;
  const Lanes ofV = gain * pv;
  vv -= ofV * pv;
  pv -= ofV * pp;
  pp -= gain * pp * pp;
}

void Liveliness::predict(const estimate::Step& step) {
  for (Line& line : lines_) line.predict(step, jerk_);
  for (Turn& turn : turns_) turn.predict(step.t, turn_);
  const double stays = std::exp(-step.t / set_.dwell);
  for (Lanes* const probability : {&ofPosition_, &ofRotation_})
    *probability = *probability * stays + (1 - stays) / kBodyModels;
}

template <class Axis>
void Liveliness::correct(Axis& axis, double place, double variance, Lanes tremor2, Fit& fit) {
  const Lanes whole = axis.pp + tremor2 + variance;
  const Lanes off = place - axis.p;
  const Lanes gain = 1 / whole, pull = gain * off;
  fit.distance2 += off * pull;
  // The variances of one axis are of one size: their product does not run out of range.
  fit.spread *= whole * (1 / variance);
  axis.correct(gain, pull);
}

void Liveliness::correct(const Vector6d& place, const Vector6d& variance) {
  Fit position, rotation;
  for (int i = 0; i < 3; ++i) {
    const auto axis = static_cast<std::size_t>(i);
    correct(lines_[axis], place[i], variance[i], tremor2_, position);
    correct(turns_[axis], place[3 + i], variance[3 + i], turnTremor2_, rotation);
  }
  weigh(ofPosition_, position);
  weigh(ofRotation_, rotation);
}

void Liveliness::weigh(Lanes& probability, const Fit& fit) {
  const auto distance2 = fit.distance2.all();
  const double least = *std::min_element(distance2.begin(), distance2.end());
  for (int m = 0; m < kBodyModels; ++m)
    probability.set(m, std::max(kLeastProbability, probability[m] *
                                                       std::exp(-0.5 * (fit.distance2[m] - least)) /
                                                       std::sqrt(fit.spread[m])));
  probability *= 1 / probability.sum();
}

BodyDrive Liveliness::drive() const {
  BodyDrive result;
  const double jerk = (ofPosition_ * jerkRoot_).sum(), turn = (ofRotation_ * turnRoot_).sum();
  result.jerk = square(jerk * jerk * jerk);
  result.turn = square(turn * turn);
  result.tremor = (ofPosition_ * tremor2_).sum();
  result.turnTremor = (ofRotation_ * turnTremor2_).sum();
  return result;
}

}  // namespace bodies
