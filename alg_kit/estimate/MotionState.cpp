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

/// block -= x^T y, where that is even.
template <class Block>
void subtractEvenProduct(Block& block, const Block& x, const Block& y) {
  setEven(block, [&](int i, int j) {
    return block(i, j) - (x(0, i) * y(0, j) + x(1, i) * y(1, j) + x(2, i) * y(2, j));
  });
}

template <class Block>
struct InverseOf {
  Block inverse;
  typename Block::Scalar determinant;
};

/// By cofactors, of which the determinant is made too.
template <class Block>
InverseOf<Block> inverseOf(const Block& x) {
  Block adjugate;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
      adjugate(j, i) = x(i1, j1) * x(i2, j2) - x(i1, j2) * x(i2, j1);
    }
  using Number = typename Block::Scalar;
  const Number determinant =
      x(0, 0) * adjugate(0, 0) + x(0, 1) * adjugate(1, 0) + x(0, 2) * adjugate(2, 0);
  return {adjugate * (Number(1) / determinant), determinant};
}

/// The same of an even block.
template <class Block>
InverseOf<Block> evenInverseOf(const Block& x) {
  Block result;
  setEven(result, [&](int i, int j) {
    const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
    return x(i1, j1) * x(i2, j2) - x(i1, j2) * x(i2, j1);
  });
  using Number = typename Block::Scalar;
  const Number determinant =
      x(0, 0) * result(0, 0) + x(0, 1) * result(0, 1) + x(0, 2) * result(0, 2);
  result *= Number(1) / determinant;
  return {result, determinant};
}

/// Of a weight's determinant and what it would be, were the position known equally well in all
/// directions: below, the weight is that of one camera, which does not determine a position.
constexpr double kDetermined = 1e-9;

/// By the measured position's covariance.
template <class Number>
Gain<Number> gainOfPosition(const MotionStateOf<Number>& state,
                            const PositionInformation& information, Number tremor2) {
  using Block = typename MotionStateOf<Number>::Block;
  using Vector = typename MotionStateOf<Number>::Vector;
  Block spread;
  setEven(spread,
          [&](int i, int j) { return state.pp(i, j) + Number(information.covariance(i, j)); });
  for (int i = 0; i < 3; ++i) spread(i, i) += tremor2;
  const InverseOf<Block> inverse = evenInverseOf(spread);
  const Eigen::Vector3d change = information.covariance * information.pull;
  const Eigen::Vector3d measured = information.at + change;
  const Vector apart = measured.template cast<Number>() - state.p;

  Gain<Number> gain;
  gain.inverse = inverse.inverse;
  gain.drive = inverse.inverse * apart;
  const double miss2 = information.misfit - information.pull.dot(change);
  gain.fit.distance2 = Number(miss2) + apart.dot(gain.drive);
  gain.fit.determinant = inverse.determinant;
  return gain;
}

}  // namespace

void determine(PositionInformation& information) {
  const double third = information.weight.trace() / 3;
  const InverseOf<Eigen::Matrix3d> inverse = evenInverseOf(information.weight);
  information.determined = inverse.determinant > kDetermined * third * third * third;
  if (information.determined) information.covariance = inverse.inverse;
}

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
  const Number fade2 = fade * fade;
  setEven(s.aa, [&](int i, int j) { return fade2 * s.aa(i, j); });

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
  if (information.determined) return gainOfPosition(state, information, tremor2);
  // The same without the inverse of the weight.
  const Block weight = information.weight.template cast<Number>();
  const Vector given = information.pull.template cast<Number>();
  Block position = state.pp;
  for (int i = 0; i < 3; ++i) position(i, i) += tremor2;
  Block spread = weight * position;
  for (int i = 0; i < 3; ++i) spread(i, i) += Number(1);
  const InverseOf<Block> inverse = inverseOf(spread);
  const Block& shrink = inverse.inverse;

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
  gain.fit.determinant = inverse.determinant;
  return gain;
}

template <class Number>
Taken<Number> correct(MotionStateOf<Number>& s, const Gain<Number>& gain) {
  s.p.noalias() += s.pp * gain.drive;
  s.v.noalias() += s.pv.transpose() * gain.drive;
  s.a.noalias() += s.pa.transpose() * gain.drive;
  Taken<Number> taken;
  taken.p.noalias() = gain.inverse * s.pp;
  taken.v.noalias() = gain.inverse * s.pv;
  taken.a.noalias() = gain.inverse * s.pa;
  subtractEvenProduct(s.vv, s.pv, taken.v);
  s.va.noalias() -= s.pv.transpose() * taken.a;
  subtractEvenProduct(s.aa, s.pa, taken.a);
  s.pv.noalias() -= s.pp * taken.v;
  s.pa.noalias() -= s.pp * taken.a;
  const typename MotionStateOf<Number>::Block before = s.pp;
  subtractEvenProduct(s.pp, before, taken.p);
  return taken;
}

template <class Number>
void displace(MotionStateOf<Number>& marker, const MotionStateOf<Number>& s,
              const Gain<Number>& gain, const Taken<Number>& taken, Number tremor2) {
  // The displacement's own posterior: it takes its share of the residual.
  marker.p = s.p + tremor2 * gain.drive;
  marker.pv = s.pv - tremor2 * taken.v;
  marker.pa = s.pa - tremor2 * taken.a;
  setEven(marker.pp, [&](int i, int j) {
    return s.pp(i, j) - tremor2 * (taken.p(i, j) + taken.p(j, i) + tremor2 * gain.inverse(i, j));
  });
  for (int i = 0; i < 3; ++i) marker.pp(i, i) += tremor2;
}

Fit fitOf(const MotionState& state, const PositionInformation& information) {
  return gainOf(state, information, 0.0).fit;
}

Fit fitAndCorrect(MotionState& s, const PositionInformation& information, double tremor,
                  MotionState* marker) {
  const double tremor2 = tremor * tremor;
  const Gain<double> gain = gainOf(s, information, tremor2);
  const Taken<double> taken = correct(s, gain);
  if (marker != nullptr) {
    displace(*marker, s, gain, taken, tremor2);
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
template Taken<Lanes> correct(MotionStateOf<Lanes>&, const Gain<Lanes>&);
template void displace(MotionStateOf<Lanes>&, const MotionStateOf<Lanes>&, const Gain<Lanes>&,
                       const Taken<Lanes>&, Lanes);

}  // namespace estimate
