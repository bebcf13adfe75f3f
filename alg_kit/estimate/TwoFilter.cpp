#include <alg_kit/estimate/TwoFilter.h>

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Vector9d = Eigen::Matrix<double, 9, 1>;
using Matrix9d = Eigen::Matrix<double, 9, 9>;

constexpr double kGate2 = 36;
constexpr double kLost = 500;  // mm; one camera's light does not lead back from worse than this
constexpr int kPair = 4;       // numbers of a measurement by both cameras

/// @param direction  1, or -1 for a filter that runs backwards: its velocity points the other way
void unpack(const MotionState& s, double direction, Vector9d& mean, Matrix9d& covariance) {
  mean << s.p, direction * s.v, s.a;
  covariance << s.pp, direction * s.pv, s.pa,                //
      direction * s.pv.transpose(), s.vv, direction * s.va,  //
      s.pa.transpose(), direction * s.va.transpose(), s.aa;
}

MotionState packed(const Vector9d& mean, const Matrix9d& covariance) {
  MotionState s;
  s.p = mean.head<3>();
  s.v = mean.segment<3>(3);
  s.a = mean.tail<3>();
  s.pp = covariance.block<3, 3>(0, 0);
  s.pv = covariance.block<3, 3>(0, 3);
  s.pa = covariance.block<3, 3>(0, 6);
  s.vv = covariance.block<3, 3>(3, 3);
  s.va = covariance.block<3, 3>(3, 6);
  s.aa = covariance.block<3, 3>(6, 6);
  return s;
}

bool isLost(const Eigen::Matrix3d& covariance) {
  return !(covariance.trace() < kLost * kLost);
}

struct Meeting {
  MotionState state;
  double logWeight = 0;
};

/// Two independent Gaussians of one state.
Meeting meet(const MotionState& past, const MotionState& future) {
  Vector9d a, b;
  Matrix9d A, B;
  unpack(past, 1, a, A);
  unpack(future, -1, b, B);
  const Eigen::LDLT<Matrix9d> sum(A + B);
  const Vector9d apart = b - a;
  const Vector9d pulled = sum.solve(apart);
  const Matrix9d gain = sum.solve(A).transpose();  // A (A + B)^-1
  Meeting result;
  const Matrix9d covariance = A - gain * A;
  result.state = packed(a + A * pulled, 0.5 * (covariance + covariance.transpose()));
  result.logWeight =
      -0.5 * (apart.dot(pulled) + sum.vectorD().array().abs().max(1e-300).log().sum());
  return result;
}

/// The mixture of all models' states before the frame's sighting, with the sighting.
bool takeIn(std::array<MotionState, kModels>& states, std::array<double, kModels>& logWeights,
            const std::optional<PositionInformation>& seen, const ModelSet& set,
            MotionState& result) {
  std::array<MotionState, kModels> markers = states;
  std::array<Fit, kModels> fits{};
  bool used = false;
  if (seen) {
    double nearest = HUGE_VAL;
    for (int m = 0; m < kModels; ++m) {
      MotionState motion = states[m];
      fits[m] = fitAndCorrect(motion, *seen, set.models[m].tremor, &markers[m]);
      nearest = std::min(nearest, fits[m].distance2);
    }
    used = nearest <= kGate2;
  }
  if (!used) {
    markers = states;
    for (int m = 0; m < kModels; ++m)
      markers[m].pp.diagonal().array() += set.models[m].tremor * set.models[m].tremor;
  }
  std::array<double, kModels> weights = logWeights;
  for (int m = 0; m < kModels; ++m)
    if (used) weights[m] += fits[m].logLikelihood;
  const double most = *std::max_element(weights.begin(), weights.end());
  double sum = 0;
  for (double& weight : weights) sum += weight = std::exp(weight - most);
  for (double& weight : weights) weight /= sum;
  result = mixtureOf(markers, weights);
  return used;
}

}  // namespace

void smoothStretch(const Stretch& stretch, const ModelSet& set, const StretchTaker& take) {
  const std::size_t frames = stretch.elapsed.size();
  if (frames == 0) return;
  const auto correct = [&](InteractingModels& filter, std::size_t k) {
    const auto seen = stretch.see(k);
    if (seen && (seen->numbers >= kPair || !isLost(filter.place().pp)))
      filter.correct(*seen, kGate2);
  };

  // The filter from the past before every frame's sighting: kept at the beginning of each block,
  // made again block by block.
  const auto block = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(frames))));
  std::vector<InteractingModels> beginnings;
  InteractingModels past(set);
  past.start(stretch.start(0));
  for (std::size_t k = 0; k < frames; ++k) {
    if (k > 0) past.predict(stretch.elapsed[k]);
    if (k % block == 0) beginnings.push_back(past);
    if (k > 0) correct(past, k);
  }

  std::vector<InteractingModels> pasts;
  InteractingModels future(set);
  for (std::size_t k = frames; k-- > 0;) {
    if (pasts.empty() || k % block == block - 1) {
      const std::size_t begin = k / block * block;
      pasts.assign(1, beginnings[k / block]);
      for (std::size_t i = begin; i < k; ++i) {
        InteractingModels next = pasts.back();
        if (i > 0) correct(next, i);
        next.predict(stretch.elapsed[i + 1]);
        pasts.push_back(next);
      }
    }
    const InteractingModels& before = pasts[k % block];
    const bool fromFuture = k < stretch.lastStart;
    if (fromFuture) future.predict(stretch.elapsed[k + 1]);

    std::array<MotionState, kModels> states;
    std::array<double, kModels> logWeights{};
    bool frameIsIn = false;  // a filter that begins with this frame has its sighting already
    for (int m = 0; m < kModels; ++m) {
      if (k > 0 && fromFuture) {
        const Meeting meeting = meet(before.model(m), future.model(m));
        states[m] = meeting.state;
        logWeights[m] = meeting.logWeight + std::log(before.probabilities()[m]) +
                        std::log(future.probabilities()[m] / set.models[m].share);
      } else if (fromFuture) {
        Vector9d mean;
        Matrix9d covariance;
        unpack(future.model(m), -1, mean, covariance);
        states[m] = packed(mean, covariance);
        logWeights[m] = std::log(future.probabilities()[m]);
      } else {
        states[m] = before.model(m);
        logWeights[m] = std::log(before.probabilities()[m]);
        frameIsIn = k == 0;
      }
    }
    std::optional<PositionInformation> seen;
    if (!frameIsIn) seen = stretch.see(k);
    if (seen && seen->numbers < kPair &&
        std::all_of(states.begin(), states.end(),
                    [](const MotionState& state) { return isLost(state.pp); }))
      seen.reset();
    MotionState smoothed;
    const bool used = takeIn(states, logWeights, seen, set, smoothed);
    take(k, smoothed, used || frameIsIn);

    if (k == stretch.lastStart)
      future.start(stretch.start(k));
    else if (fromFuture)
      correct(future, k);
    pasts.resize(k % block);
  }
}

}  // namespace estimate
