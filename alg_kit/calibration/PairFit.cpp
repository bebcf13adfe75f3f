#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/PairFit.h>
#include <alg_kit/calibration/SampsonDistance.h>
#include <alg_kit/rig/StereoRig.h>
#include <ceres/jet.h>
#include <ceres/tiny_solver.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>

namespace calibration {
namespace {

using algorithm::StereoCalibration;

constexpr double kTukey = 4.685;       // 95 % as good as least squares on clean data
constexpr double kCauchy = 2.385;      // likewise
constexpr double kFewestNoise = 1e-6;  // px; what is called no noise at all
constexpr double kLargestLeverage = 0.1;
constexpr int kLensParameters = 8;
constexpr std::size_t kCoarsePairs = 2000;  // enough to come near
constexpr int kGuesses = 150;               // with 30 % wrong partners 8 of them are clean
constexpr std::size_t kPairsOfAGuess = 8;
constexpr std::size_t kJudgesOfAGuess = 400;

/// A calibration as the fit sees it.
struct Pose {
  Eigen::Matrix3d R;
  Eigen::Vector3d t;  // unit length
  Eigen::Matrix<double, 3, 2> tangents;
  double left[kLensParameters], right[kLensParameters];
};

void lensFrom(const double (&k)[9], const double (&distortion)[8], double (&lens)[8]) {
  lens[0] = k[0], lens[1] = k[4], lens[2] = k[2], lens[3] = k[5];
  std::copy_n(distortion, 4, lens + 4);
}

Pose poseOf(const StereoCalibration& c) {
  Pose pose;
  pose.R = rig::matrixFrom(c.rotation);
  const Eigen::Vector3d T(c.translation);
  pose.t = T.normalized();
  pose.tangents = tangentsOf(T);
  lensFrom(c.leftIntrinsics, c.leftDistortion, pose.left);
  lensFrom(c.rightIntrinsics, c.rightDistortion, pose.right);
  return pose;
}

/// exp of a rotation vector (Rodrigues), with its derivatives at zero too.
template <typename T>
Eigen::Matrix<T, 3, 3> rotationFrom(const T* r) {
  using std::cos;
  using std::sin;
  using std::sqrt;
  const T square = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
  T first, second;
  if (square < 1e-12) {
    first = 1.0 - square / 6.0;
    second = 0.5 - square / 24.0;
  } else {
    const T angle = sqrt(square);
    first = sin(angle) / angle;
    second = (1.0 - cos(angle)) / square;
  }
  const auto cross = crossMatrix<T>({r[0], r[1], r[2]});
  return Eigen::Matrix<T, 3, 3>(Eigen::Matrix<T, 3, 3>::Identity() + first * cross +
                                second * (cross * cross).eval());
}

/// The Sampson distances of pairs as a function of the parameters. Those of the pose leave the rays
/// alone and act through the nine elements of the essential matrix.
template <int N>
class Distances {
 public:
  using Jet = ceres::Jet<double, N>;

  Distances(const Pose& pose, const std::vector<ObservedPair>& pairs) : pose_(pose), pairs_(pairs) {
    if (N == kPoseParameters)
      for (const ObservedPair& pair : pairs) {
        left_.push_back(rayOf(pair.left.x, pair.left.y, pose.left));
        right_.push_back(rayOf(pair.right.x, pair.right.y, pose.right));
      }
  }

  std::size_t size() const { return pairs_.size(); }

  /// The geometry at one set of parameters.
  template <typename T>
  struct At {
    Eigen::Matrix<T, 3, 3> essential;
    T left[kLensParameters], right[kLensParameters];
    /// Where T carries derivatives, value and derivatives apart.
    Eigen::Matrix3d plainEssential;
    Eigen::Matrix<double, N, 9> perParameter;
  };

  template <typename T>
  At<T> at(const T* p) const {
    At<T> at;
    const Eigen::Matrix<T, 3, 1> t = pose_.t.template cast<T>() +
                                     pose_.tangents.col(0).template cast<T>() * p[3] +
                                     pose_.tangents.col(1).template cast<T>() * p[4];
    at.essential = crossMatrix(t) * (rotationFrom(p) * pose_.R.template cast<T>());
    for (int i = 0; i < kLensParameters; ++i) {
      at.left[i] = T(pose_.left[i]);
      at.right[i] = T(pose_.right[i]);
      if (N == kAllParameters) {
        at.left[i] += p[kPoseParameters + i];
        at.right[i] += p[kPoseParameters + kLensParameters + i];
      }
    }
    return at;
  }

