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

/// The models' distances from the mixture's mean.
struct Distances {
  Distances(const MotionStateOf<Lanes>& models, const MotionState& mixture)
      : p(models.p - everywhere(mixture.p)),
        v(models.v - everywhere(mixture.v)),
        a(models.a - everywhere(mixture.a)) {}
  VectorOf p, v, a;
};

Distances setMean(const MotionStateOf<Lanes>& models, const Lanes& probability,
                  MotionState& mixture) {
  mixture.p = meanOf(models.p, probability);
  mixture.v = meanOf(models.v, probability);
  mixture.a = meanOf(models.a, probability);
  return {models, mixture};
}

void setCovariance(const MotionStateOf<Lanes>& models, const Lanes& probability,
                   const Distances& to, MotionState& mixture) {
  mixture.pp = blended(models.pp, to.p, probability);
  mixture.pv = blended(models.pv, to.p, to.v, probability);
  mixture.pa = blended(models.pa, to.p, to.a, probability);
  mixture.vv = blended(models.vv, to.v, probability);
  mixture.va = blended(models.va, to.v, to.a, probability);
  mixture.aa = blended(models.aa, to.a, probability);
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

/// Every model's own element with the share 1 - drawn, else the mixture's.
/// @param spread  the own share times the distances of the rows
struct Mixing {
  Lanes drawn;

  Lanes mixed(const Lanes& element, double mixture, const Lanes& spread, const Lanes& to) const {
    return element + drawn * (Lanes(mixture) - element + spread * to);
  }

  void mix(BlockOf& block, const Matrix3d& mixture, const VectorOf& spread,
           const VectorOf& to) const {
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i) block(i, j) = mixed(block(i, j), mixture(i, j), spread[i], to[j]);
  }

  /// A block on the diagonal.
  void mixEven(BlockOf& block, const Matrix3d& mixture, const VectorOf& spread,
               const VectorOf& to) const {
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i <= j; ++i)
        block(j, i) = block(i, j) = mixed(block(i, j), mixture(i, j), spread[i], to[j]);
  }
};

/// The mixture of what `displace` makes of every model, from the mixture of the motions and how far
/// the displacements are from their mean.
void setDisplaced(const MotionState& motion, const Distances& to, const Lanes& probability,
                  const Lanes& tremor2, const Gain<Lanes>& gain, const Taken<Lanes>& taken,
                  InteractingModels::Displaced& marker) {
  const VectorOf displacement = tremor2 * gain.drive;
  const Vector3d mean = meanOf(displacement, probability);
  const VectorOf from = displacement - everywhere(mean), weighted = probability * from;
  const Lanes share = probability * tremor2;
  marker.p = motion.p + mean;
  const auto set = [&](Matrix3d& block, const Matrix3d& ofMotion, const VectorOf& toOther,
                       const BlockOf& takenOther) {
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i)
        block(i, j) = ofMotion(i, j) + (weighted[i] * toOther[j] - share * takenOther(i, j)).sum();
  };
  set(marker.pv, motion.pv, to.v, taken.v);
  set(marker.pa, motion.pa, to.a, taken.a);
  for (int j = 0; j < 3; ++j) {
    for (int i = 0; i <= j; ++i) {
      const Lanes removed = taken.p(i, j) + taken.p(j, i) + tremor2 * gain.inverse(i, j);
      const Lanes apart = weighted[i] * (to.p[j] + from[j]) + weighted[j] * to.p[i];
      marker.pp(j, i) = marker.pp(i, j) = motion.pp(i, j) + (apart - share * removed).sum();
    }
    marker.pp(j, j) += share.sum();
  }
}

}  // namespace

MotionState mixtureOf(const MotionStateOf<Lanes>& models, const Lanes& probability) {
  MotionState result;
  const Distances to = setMean(models, probability, result);
  setCovariance(models, probability, to, result);
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
  motion_ = state;
  marker_ = {state.p, state.pp, state.pv, state.pa};
  corrected_ = true;
}

void InteractingModels::predict(double seconds) {
  if (seconds != step_.t) {
    step_ = Step(seconds, set_.memory);
    stays_ = std::exp(-seconds / set_.dwell);
  }
  const Lanes stays = stays_;
  const Lanes prior = stays * probability_ + (Lanes(1) - stays) * share_;
  const Lanes own = stays * probability_ / prior, drawn = Lanes(1) - own;
  if (!corrected_) motion_ = mixtureOf(models_, probability_);
  MotionStateOf<Lanes>& s = models_;
  const Distances to(s, motion_);
  const VectorOf p = own * to.p, v = own * to.v, a = own * to.a;
  const Mixing mixing{drawn};
  mixing.mixEven(s.pp, motion_.pp, p, to.p);
  mixing.mix(s.pv, motion_.pv, p, to.v);
  mixing.mix(s.pa, motion_.pa, p, to.a);
  mixing.mixEven(s.vv, motion_.vv, v, to.v);
  mixing.mix(s.va, motion_.va, v, to.a);
  mixing.mixEven(s.aa, motion_.aa, a, to.a);
  s.p -= drawn * to.p;
  s.v -= drawn * to.v;
  s.a -= drawn * to.a;
  probability_ = prior;
  corrected_ = false;
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
  const Taken<Lanes> taken = estimate::correct(models_, gain);
  for (int m = 0; m < kModels; ++m)
    probability_.set(
        m, std::max(kLeastProbability,
                    probability_[m] * likelihood[static_cast<std::size_t>(m)] / likeliest));
  probability_ /= probability_.sum();
  const Distances to = setMean(models_, probability_, motion_);
  setCovariance(models_, probability_, to, motion_);
  setDisplaced(motion_, to, probability_, tremor2_, gain, taken, marker_);
  corrected_ = true;
  return nearest;
}

void InteractingModels::widen(const Matrix3d& covariance) {
  models_.pp += covariance.cast<Lanes>();
  motion_.pp += covariance;
  marker_.pp += covariance;
}

MotionState InteractingModels::marker() const {
  if (!corrected_) return markerAfter(0);
  MotionState result = motion_;
  result.p = marker_.p;
  result.pp = marker_.pp;
  result.pv = marker_.pv;
  result.pa = marker_.pa;
  return result;
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

InteractingModels::Place InteractingModels::widest() const {
  const auto spread = (models_.pp.trace() + Lanes(3) * tremor2_).all();
  const int m = static_cast<int>(std::max_element(spread.begin(), spread.end()) - spread.begin());
  Place result;
  for (int i = 0; i < 3; ++i) {
    result.p[i] = models_.p[i][m];
    for (int j = 0; j < 3; ++j) result.pp(i, j) = models_.pp(i, j)[m];
    result.pp(i, i) += tremor2_[m];
  }
  return result;
}

}  // namespace estimate
