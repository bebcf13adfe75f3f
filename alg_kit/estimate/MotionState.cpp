#include <alg_kit/estimate/MotionState.h>

#include <Eigen/LU>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// What a fit and a correction have in common.
struct Gain {
  Matrix3d shrink;  ///< (I + weight pp)^-1
  Vector3d drive;   ///< shrink times the pull at the state's position
  Fit fit;
};

Gain gainOf(const MotionState& state, const PositionInformation& information, double tremor2 = 0) {
  Gain gain;
  Matrix3d position = state.pp;
  position.diagonal().array() += tremor2;
  const Matrix3d spread = Matrix3d::Identity() + information.weight * position;
  const double determinant = spread.determinant();
  gain.shrink = spread.inverse();
  const Vector3d offset = state.p - information.at;
  const Vector3d shift = information.weight * offset;
  const Vector3d pull = information.pull - shift;
  gain.drive = gain.shrink * pull;
  const double misfit = information.misfit - 2 * information.pull.dot(offset) + offset.dot(shift);
  // (R + J pp J^T)^-1 by the matrix inversion lemma, and its determinant.
  gain.fit.distance2 = misfit - pull.dot(position * gain.drive);
  gain.fit.logLikelihood = -0.5 * (gain.fit.distance2 + std::log(determinant));
  return gain;
}

/// Rounding makes the blocks on the diagonal a little uneven, and what the steps do to the uneven
/// part grows without bound.
void makeEven(Matrix3d& block) {
  block(1, 0) = block(0, 1) = 0.5 * (block(0, 1) + block(1, 0));
  block(2, 0) = block(0, 2) = 0.5 * (block(0, 2) + block(2, 0));
  block(2, 1) = block(1, 2) = 0.5 * (block(1, 2) + block(2, 1));
}

}  // namespace

Step::Step(double seconds, double memory)
    : t(seconds),
      fade(std::exp(-seconds / memory)),
      av(-memory * std::expm1(-seconds / memory)),
      ap(memory * (t - av)) {}

void predict(MotionState& s, const Step& step, double jerk) {
  const double t = step.t;
  s.p += t * s.v + step.ap * s.a;
  s.v += step.av * s.a;
  s.a *= step.fade;

  // Covariance of the new with the old, then of the new with the new.
  const Matrix3d newP_p = s.pp + t * s.pv.transpose() + step.ap * s.pa.transpose();
  const Matrix3d newP_v = s.pv + t * s.vv + step.ap * s.va.transpose();
  const Matrix3d newP_a = s.pa + t * s.va + step.ap * s.aa;
  const Matrix3d newV_v = s.vv + step.av * s.va.transpose();
  const Matrix3d newV_a = s.va + step.av * s.aa;
  s.pp = newP_p + t * newP_v + step.ap * newP_a;
  s.pv = newP_v + step.av * newP_a;
  s.pa = step.fade * newP_a;
  s.vv = newV_v + step.av * newV_a;
  s.va = step.fade * newV_a;
  s.aa *= step.fade * step.fade;
  makeEven(s.pp);
  makeEven(s.vv);

  const double t3 = t * t * t;
  s.pp.diagonal().array() += jerk * t3 * t * t / 20;
  s.pv.diagonal().array() += jerk * t3 * t / 8;
  s.pa.diagonal().array() += jerk * t3 / 6;
  s.vv.diagonal().array() += jerk * t3 / 3;
  s.va.diagonal().array() += jerk * t * t / 2;
  s.aa.diagonal().array() += jerk * t;
}

Fit fitOf(const MotionState& state, const PositionInformation& information) {
  return gainOf(state, information).fit;
}

Fit fitAndCorrect(MotionState& s, const PositionInformation& information, double tremor,
                  MotionState* marker) {
  const double tremor2 = tremor * tremor;
  const Gain gain = gainOf(s, information, tremor2);
  Matrix3d inverse = gain.shrink * information.weight;  // (pp + tremor^2 I + weight^-1)^-1
  makeEven(inverse);
  s.p += s.pp * gain.drive;
  s.v += s.pv.transpose() * gain.drive;
  s.a += s.pa.transpose() * gain.drive;
  const Matrix3d p = inverse * s.pp, v = inverse * s.pv, a = inverse * s.pa;
  s.vv -= s.pv.transpose() * v;
  s.va -= s.pv.transpose() * a;
  s.aa -= s.pa.transpose() * a;
  s.pv -= s.pp * v;
  s.pa -= s.pp * a;
  s.pp -= s.pp * p;
  if (marker != nullptr) {
    // The displacement's own posterior: it takes its share of the residual. pp here is old.
    *marker = s;
    marker->p += tremor2 * gain.drive;
    marker->pv -= tremor2 * v;
    marker->pa -= tremor2 * a;
    marker->pp += tremor2 * (Matrix3d::Identity() - p - p.transpose() - tremor2 * inverse);
    makeEven(marker->pp);
  }
  for (Matrix3d* const block : {&s.pp, &s.vv, &s.aa}) makeEven(*block);
  return gain.fit;
}

}  // namespace estimate