  template <typename T>
  T distance(std::size_t i, const At<T>& at) const {
    if constexpr (N != kPoseParameters) {
      const ObservedPair& pair = pairs_[i];
      return sampsonDistance(rayOf(pair.left.x, pair.left.y, at.left),
                             rayOf(pair.right.x, pair.right.y, at.right), at.essential);
    } else if constexpr (std::is_same_v<T, double>) {
      return sampsonDistance(left_[i], right_[i], at.essential);
    } else {
      Eigen::Matrix3d perEssential;
      T result;
      result.a = sampsonDistance(left_[i], right_[i], at.plainEssential, perEssential);
      result.v.noalias() =
          at.perParameter * Eigen::Map<const Eigen::Matrix<double, 9, 1>>(perEssential.data());
      return result;
    }
  }

  At<Jet> withDerivatives(const double* p) const {
    Jet jets[N];
    for (int i = 0; i < N; ++i) jets[i] = Jet(p[i], i);
    At<Jet> result = at(jets);
    for (Eigen::Index i = 0; i < 9; ++i) {
      result.plainEssential(i) = result.essential(i).a;
      result.perParameter.col(i) = result.essential(i).v;
    }
    return result;
  }

 private:
  const Pose& pose_;
  const std::vector<ObservedPair>& pairs_;
  std::vector<Ray<double>> left_, right_;
};

/// What TinySolver minimises: the distances times their weights, and the beliefs.
template <int N>
struct Weighted {
  using Scalar = double;
  enum { NUM_RESIDUALS = Eigen::Dynamic, NUM_PARAMETERS = N };

  int NumResiduals() const { return static_cast<int>(distances.size()) + N; }

  bool operator()(const double* p, double* residuals, double* jacobian) const {
    const auto count = static_cast<Eigen::Index>(distances.size());
    const Eigen::Index rows = count + N;
    Eigen::Map<Eigen::VectorXd> r(residuals, rows);
    if (jacobian != nullptr) {
      Eigen::Map<Eigen::Matrix<double, Eigen::Dynamic, N>> J(jacobian, rows, N);
      const auto at = distances.withDerivatives(p);
      for (Eigen::Index i = 0; i < count; ++i) {
        const auto d = distances.distance(static_cast<std::size_t>(i), at);
        r[i] = weights[i] * d.a;
        J.row(i) = weights[i] * d.v.transpose();
      }
      J.bottomRows(N) = Eigen::Matrix<double, N, 1>(beliefs).asDiagonal();
    } else {
      const auto at = distances.at(p);
      for (Eigen::Index i = 0; i < count; ++i)
        r[i] = weights[i] * distances.distance(static_cast<std::size_t>(i), at);
    }
    for (int k = 0; k < N; ++k) r[count + k] = beliefs[k] * p[k];
    return true;
  }

  const Distances<N>& distances;
  const Eigen::VectorXd& weights;             // square roots
  const Eigen::Matrix<double, N, 1> beliefs;  // 1 / standard deviation, or 0
};

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

template <int N>
class Fitter {
 public:
  using Vector = Eigen::Matrix<double, N, 1>;
  using Square = Eigen::Matrix<double, N, N>;

  Fitter(const Pose& pose, const Eigen::VectorXd& believed) : pose_(pose) {
    beliefs_.setZero();
    for (Eigen::Index i = 0; i < believed.size(); ++i)
      if (believed[i] > 0) beliefs_[i] = 1 / believed[i];
  }

  /// Comes near in spite of a far start and many wrong partners: of many fits to a few pairs, the
  /// one with the least median distance (Rousseeuw 1984). The draws are always the same.
  void guess(const std::vector<ObservedPair>& pairs, Vector& p) const {
    std::mt19937_64 engine(1);
    const auto draw = [&](std::size_t count) {
      std::vector<ObservedPair> drawn;
      for (std::size_t i = 0; i < count; ++i) drawn.push_back(pairs[engine() % pairs.size()]);
      return drawn;
    };
    const std::vector<ObservedPair> judges = draw(kJudgesOfAGuess);
    const Distances<N> judging(pose_, judges);
    const Eigen::VectorXd even = Eigen::VectorXd::Ones(kPairsOfAGuess);
    double least = median(absolute(judging, p));
    const Vector start = p;
    for (int i = 0; i < kGuesses; ++i) {
      const std::vector<ObservedPair> few = draw(kPairsOfAGuess);
      Vector candidate = start;
      solve(Distances<N>(pose_, few), even, 15, candidate);
      const double distance = median(absolute(judging, candidate));
      if (!(distance < least)) continue;
      least = distance;
      p = candidate;
    }
  }

