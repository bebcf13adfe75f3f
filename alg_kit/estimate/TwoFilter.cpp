#include <alg_kit/estimate/TwoFilter.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace estimate {
namespace {

using States = MotionStateOf<Lanes>;
constexpr std::size_t kNumbers = 9;  // of a state: position, velocity, acceleration
using Vector9 = std::array<Lanes, kNumbers>;
using Matrix9 = std::array<Vector9, kNumbers>;

constexpr double kOutlier2 = 36;
constexpr double kLost = 500;  // mm; one camera's light does not lead back from worse than this
constexpr double kNothing = 1e-300;
constexpr int kNumbersOfPair = 4;  // numbers of a measurement by both cameras

/// Of a filter that runs backwards: its velocity points the other way.
States turned(States s) {
  s.v = -s.v;
  s.pv = -s.pv;
  s.va = -s.va;
  return s;
}

void unpack(const States& s, Vector9& mean, Matrix9& covariance) {
  for (int i = 0; i < 3; ++i) {
    const auto p = static_cast<std::size_t>(i), v = p + 3, a = p + 6;
    mean[p] = s.p[i];
    mean[v] = s.v[i];
    mean[a] = s.a[i];
    for (int j = 0; j < 3; ++j) {
      const auto q = static_cast<std::size_t>(j), w = q + 3, b = q + 6;
      covariance[p][q] = s.pp(i, j);
      covariance[v][w] = s.vv(i, j);
      covariance[a][b] = s.aa(i, j);
      covariance[p][w] = covariance[w][p] = s.pv(i, j);
      covariance[p][b] = covariance[b][p] = s.pa(i, j);
      covariance[v][b] = covariance[b][v] = s.va(i, j);
    }
  }
}

States packed(const Vector9& mean, const Matrix9& covariance) {
  States s;
  for (int i = 0; i < 3; ++i) {
    const auto p = static_cast<std::size_t>(i), v = p + 3, a = p + 6;
    s.p[i] = mean[p];
    s.v[i] = mean[v];
    s.a[i] = mean[a];
    for (int j = 0; j < 3; ++j) {
      const auto q = static_cast<std::size_t>(j), w = q + 3, b = q + 6;
      s.pp(i, j) = covariance[p][q];
      s.pv(i, j) = covariance[p][w];
      s.pa(i, j) = covariance[p][b];
      s.vv(i, j) = covariance[v][w];
      s.va(i, j) = covariance[v][b];
      s.aa(i, j) = covariance[a][b];
    }
  }
  return s;
}

bool isLost(double trace) {
  return !(trace < kLost * kLost);
}

bool areLost(const States& states) {
  const auto traces = Lanes(states.pp(0, 0) + states.pp(1, 1) + states.pp(2, 2)).all();
  return std::all_of(traces.begin(), traces.end(), isLost);
}

/// Zero where there is nothing to divide by.
Lanes inverseOf(const Lanes& x) {
  std::array<double, kModels> result = x.all();
  for (double& number : result) number = std::abs(number) > kNothing ? 1 / number : 0;
  return Lanes(result);
}

struct Meeting {
  States states;
  std::array<double, kModels> logWeights{};
};

/// Two independent Gaussians of one state, (a, A) and (b, B), for every model: with the sum of the
/// covariances A + B = L D L^T, they meet at a + A (A + B)^-1 (b - a), with the covariance
/// A - A (A + B)^-1 A = A - (L^-1 A)^T D^-1 (L^-1 A).
Meeting meet(const States& past, const States& future) {
  Vector9 a, b;
  Matrix9 A, sum;
  unpack(past, a, A);
  unpack(turned(future), b, sum);
  Vector9 apart;
  for (std::size_t i = 0; i < kNumbers; ++i) {
    apart[i] = b[i] - a[i];
    for (std::size_t j = 0; j < kNumbers; ++j) sum[i][j] += A[i][j];
  }
  Matrix9 scaled = A;  // becomes L^-1 A, and `apart` L^-1 (b - a)
  Vector9 inverses;
  Lanes distance2 = 0;
  std::array<double, kModels> logDeterminant{};
  for (std::size_t k = 0; k < kNumbers; ++k) {
    const auto pivots = sum[k][k].all();
    for (std::size_t m = 0; m < kModels; ++m)
      logDeterminant[m] += std::log(std::max(std::abs(pivots[m]), kNothing));
    inverses[k] = inverseOf(sum[k][k]);
    for (std::size_t i = k + 1; i < kNumbers; ++i) {
      const Lanes share = sum[i][k] * inverses[k];
      for (std::size_t j = k + 1; j <= i; ++j) sum[i][j] -= share * sum[j][k];
      for (std::size_t j = 0; j < kNumbers; ++j) scaled[i][j] -= share * scaled[k][j];
      apart[i] -= share * apart[k];
    }
    distance2 += apart[k] * apart[k] * inverses[k];
  }
  for (std::size_t k = 0; k < kNumbers; ++k)
    for (std::size_t i = 0; i < kNumbers; ++i) {
      const Lanes share = scaled[k][i] * inverses[k];
      a[i] += share * apart[k];
      for (std::size_t j = 0; j <= i; ++j) A[i][j] -= share * scaled[k][j];
    }
  for (std::size_t i = 0; i < kNumbers; ++i)
    for (std::size_t j = 0; j < i; ++j) A[j][i] = A[i][j];
  Meeting result;
  result.states = packed(a, A);
  for (std::size_t m = 0; m < kModels; ++m)
    result.logWeights[m] = -0.5 * (distance2.all()[m] + logDeterminant[m]);
  return result;
}

/// Weights of which the logarithms are given but for a common term; they sum up to 1.
Lanes weightsFrom(const std::array<double, kModels>& logWeights) {
  const double most = *std::max_element(logWeights.begin(), logWeights.end());
  std::array<double, kModels> weights{};
  double sum = 0;
  for (std::size_t m = 0; m < kModels; ++m) sum += weights[m] = std::exp(logWeights[m] - most);
  return Lanes(weights) / Lanes(sum);
}

/// The mixture of all models' states before the frame's sighting, with the sighting.
SmoothedFrame takenIn(States& states, std::array<double, kModels>& logWeights,
                      const std::optional<PositionInformation>& seen, const Lanes& tremor2) {
  SmoothedFrame result;
  States markers = states;
  for (int i = 0; i < 3; ++i) markers.pp(i, i) += tremor2;
  if (seen) {
    const Gain<Lanes> gain = gainOf(states, *seen, tremor2);
    const auto distance2 = gain.fit.distance2.all();
    result.used = *std::min_element(distance2.begin(), distance2.end()) <= kOutlier2;
    if (result.used) {
      result.distance2 = (weightsFrom(logWeights) * gain.fit.distance2).sum();
      result.numbers = seen->numbers;
      displace(markers, states, gain, correct(states, gain), tremor2);
      markers.v = states.v;
      markers.a = states.a;
      markers.vv = states.vv;
      markers.va = states.va;
      markers.aa = states.aa;
      const auto determinant = gain.fit.determinant.all();
      for (std::size_t m = 0; m < kModels; ++m)
        logWeights[m] -= 0.5 * (distance2[m] + std::log(determinant[m]));
    }
  }
  result.marker = mixtureOf(markers, weightsFrom(logWeights));
  return result;
}

}  // namespace

