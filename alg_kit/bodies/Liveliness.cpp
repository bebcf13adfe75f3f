#include <alg_kit/bodies/Liveliness.h>

#include <algorithm>
#include <cmath>

namespace bodies {
namespace {

constexpr double kLeastProbability = 1e-6;
constexpr int kPlaces = 3;  // the axes below it are the position's

double square(double x) {
  return x * x;
}

}  // namespace

Liveliness::Liveliness(const BodyModelSet& set) : set_(set) {
  for (int m = 0; m < kBodyModels; ++m) {
    jerkRoot_[m] = std::pow(set.models[m].jerk, 1.0 / 6);
    turnRoot_[m] = std::pow(set.models[m].turn, 1.0 / 4);
  }
  for (PerModel& group : probability_) group.fill(1.0 / kBodyModels);
}

void Liveliness::start(const Vector6d& place, const Vector6d& variance) {
  for (int i = 0; i < 6; ++i) {
    Axis& axis = axes_[static_cast<std::size_t>(i)];
    axis = {};
    axis.p.fill(place[i]);
    axis.pp.fill(variance[i]);
    axis.vv.fill(square(i < kPlaces ? kFirstSpeed : kFirstTurnRate));
    axis.aa.fill(i < kPlaces ? square(kFirstAcceleration) : 0);
  }
  for (PerModel& group : probability_) group.fill(1.0 / kBodyModels);
}

void Liveliness::predict(const estimate::Step& step) {
  const double stays = std::exp(-step.t / set_.dwell);
  const double t = step.t, t2 = t * t, t3 = t2 * t;
  for (std::size_t i = 0; i < axes_.size(); ++i) {
    Axis& x = axes_[i];
    const bool place = i < kPlaces;
    for (int m = 0; m < kBodyModels; ++m) {
      x.p[m] += t * x.v[m] + step.ap * x.a[m];
      x.v[m] += step.av * x.a[m];
      x.a[m] *= step.fade;
      // The covariance of the new with the old, then of the new with the new.
      const double pp = x.pp[m] + t * x.pv[m] + step.ap * x.pa[m];
      const double pv = x.pv[m] + t * x.vv[m] + step.ap * x.va[m];
      const double pa = x.pa[m] + t * x.va[m] + step.ap * x.aa[m];
      const double vv = x.vv[m] + step.av * x.va[m];
      const double va = x.va[m] + step.av * x.aa[m];
      const BodyModel& model = set_.models[m];
      const double jerk = place ? model.jerk : 0, turn = place ? 0 : model.turn;
      x.pp[m] = pp + t * pv + step.ap * pa + jerk * t3 * t2 / 20 + turn * t3 / 3;
      x.pv[m] = pv + step.av * pa + jerk * t2 * t2 / 8 + turn * t2 / 2;
      x.pa[m] = step.fade * pa + jerk * t3 / 6;
      x.vv[m] = vv + step.av * va + jerk * t3 / 3 + turn * t;
      x.va[m] = step.fade * va + jerk * t2 / 2;
      x.aa[m] = step.fade * step.fade * x.aa[m] + jerk * t;
    }
  }
  for (PerModel& group : probability_)
    for (double& w : group) w = stays * w + (1 - stays) / kBodyModels;
}

void Liveliness::correct(const Vector6d& place, const Vector6d& variance) {
  std::array<PerModel, 2> distance2{}, spread;
  for (PerModel& group : spread) group.fill(1);
  for (std::size_t i = 0; i < axes_.size(); ++i) {
    Axis& x = axes_[i];
    const std::size_t group = i < kPlaces ? 0 : 1;
    for (int m = 0; m < kBodyModels; ++m) {
      const double tremor = group == 0 ? set_.models[m].tremor : set_.models[m].turnTremor;
      const double whole = x.pp[m] + tremor * tremor + variance[static_cast<int>(i)];
      const double off = place[static_cast<int>(i)] - x.p[m];
      const double gain = 1 / whole, pull = gain * off;
      distance2[group][m] += off * pull;
      // The variances of one axis are of one size: their product does not run out of range.
      spread[group][m] *= whole / variance[static_cast<int>(i)];
      const double pp = x.pp[m], pv = x.pv[m], pa = x.pa[m];
      x.p[m] += pp * pull;
      x.v[m] += pv * pull;
      x.a[m] += pa * pull;
      x.pp[m] -= gain * pp * pp;
      x.pv[m] -= gain * pp * pv;
      x.pa[m] -= gain * pp * pa;
      x.vv[m] -= gain * pv * pv;
      x.va[m] -= gain * pv * pa;
      x.aa[m] -= gain * pa * pa;
    }
  }
  for (std::size_t group = 0; group < probability_.size(); ++group) {
    PerModel& probability = probability_[group];
    const double least = *std::min_element(distance2[group].begin(), distance2[group].end());
    double sum = 0;
    for (int m = 0; m < kBodyModels; ++m) {
      probability[m] *=
          std::exp(-0.5 * (distance2[group][m] - least)) / std::sqrt(spread[group][m]);
      probability[m] = std::max(kLeastProbability, probability[m]);
      sum += probability[m];
    }
    for (double& w : probability) w /= sum;
  }
}

BodyDrive Liveliness::drive() const {
  BodyDrive result;
  double jerk = 0, turn = 0;
  for (int m = 0; m < kBodyModels; ++m) {
    const BodyModel& model = set_.models[m];
    jerk += probability_[0][m] * jerkRoot_[m];
    turn += probability_[1][m] * turnRoot_[m];
    result.tremor += probability_[0][m] * square(model.tremor);
    result.turnTremor += probability_[1][m] * square(model.turnTremor);
  }
  result.jerk = square(jerk * jerk * jerk);
  result.turn = square(turn * turn);
  return result;
}

}  // namespace bodies
