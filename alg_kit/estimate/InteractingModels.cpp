#include <alg_kit/estimate/InteractingModels.h>

#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Vector3d;

constexpr double kLeastProbability = 1e-12;

void addWeighted(MotionState& sum, const MotionState& s, double w) {
  sum.pp += w * s.pp;
  sum.pv += w * s.pv;
  sum.pa += w * s.pa;
  sum.vv += w * s.vv;
  sum.va += w * s.va;
  sum.aa += w * s.aa;
}

void scale(MotionState& s, double w) {
  for (auto* block : {&s.pp, &s.pv, &s.pa, &s.vv, &s.va, &s.aa}) *block *= w;
}

/// Adds w d d^T, d = the distance of two means.
void addSpread(MotionState& sum, const Vector3d& p, const Vector3d& v, const Vector3d& a,
               double w) {
  const Vector3d wp = w * p, wv = w * v;
  sum.pp += wp * p.transpose();
  sum.pv += wp * v.transpose();
  sum.pa += wp * a.transpose();
  sum.vv += wv * v.transpose();
  sum.va += wv * a.transpose();
  sum.aa += (w * a) * a.transpose();
}

}  // namespace

MotionState mixtureOf(const std::array<MotionState, kModels>& models,
                      const std::array<double, kModels>& probability) {
  MotionState result;
  for (int m = 0; m < kModels; ++m) {
    result.p += probability[m] * models[m].p;
    result.v += probability[m] * models[m].v;
    result.a += probability[m] * models[m].a;
  }
  for (int m = 0; m < kModels; ++m) {
    addWeighted(result, models[m], probability[m]);
    addSpread(result, models[m].p - result.p, models[m].v - result.v, models[m].a - result.a,
              probability[m]);
  }
  return result;
}

void InteractingModels::start(const MotionState& state) {
  models_.fill(state);
  for (int m = 0; m < kModels; ++m) probability_[m] = set_.models[m].share;
  mixture_ = state;
  mixed_ = true;
}

void InteractingModels::predict(double seconds) {
  if (!mixed_) mixture_ = mixtureOf(models_, probability_);
  mixed_ = false;
  const Step step(seconds, set_.memory);
  const double stays = std::exp(-seconds / set_.dwell);
  for (int m = 0; m < kModels; ++m) {
    const double prior = stays * probability_[m] + (1 - stays) * set_.models[m].share;
    const double own = stays * probability_[m] / prior, drawn = 1 - own;
    MotionState& s = models_[m];
    // Of two Gaussians d apart, the model's and the mixture, the covariance has own drawn d d^T.
    const Vector3d p = mixture_.p - s.p, v = mixture_.v - s.v, a = mixture_.a - s.a;
    scale(s, own);
    addWeighted(s, mixture_, drawn);
    addSpread(s, p, v, a, own * drawn);
    s.p += drawn * p;
    s.v += drawn * v;
    s.a += drawn * a;
    probability_[m] = prior;
    estimate::predict(s, step, set_.models[m].jerk);
  }
}

double InteractingModels::correct(const PositionInformation& information, double gate2) {
  std::array<MotionState, kModels> motions = models_, markers;
  std::array<Fit, kModels> fits;
  double nearest = HUGE_VAL;
  double likeliest = -HUGE_VAL;
  for (int m = 0; m < kModels; ++m) {
    fits[m] = fitAndCorrect(motions[m], information, set_.models[m].tremor, &markers[m]);
    nearest = std::min(nearest, fits[m].distance2);
    likeliest = std::max(likeliest, fits[m].logLikelihood);
  }
  if (!(nearest <= gate2) || !std::isfinite(likeliest)) return nearest;
  models_ = motions;
  double sum = 0;
  for (int m = 0; m < kModels; ++m) {
    probability_[m] =
        std::max(kLeastProbability, probability_[m] * std::exp(fits[m].logLikelihood - likeliest));
    sum += probability_[m];
  }
  for (double& probability : probability_) probability /= sum;
  mixture_ = mixtureOf(markers, probability_);
  mixed_ = true;
  return nearest;
}

void InteractingModels::widen(const Eigen::Matrix3d& covariance) {
  for (MotionState& model : models_) model.pp += covariance;
  if (mixed_) mixture_.pp += covariance;
}

MotionState InteractingModels::marker() const {
  return mixed_ ? mixture_ : markerAfter(0);
}

MotionState InteractingModels::markerAfter(double seconds) const {
  const Step step(seconds, set_.memory);
  std::array<MotionState, kModels> ahead = models_;
  for (int m = 0; m < kModels; ++m) {
    const MotionModel& model = set_.models[m];
    estimate::predict(ahead[m], step, model.jerk);
    ahead[m].pp.diagonal().array() += model.tremor * model.tremor;
  }
  return mixtureOf(ahead, probability_);
}

Vector3d InteractingModels::position() const {
  if (mixed_) return mixture_.p;
  Vector3d mean = Vector3d::Zero();
  for (int m = 0; m < kModels; ++m) mean += probability_[m] * models_[m].p;
  return mean;
}

}  // namespace estimate
