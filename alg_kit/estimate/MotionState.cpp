#include <alg_kit/estimate/Lanes.h>
#include <alg_kit/estimate/MotionState.h>

#include <cmath>

namespace estimate {
namespace {

// The blocks on the diagonal are even. Rounding would make them a little uneven, and what the steps
// do to the uneven part grows without bound: one half is reckoned, and stands for both.

/// @param value  of (i, j), for i <= j
template <class Block, class Value>
void setEven(Block& block, Value value) {
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i <= j; ++i) block(j, i) = block(i, j) = value(i, j);
}

/// x^T y, where it is even.
template <class Block>
Block evenProduct(const Block& x, const Block& y) {
  Block result;
  setEven(result,
          [&](int i, int j) { return x(0, i) * y(0, j) + x(1, i) * y(1, j) + x(2, i) * y(2, j); });
  return result;
}

}  // namespace

Step::Step(double seconds, double memory)
    : t(seconds),
      fade(std::exp(-seconds / memory)),
      av(-memory * std::expm1(-seconds / memory)),
      ap(memory * (t - av)) {}

template <class Number>
void predict(MotionStateOf<Number>& s, const Step& step, Number jerk) {
  using Block = typename MotionStateOf<Number>::Block;
  const Number t = step.t, av = step.av, ap = step.ap, fade = step.fade;
  s.p += t * s.v + ap * s.a;
  s.v += av * s.a;
  s.a *= fade;

  // Covariance of the new with the old, then of the new with the new.
  const Block newP_v = s.pv + t * s.vv + ap * s.va.transpose();
  const Block newP_a = s.pa + t * s.va + ap * s.aa;
  const Block newV_a = s.va + av * s.aa;
  setEven(s.pp, [&](int i, int j) {
    const Number newP_p = s.pp(i, j) + t * s.pv(j, i) + ap * s.pa(j, i);
    return newP_p + t * newP_v(i, j) + ap * newP_a(i, j);
  });
  setEven(s.vv, [&](int i, int j) {
    const Number newV_v = s.vv(i, j) + av * s.va(j, i);
    return newV_v + av * newV_a(i, j);
  });
  s.pv = newP_v + av * newP_a;
  s.pa = fade * newP_a;
  s.va = fade * newV_a;
  s.aa *= fade * fade;

  const double t1 = step.t, t2 = t1 * t1, t3 = t2 * t1;
  const auto drive = [jerk](Block& block, double share) {
    for (int i = 0; i < 3; ++i) block(i, i) += jerk * Number(share);
  };
  drive(s.pp, t3 * t2 / 20);
  drive(s.pv, t3 * t1 / 8);
  drive(s.pa, t3 / 6);
  drive(s.vv, t3 / 3);
  drive(s.va, t2 / 2);
  drive(s.aa, t1);
}

template <class Number>
Gain<Number> gainOf(const MotionStateOf<Number>& state, const PositionInformation& information,
                    Number tremor2) {
  using Block = typename MotionStateOf<Number>::Block;
  using Vector = typename MotionStateOf<Number>::Vector;
  const Block weight = information.weight.template cast<Number>();
  const Vector given = information.pull.template cast<Number>();
  Block position = state.pp;
  for (int i = 0; i < 3; ++i) position(i, i) += tremor2;
  Block spread = weight * position;
  for (int i = 0; i < 3; ++i) spread(i, i) += Number(1);
  // By cofactors, of which the determinant is made too.
  Block adjugate;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
      adjugate(j, i) = spread(i1, j1) * spread(i2, j2) - spread(i1, j2) * spread(i2, j1);
    }
  const Number determinant =
      spread(0, 0) * adjugate(0, 0) + spread(0, 1) * adjugate(1, 0) + spread(0, 2) * adjugate(2, 0);
  const Block shrink = adjugate * (Number(1) / determinant);

  Gain<Number> gain;
  // (pp + tremor^2 I + weight^-1)^-1
  setEven(gain.inverse, [&](int i, int j) {
    return shrink(i, 0) * weight(0, j) + shrink(i, 1) * weight(1, j) + shrink(i, 2) * weight(2, j);
  });
  const Vector offset = state.p - information.at.template cast<Number>();
  const Vector shift = weight * offset;
  const Vector pull = given - shift;
  gain.drive = shrink * pull;
  const Number misfit =
      Number(information.misfit) - Number(2) * given.dot(offset) + offset.dot(shift);
  // (R + J pp J^T)^-1 by the matrix inversion lemma, and its determinant.
  gain.fit.distance2 = misfit - pull.dot(position * gain.drive);
  gain.fit.determinant = determinant;
  return gain;
}

template <class Number>
void correct(MotionStateOf<Number>& s, const Gain<Number>& gain, Number tremor2,
             MotionStateOf<Number>* marker) {
  using Block = typename MotionStateOf<Number>::Block;
  s.p += s.pp * gain.drive;
  s.v += s.pv.transpose() * gain.drive;
  s.a += s.pa.transpose() * gain.drive;
  const Block p = gain.inverse * s.pp, v = gain.inverse * s.pv, a = gain.inverse * s.pa;
  s.vv -= evenProduct(s.pv, v);
  s.va -= s.pv.transpose() * a;
  s.aa -= evenProduct(s.pa, a);
  s.pv -= s.pp * v;
  s.pa -= s.pp * a;
  s.pp -= evenProduct(s.pp, p);
  if (marker == nullptr) return;
  // The displacement's own posterior: it takes its share of the residual.
  marker->p = s.p + tremor2 * gain.drive;
  marker->pv = s.pv - tremor2 * v;
  marker->pa = s.pa - tremor2 * a;
  marker->pp = s.pp - tremor2 * (p + p.transpose() + tremor2 * gain.inverse);
  for (int i = 0; i < 3; ++i) marker->pp(i, i) += tremor2;
}

Fit fitOf(const MotionState& state, const PositionInformation& information) {
  return gainOf(state, information, 0.0).fit;
}

Fit fitAndCorrect(MotionState& s, const PositionInformation& information, double tremor,
                  MotionState* marker) {
  const double tremor2 = tremor * tremor;
  const Gain<double> gain = gainOf(s, information, tremor2);
  correct(s, gain, tremor2, marker);
  if (marker != nullptr) {
    marker->v = s.v;
    marker->a = s.a;
    marker->vv = s.vv;
    marker->va = s.va;
    marker->aa = s.aa;
  }
  return gain.fit;
}

template void predict(MotionStateOf<double>&, const Step&, double);
template void predict(MotionStateOf<Lanes>&, const Step&, Lanes);
template Gain<Lanes> gainOf(const MotionStateOf<Lanes>&, const PositionInformation&, Lanes);
template void correct(MotionStateOf<Lanes>&, const Gain<Lanes>&, Lanes, MotionStateOf<Lanes>*);

}  // namespace estimate