  /// Comes nearer, from a start that explains half of the pairs roughly.
  void approach(const std::vector<ObservedPair>& pairs, Vector& p) const {
    const Distances<N> distances(pose_, pairs);
    double scale = std::numeric_limits<double>::infinity();
    for (int round = 0; round < 60; ++round) {
      const std::vector<double> sizes = absolute(distances, p);
      const double noise = std::max(1.4826 * median(sizes), kFewestNoise);
      const double narrow = kCauchy * noise;
      const double next = round == 0 ? 2 * narrow : std::max(scale / 1.5, narrow);
      const bool last = next >= scale * 0.999;
      scale = std::min(next, scale);
      Eigen::VectorXd weights(static_cast<Eigen::Index>(sizes.size()));
      for (std::size_t i = 0; i < sizes.size(); ++i)
        weights[static_cast<Eigen::Index>(i)] =
            1 / (noise * std::sqrt(1 + sizes[i] * sizes[i] / (scale * scale)));
      const Vector before = p;
      solve(distances, weights, 4, p);
      if (last && (p - before).norm() < 1e-9) break;
    }
  }

  /// The robust fit from near by.
  /// @param pairs  those that were set aside are taken out
  PairFit settle(std::vector<ObservedPair>& pairs, Vector p) const {
    PairFit fit;
    const std::size_t given = pairs.size();
    for (int attempt = 0; attempt < 10; ++attempt) {
      const Distances<N> distances(pose_, pairs);
      double noise = 0;
      Eigen::VectorXd weights(static_cast<Eigen::Index>(pairs.size()));
      for (int round = 0; round < 30; ++round) {
        const std::vector<double> sizes = absolute(distances, p);
        // The noise settles first; then the weights belong to one function, which falls.
        if (round < 5) noise = noiseOf(sizes, noise);
        for (std::size_t i = 0; i < sizes.size(); ++i) {
          const double u = sizes[i] / (kTukey * noise);
          weights[static_cast<Eigen::Index>(i)] = u < 1 ? (1 - u * u) / noise : 0;
        }
        const Vector before = p;
        solve(distances, weights, 3, p);
        fit.converged = (p - before).norm() < 1e-8 * (1 + p.norm());
        if (round >= 5 && fit.converged) break;
      }
      fit.noise = noise;
      const std::vector<std::size_t> alone = judge(distances, p, fit);
      if (alone.empty()) break;
      for (auto it = alone.rbegin(); it != alone.rend(); ++it)
        pairs.erase(pairs.begin() + static_cast<std::ptrdiff_t>(*it));
    }
    fit.alone = given - pairs.size();
    fit.change = p;
    return fit;
  }

  /// States the uncertainty of a fit whose result is this fitter's pose.
  void judgeResult(const std::vector<ObservedPair>& pairs, PairFit& fit) const {
    judge(Distances<N>(pose_, pairs), Vector::Zero(), fit);
  }

 private:
  std::vector<double> absolute(const Distances<N>& distances, const Vector& p) const {
    const auto at = distances.at(p.data());
    std::vector<double> sizes(distances.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) sizes[i] = std::abs(distances.distance(i, at));
    return sizes;
  }

  /// From the median, first of all, then of those that are no outliers by the figure before.
  static double noiseOf(std::vector<double> sizes, double before) {
    if (before > 0)
      sizes.erase(std::remove_if(sizes.begin(), sizes.end(),
                                 [&](double size) { return size > kTukey * before; }),
                  sizes.end());
    const auto count = static_cast<double>(sizes.size());
    const double freedom = std::max(count - N, 1.0);
    return std::max(1.4826 * median(sizes) * std::sqrt(count / freedom), kFewestNoise);
  }

  void solve(const Distances<N>& distances, const Eigen::VectorXd& weights, int steps,
             Vector& p) const {
    const Weighted<N> function{distances, weights, beliefs_};
    ceres::TinySolver<Weighted<N>> solver;
    solver.options.max_num_iterations = steps;
    solver.options.gradient_tolerance = 1e-14;
    solver.options.parameter_tolerance = 1e-13;
    solver.options.function_tolerance = 1e-14;
    Vector result = p;
    solver.Solve(function, &result);
    if (result.allFinite()) p = result;
  }

