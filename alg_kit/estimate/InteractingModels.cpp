#include <alg_kit/estimate/InteractingModels.h>

#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;
using VectorOf = MotionStateOf<Lanes>::Vector;
using BlockOf = MotionStateOf<Lanes>::Block;

constexpr double kLeastProbability = 1e-12;

VectorOf everywhere(const Vector3d& one) {
  return one.cast<Lanes>();
}

Vector3d meanOf(const VectorOf& x, const Lanes& probability) {
  return {(probability * x[0]).sum(), (probability * x[1]).sum(), (probability * x[2]).sum()};
}

/// One block of the mixture's covariance.
/// @param x, y  the models' distances from the mixture's mean
Matrix3d blended(const BlockOf& block, const VectorOf& x, const VectorOf& y, Lanes probability) {
  Matrix3d result;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) result(i, j) = (probability * (block(i, j) + x[i] * y[j])).sum();
  return result;
}

/// The same for a block on the diagonal, of which both halves are equal.
Matrix3d blended(const BlockOf& block, const VectorOf& x, Lanes probability) {
  Matrix3d result;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i <= j; ++i)
      result(j, i) = result(i, j) = (probability * (block(i, j) + x[i] * x[j])).sum();
  return result;
}

/// The mixture's position, and its covariance with all.
/// @param v, a  the models' distances from the mixture's mean
void blendPosition(const MotionStateOf<Lanes>& models, const Lanes& probability, const VectorOf& v,
                   const VectorOf& a, MotionState& result) {
  result.p = meanOf(models.p, probability);
  const VectorOf p = models.p - everywhere(result.p);
  result.pp = blended(models.pp, p, probability);
  result.pv = blended(models.pv, p, v, probability);
  result.pa = blended(models.pa, p, a, probability);
}

/// The rest of it. `v` and `a` are filled with the models' distances from the mean.
void blendRest(const MotionStateOf<Lanes>& models, const Lanes& probability, VectorOf& v,
               VectorOf& a, MotionState& result) {
  result.v = meanOf(models.v, probability);
  result.a = meanOf(models.a, probability);
  v = models.v - everywhere(result.v);
  a = models.a - everywhere(result.a);
  result.vv = blended(models.vv, v, probability);
  result.va = blended(models.va, v, a, probability);
  result.aa = blended(models.aa, a, probability);
}

void setLane(MotionStateOf<Lanes>& models, int m, const MotionState& s) {
  for (int i = 0; i < 3; ++i) {
    models.p[i].set(m, s.p[i]);
    models.v[i].set(m, s.v[i]);
    models.a[i].set(m, s.a[i]);
    for (int j = 0; j < 3; ++j) {
      models.pp(i, j).set(m, s.pp(i, j));
      models.pv(i, j).set(m, s.pv(i, j));
      models.pa(i, j).set(m, s.pa(i, j));
      models.vv(i, j).set(m, s.vv(i, j));
      models.va(i, j).set(m, s.va(i, j));
      models.aa(i, j).set(m, s.aa(i, j));
    }
  }
}

/// Of two Gaussians d apart, with the shares `own` and `drawn`: the block of the covariance.
/// @param spread  own x drawn x d of the rows
void mix(BlockOf& block, const Matrix3d& other, Lanes own, Lanes drawn, const VectorOf& spread,
         const VectorOf& apart) {
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) {
      Lanes mixed = own * block(i, j);
      mixed += drawn * Lanes(other(i, j));
      mixed += spread[i] * apart[j];
      block(i, j) = mixed;
    }
}

}  // namespace

MotionState mixtureOf(const MotionStateOf<Lanes>& models, const Lanes& probability) {
  MotionState result;
  VectorOf v, a;
  blendRest(models, probability, v, a, result);
  blendPosition(models, probability, v, a, result);
  return result;
}

InteractingModels::InteractingModels(const ModelSet& set) : set_(set), step_(0, set.memory) {
  for (int m = 0; m < kModels; ++m) {
    jerk_.set(m, set.models[m].jerk);
    tremor2_.set(m, set.models[m].tremor * set.models[m].tremor);
    share_.set(m, set.models[m].share);
  }
}