void smoothStretch(const Stretch& stretch, const ModelSet& set, const StretchTaker& take) {
  const std::size_t frames = stretch.elapsed.size();
  if (frames == 0) return;
  const auto correct = [&](InteractingModels& filter, std::size_t k) {
    const auto seen = stretch.see(k);
    if (seen && (seen->numbers >= kNumbersOfPair || !isLost(filter.place().pp.trace())))
      filter.correct(*seen, kOutlier2);
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

    States states;
    std::array<double, kModels> logWeights{};
    bool frameIsIn = false;  // a filter that begins with this frame has its sighting already
    const auto addLogs = [&](const Lanes& factors) {
      const auto all = factors.all();
      for (std::size_t m = 0; m < kModels; ++m) logWeights[m] += std::log(all[m]);
    };
    if (k > 0 && fromFuture) {
      const Meeting meeting = meet(before.models(), future.models());
      states = meeting.states;
      logWeights = meeting.logWeights;
      addLogs(Lanes(before.probabilities()));
      addLogs(Lanes(future.probabilities()) / before.shares());
    } else if (fromFuture) {
      states = turned(future.models());
      addLogs(Lanes(future.probabilities()));
    } else {
      states = before.models();
      addLogs(Lanes(before.probabilities()));
      frameIsIn = k == 0;
    }
    std::optional<PositionInformation> seen;
    if (!frameIsIn) seen = stretch.see(k);
    if (seen && seen->numbers < kNumbersOfPair && areLost(states)) seen.reset();
    SmoothedFrame frame = takenIn(states, logWeights, seen, before.tremor2());
    frame.used = frame.used || frameIsIn;
    take(k, frame);

    if (k == stretch.lastStart)
      future.start(stretch.start(k));
    else if (fromFuture)
      correct(future, k);
    pasts.resize(k % block);
  }
}

}  // namespace estimate