  /// Fills covariance and counts; returns the pairs on which a direction hangs alone.
  std::vector<std::size_t> judge(const Distances<N>& distances, const Vector& p,
                                 PairFit& fit) const {
    const auto at = distances.withDerivatives(p.data());
    Square curvature = Square::Zero(), scatter = Square::Zero();
    std::vector<Vector> rows(distances.size());
    std::vector<double> slopes(distances.size());
    fit.used = fit.outliers = 0;
    for (std::size_t i = 0; i < distances.size(); ++i) {
      const auto d = distances.distance(i, at);
      const double u = d.a / (kTukey * fit.noise), rest = 1 - u * u;
      if (!(std::abs(u) < 1)) {
        ++fit.outliers;
        continue;
      }
      ++fit.used;
      rows[i] = d.v;
      slopes[i] = rest * (1 - 5 * u * u);
      const double psi = d.a * rest * rest;
      curvature += slopes[i] * rows[i] * rows[i].transpose();
      scatter += psi * psi * rows[i] * rows[i].transpose();
    }
    const double variance = fit.noise * fit.noise;
    const Square belief = Vector(beliefs_.array().square()).asDiagonal();
    curvature = curvature / variance + belief;
    scatter = scatter / (variance * variance) + belief;
    // Parameters of different units are brought to one size before they are inverted.
    Vector size = curvature.diagonal().cwiseAbs().cwiseSqrt();
    for (int i = 0; i < N; ++i)
      if (!(size[i] > 0)) size[i] = 1;
    const Square scaled =
        size.cwiseInverse().asDiagonal() * curvature * size.cwiseInverse().asDiagonal();
    const Eigen::SelfAdjointEigenSolver<Square> eigen(scaled);
    const Vector values = eigen.eigenvalues().cwiseMax(1e-14);
    const Square inverse = size.cwiseInverse().asDiagonal() * eigen.eigenvectors() *
                           values.cwiseInverse().asDiagonal() * eigen.eigenvectors().transpose() *
                           size.cwiseInverse().asDiagonal();
    fit.covariance = inverse * scatter * inverse;
    // Where nothing scatters because nothing is seen, the curvature alone says how little is known.
    for (int i = 0; i < N; ++i)
      if (eigen.eigenvalues()[i] < 1e-14) fit.covariance = inverse;

    std::vector<std::size_t> alone;
    for (std::size_t i = 0; i < distances.size(); ++i)
      if (slopes[i] > 0 && rows[i].dot(inverse * rows[i]) / variance > kLargestLeverage)
        alone.push_back(i);
    return alone;
  }