void InteractingModels::start(const MotionState& state) {
  for (int m = 0; m < kModels; ++m) setLane(models_, m, state);
  probability_ = share_;
  marker_ = state;
  corrected_ = true;
}

void InteractingModels::predict(double seconds) {
  MotionState mixture = marker_;
  VectorOf toV, toA;
  if (corrected_) {  // the marker has the motion's velocity and acceleration
    toV = models_.v - everywhere(mixture.v);
    toA = models_.a - everywhere(mixture.a);
  } else {
    blendRest(models_, probability_, toV, toA, mixture);
  }
  blendPosition(models_, probability_, toV, toA, mixture);
  corrected_ = false;
  if (seconds != step_.t) {
    step_ = Step(seconds, set_.memory);
    stays_ = std::exp(-seconds / set_.dwell);
  }
  const Lanes stays = stays_;
  const Lanes prior = stays * probability_ + (Lanes(1) - stays) * share_;
  const Lanes own = stays * probability_ / prior, drawn = Lanes(1) - own;
  MotionStateOf<Lanes>& s = models_;
  const VectorOf p = everywhere(mixture.p) - s.p, v = -toV, a = -toA;
  const Lanes both = own * drawn;
  const VectorOf wp = both * p, wv = both * v, wa = both * a;
  mix(s.pp, mixture.pp, own, drawn, wp, p);
  mix(s.pv, mixture.pv, own, drawn, wp, v);
  mix(s.pa, mixture.pa, own, drawn, wp, a);
  mix(s.vv, mixture.vv, own, drawn, wv, v);
  mix(s.va, mixture.va, own, drawn, wv, a);
  mix(s.aa, mixture.aa, own, drawn, wa, a);
  s.p += drawn * p;
  s.v += drawn * v;
  s.a += drawn * a;
  probability_ = prior;
  estimate::predict(s, step_, jerk_);
}

double InteractingModels::correct(const PositionInformation& information, double gate2) {
  const Gain<Lanes> gain = gainOf(models_, information, tremor2_);
  const auto distance2 = gain.fit.distance2.all(), determinant = gain.fit.determinant.all();
  const double nearest = *std::min_element(distance2.begin(), distance2.end());
  std::array<double, kModels> likelihood;  // but for a common factor
  for (std::size_t m = 0; m < kModels; ++m)
    likelihood[m] = std::exp(-0.5 * (distance2[m] - nearest)) / std::sqrt(determinant[m]);
  const double likeliest = *std::max_element(likelihood.begin(), likelihood.end());
  if (!(nearest <= gate2) || !(likeliest > 0) || !std::isfinite(likeliest)) return nearest;
  MotionStateOf<Lanes> marker;
  estimate::correct(models_, gain, tremor2_, &marker);
  for (int m = 0; m < kModels; ++m)
    probability_.set(
        m, std::max(kLeastProbability,
                    probability_[m] * likelihood[static_cast<std::size_t>(m)] / likeliest));
  probability_ /= probability_.sum();
  VectorOf v, a;
  blendRest(models_, probability_, v, a, marker_);
  blendPosition(marker, probability_, v, a, marker_);
  corrected_ = true;
  return nearest;
}

void InteractingModels::widen(const Matrix3d& covariance) {
  models_.pp += covariance.cast<Lanes>();
  marker_.pp += covariance;
}

MotionState InteractingModels::marker() const {
  return corrected_ ? marker_ : markerAfter(0);
}

MotionState InteractingModels::markerAfter(double seconds) const {
  MotionStateOf<Lanes> ahead = models_;
  if (seconds > 0) estimate::predict(ahead, Step(seconds, set_.memory), jerk_);
  for (int i = 0; i < 3; ++i) ahead.pp(i, i) += tremor2_;
  return mixtureOf(ahead, probability_);
}

InteractingModels::Place InteractingModels::place() const {
  if (corrected_) return {marker_.p, marker_.pp};
  Place result;
  result.p = meanOf(models_.p, probability_);
  result.pp = blended(models_.pp, models_.p - everywhere(result.p), probability_);
  result.pp.diagonal().array() += (probability_ * tremor2_).sum();
  return result;
}

Vector3d InteractingModels::position() const {
  return corrected_ ? marker_.p : meanOf(models_.p, probability_);
}

}  // namespace estimate