  const Pose& pose_;
  Vector beliefs_;
};

std::vector<ObservedPair> withinTheLens(const Pose& pose, const std::vector<ObservedPair>& pairs) {
  std::vector<ObservedPair> result;
  for (const ObservedPair& pair : pairs) {
    const auto left = rayOf(pair.left.x, pair.left.y, pose.left);
    const auto right = rayOf(pair.right.x, pair.right.y, pose.right);
    // The library projects onto planes: nothing at or behind 90 degrees, and little near it.
    if (left.direction.z() > 0.1 && right.direction.z() > 0.1) result.push_back(pair);
  }
  return result;
}

/// Drawn without an order, so that no rhythm of the recording (six ids in turn) picks one of them.
std::vector<ObservedPair> thinned(const std::vector<ObservedPair>& pairs, std::size_t most) {
  if (pairs.size() <= most) return pairs;
  std::mt19937_64 engine(2);
  std::vector<ObservedPair> result;
  for (std::size_t i = 0; i < most; ++i) result.push_back(pairs[engine() % pairs.size()]);
  return result;
}

template <int N>
PairFit fitFrom(const StereoCalibration& given, const std::vector<ObservedPair>& pairs,
                const Eigen::VectorXd& believed) {
  const Pose pose = poseOf(given);
  std::vector<ObservedPair> usable = withinTheLens(pose, pairs);
  PairFit fit;
  fit.change = Eigen::VectorXd::Zero(N);
  fit.covariance = Eigen::MatrixXd::Identity(N, N) * 1e6;
  if (usable.size() < 2 * N) return fit;
  Eigen::Matrix<double, N, 1> start = Eigen::Matrix<double, N, 1>::Zero();
  // The lenses move only once the pose is near.
  Eigen::Matrix<double, kPoseParameters, 1> poseStart;
  poseStart.setZero();
  const Eigen::VectorXd poseBelief =
      believed.size() > 0 ? believed.head(kPoseParameters).eval() : Eigen::VectorXd();
  const Fitter<kPoseParameters> poseFitter(pose, poseBelief);
  const std::vector<ObservedPair> some = thinned(usable, kCoarsePairs);
  poseFitter.guess(some, poseStart);
  poseFitter.approach(some, poseStart);
  start.template head<kPoseParameters>() = poseStart;
  fit = Fitter<N>(pose, believed).settle(usable, start);
  // As small differences from the result. Those from a calibration that is degrees away are others,
  // and where parameters look nearly alike, a few percent of difference are many deviations.
  const Pose result = poseOf(moved(given, fit.change));
  Fitter<N>(result, believed).judgeResult(usable, fit);
  return fit;
}

}  // namespace

Eigen::Matrix<double, 3, 2> tangentsOf(const Eigen::Vector3d& translation) {
  const Eigen::Vector3d t = translation.normalized();
  const Eigen::Vector3d up =
      std::abs(t.y()) < 0.8 ? Eigen::Vector3d::UnitY() : Eigen::Vector3d::UnitX();
  Eigen::Matrix<double, 3, 2> tangents;
  tangents.col(0) = (up - up.dot(t) * t).normalized();
  tangents.col(1) = tangents.col(0).cross(t);
  return tangents;
}

StereoCalibration moved(const StereoCalibration& calibration, const Eigen::VectorXd& p) {
  StereoCalibration result = calibration;
  const Pose pose = poseOf(calibration);
  const double r[3] = {p[0], p[1], p[2]};
  rig::storeMatrix(rotationFrom(r) * pose.R, result.rotation);
  const Eigen::Vector3d t =
      (pose.t + pose.tangents * p.segment<2>(3)).normalized() * baselineOf(calibration);
  for (int i = 0; i < 3; ++i) result.translation[i] = t[i];
  if (p.size() == kAllParameters) {
    const auto addTo = [&](double(&k)[9], double(&distortion)[8], Eigen::Index first) {
      k[0] += p[first], k[4] += p[first + 1], k[2] += p[first + 2], k[5] += p[first + 3];
      for (int i = 0; i < 4; ++i) distortion[i] += p[first + 4 + i];
    };
    addTo(result.leftIntrinsics, result.leftDistortion, kPoseParameters);
    addTo(result.rightIntrinsics, result.rightDistortion, kPoseParameters + kLensParameters);
  }
  recomputeFundamental(result);
  return result;
}

PairFit fitPairs(const StereoCalibration& given, const std::vector<ObservedPair>& pairs,
                 const PairFitOptions& options) {
  return options.parameters == kAllParameters
             ? fitFrom<kAllParameters>(given, pairs, options.believed)
             : fitFrom<kPoseParameters>(given, pairs, options.believed);
}

std::vector<double> sampsonDistances(const StereoCalibration& calibration,
                                     const std::vector<ObservedPair>& pairs) {
  const Pose pose = poseOf(calibration);
  const Eigen::Matrix3d essential = crossMatrix(pose.t) * pose.R;
  std::vector<double> distances;
  for (const ObservedPair& pair : pairs)
    distances.push_back(sampsonDistance(rayOf(pair.left.x, pair.left.y, pose.left),
                                        rayOf(pair.right.x, pair.right.y, pose.right), essential));
  return distances;
}

Eigen::VectorXd sampsonGradient(const StereoCalibration& calibration, const ObservedPair& pair,
                                int parameters) {
  const Pose pose = poseOf(calibration);
  const std::vector<ObservedPair> pairs = {pair};
  const Eigen::VectorXd zero = Eigen::VectorXd::Zero(kAllParameters);
  if (parameters == kAllParameters) {
    const Distances<kAllParameters> distances(pose, pairs);
    return distances.distance(0, distances.withDerivatives(zero.data())).v;
  }
  const Distances<kPoseParameters> distances(pose, pairs);
  return distances.distance(0, distances.withDerivatives(zero.data())).v;
}

}  // namespace calibration
