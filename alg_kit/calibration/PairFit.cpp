#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/PairFit.h>
#include <alg_kit/calibration/SampsonDistance.h>
#include <alg_kit/rig/StereoRig.h>
#include <ceres/jet.h>
#include <ceres/tiny_solver.h>

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <utility>

namespace calibration {
namespace {

using algorithm::StereoCalibration;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kTukey = 4.685;       // 95 % as good as least squares on clean data
constexpr double kCauchy = 2.385;      // likewise
constexpr double kFewestNoise = 1e-6;  // px; what is called no noise at all
constexpr double kSteadyNoise = 1e-4;  // of itself; it changes no weight that matters
constexpr double kLargestLeverage = 0.1;
/// In squared standard deviations: the last step of a solution is one of less than a ten-thousandth
/// of what the pairs leave open.
constexpr double kLeastGain = 1e-8;
constexpr int kLensParameters = 8;
constexpr std::size_t kCoarsePairs = 2000;  // enough to come near
constexpr double kNear = 1e-7;              // radians
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

/// A number with its derivatives by the parameters of the pose, or by those of one lens.
using Jet = ceres::Jet<double, kLensParameters>;

/// The Sampson distances of pairs as a function of 5 or 21 parameters. Those of the pose act
/// through the nine elements of the essential matrix, those of a lens through its camera's ray.
class Distances {
 public:
  Distances(const Pose& pose, const std::vector<ObservedPair>& pairs, Eigen::Index parameters)
      : pose_(pose), pairs_(pairs), parameters_(parameters) {
    if (lensesMove()) return;
    for (const ObservedPair& pair : pairs) {
      left_.push_back(rayOf(pair.left.x, pair.left.y, pose.left));
      right_.push_back(rayOf(pair.right.x, pair.right.y, pose.right));
    }
  }

  std::size_t size() const { return pairs_.size(); }
  Eigen::Index parameters() const { return parameters_; }

  /// The geometry at one set of parameters.
  struct At {
    Eigen::Matrix3d essential;
    Eigen::Matrix<double, kPoseParameters, 9> perPose;  ///< of the essential matrix, by columns
    double left[kLensParameters], right[kLensParameters];
  };

  /// Without derivatives.
  At at(const double* p) const {
    At at;
    at.essential = essentialAt(p);
    for (int i = 0; i < kLensParameters; ++i) {
      at.left[i] = pose_.left[i];
      at.right[i] = pose_.right[i];
      if (!lensesMove()) continue;
      at.left[i] += p[kPoseParameters + i];
      at.right[i] += p[kPoseParameters + kLensParameters + i];
    }
    return at;
  }

  At withDerivatives(const double* p) const {
    Jet jets[kPoseParameters];
    for (int i = 0; i < kPoseParameters; ++i) jets[i] = Jet(p[i], i);
    const auto essential = essentialAt(jets);
    At result = at(p);
    for (Eigen::Index i = 0; i < 9; ++i)
      result.perPose.col(i) = essential(i).v.head<kPoseParameters>();
    return result;
  }

  double distance(std::size_t i, const At& at) const {
    if (!lensesMove()) return sampsonDistance(left_[i], right_[i], at.essential);
    const ObservedPair& pair = pairs_[i];
    return sampsonDistance(rayOf(pair.left.x, pair.left.y, at.left),
                           rayOf(pair.right.x, pair.right.y, at.right), at.essential);
  }

  /// @param slope  as many as parameters: how the distance changes with them
  double distance(std::size_t i, const At& at, Eigen::Ref<VectorXd> slope) const {
    Eigen::Matrix3d perEssential;
    double result;
    if (!lensesMove()) {
      result = sampsonDistance(left_[i], right_[i], at.essential, &perEssential);
    } else {
      const ObservedPair& pair = pairs_[i];
      const Ray<Jet> left = rayOf(pair.left.x, pair.left.y, moving(at.left).data());
      const Ray<Jet> right = rayOf(pair.right.x, pair.right.y, moving(at.right).data());
      PerRays perRays;
      result = sampsonDistance(still(left), still(right), at.essential, &perEssential, &perRays);
      slope.tail<2 * kLensParameters>() << perLens(perRays.left, left),
          perLens(perRays.right, right);
    }
    slope.head<kPoseParameters>().noalias() =
        at.perPose * Eigen::Map<const Eigen::Matrix<double, 9, 1>>(perEssential.data());
    return result;
  }

 private:
  bool lensesMove() const { return parameters_ == kAllParameters; }

  template <typename T>
  Eigen::Matrix<T, 3, 3> essentialAt(const T* p) const {
    const Eigen::Matrix<T, 3, 1> t = pose_.t.template cast<T>() +
                                     pose_.tangents.col(0).template cast<T>() * p[3] +
                                     pose_.tangents.col(1).template cast<T>() * p[4];
    return crossMatrix(t) * (rotationFrom(p) * pose_.R.template cast<T>());
  }

  static std::array<Jet, kLensParameters> moving(const double (&lens)[kLensParameters]) {
    std::array<Jet, kLensParameters> jets;
    for (std::size_t i = 0; i < jets.size(); ++i) jets[i] = Jet(lens[i], static_cast<int>(i));
    return jets;
  }

  static Ray<double> still(const Ray<Jet>& ray) {
    Ray<double> result;
    for (Eigen::Index i = 0; i < 3; ++i) result.direction[i] = ray.direction[i].a;
    for (Eigen::Index i = 0; i < 6; ++i) result.perPixel(i) = ray.perPixel(i).a;
    return result;
  }

  static Eigen::Matrix<double, kLensParameters, 1> perLens(const Ray<double>& slopes,
                                                           const Ray<Jet>& ray) {
    Eigen::Matrix<double, kLensParameters, 1> sum =
        Eigen::Matrix<double, kLensParameters, 1>::Zero();
    for (Eigen::Index i = 0; i < 3; ++i) sum += slopes.direction[i] * ray.direction[i].v;
    for (Eigen::Index i = 0; i < 6; ++i) sum += slopes.perPixel(i) * ray.perPixel(i).v;
    return sum;
  }

  const Pose& pose_;
  const std::vector<ObservedPair>& pairs_;
  const Eigen::Index parameters_;
  std::vector<Ray<double>> left_, right_;
};

/// What TinySolver minimises: the distances times their weights, and the beliefs.
struct Weighted {
  using Scalar = double;
  enum { NUM_RESIDUALS = Eigen::Dynamic, NUM_PARAMETERS = Eigen::Dynamic };

  int NumParameters() const { return static_cast<int>(distances.parameters()); }
  int NumResiduals() const { return static_cast<int>(distances.size()) + NumParameters(); }

  bool operator()(const double* p, double* residuals, double* jacobian) const {
    const auto count = static_cast<Eigen::Index>(distances.size());
    const Eigen::Index n = distances.parameters(), rows = count + n;
    Eigen::Map<VectorXd> r(residuals, rows);
    if (jacobian != nullptr) {
      const Distances::At at = distances.withDerivatives(p);
      Eigen::Map<Eigen::MatrixXd> J(jacobian, rows, n);
      VectorXd slope(n);
      for (Eigen::Index i = 0; i < count; ++i) {
        r[i] = weights[i] * distances.distance(static_cast<std::size_t>(i), at, slope);
        J.row(i) = weights[i] * slope.transpose();
      }
      J.bottomRows(n) = beliefs.asDiagonal();
    } else {
      const Distances::At at = distances.at(p);
      for (Eigen::Index i = 0; i < count; ++i)
        r[i] = weights[i] * distances.distance(static_cast<std::size_t>(i), at);
    }
    for (Eigen::Index k = 0; k < n; ++k) r[count + k] = beliefs[k] * p[k];
    return true;
  }

  const Distances& distances;
  const VectorXd& weights;  // square roots
  const VectorXd& beliefs;  // 1 / standard deviation, or 0
};

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

class Fitter {
 public:
  /// @param parameters  kPoseParameters or kAllParameters
  Fitter(const Pose& pose, Eigen::Index parameters, const VectorXd& believed)
      : pose_(pose), parameters_(parameters), beliefs_(VectorXd::Zero(parameters)) {
    for (Eigen::Index i = 0; i < believed.size(); ++i)
      if (believed[i] > 0) beliefs_[i] = 1 / believed[i];
  }

  /// Comes near in spite of a far start and many wrong partners: of many fits to a few pairs, the
  /// one with the least median distance (Rousseeuw 1984). The draws are always the same.
  void guess(const std::vector<ObservedPair>& pairs, VectorXd& p) const {
    std::mt19937_64 engine(1);
    const auto draw = [&](std::size_t count) {
      std::vector<ObservedPair> drawn;
      for (std::size_t i = 0; i < count; ++i) drawn.push_back(pairs[engine() % pairs.size()]);
      return drawn;
    };
    const std::vector<ObservedPair> judges = draw(kJudgesOfAGuess);
    const Distances judging = distancesOf(judges);
    const VectorXd even = VectorXd::Ones(kPairsOfAGuess);
    double least = median(absolute(judging, p));
    const VectorXd start = p;
    for (int i = 0; i < kGuesses; ++i) {
      const std::vector<ObservedPair> few = draw(kPairsOfAGuess);
      VectorXd candidate = start;
      solve(distancesOf(few), even, 15, candidate);
      const double distance = median(absolute(judging, candidate));
      if (!(distance < least)) continue;
      least = distance;
      p = candidate;
    }
  }

  /// Comes nearer, from a start that explains half of the pairs roughly.
  void approach(const std::vector<ObservedPair>& pairs, VectorXd& p) const {
    const Distances distances = distancesOf(pairs);
    double scale = std::numeric_limits<double>::infinity();
    for (int round = 0; round < 60; ++round) {
      const std::vector<double> sizes = absolute(distances, p);
      const double noise = std::max(1.4826 * median(sizes), kFewestNoise);
      const double narrow = kCauchy * noise;
      const double next = round == 0 ? 2 * narrow : std::max(scale / 1.5, narrow);
      const bool last = next >= scale * 0.999;
      scale = std::min(next, scale);
      VectorXd weights(static_cast<Eigen::Index>(sizes.size()));
      for (std::size_t i = 0; i < sizes.size(); ++i)
        weights[static_cast<Eigen::Index>(i)] =
            1 / (noise * std::sqrt(1 + sizes[i] * sizes[i] / (scale * scale)));
      const VectorXd before = p;
      solve(distances, weights, 4, p);
      if (last && (p - before).norm() < kNear) break;
    }
  }

  /// Whether the distances are smaller at `p` than at `other`; those of wrong partners do not
  /// count.
  bool explainsBetter(const std::vector<ObservedPair>& pairs, const VectorXd& p,
                      const VectorXd& other) const {
    const Distances distances = distancesOf(pairs);
    const std::vector<double> ours = absolute(distances, p), theirs = absolute(distances, other);
    const double most = kTukey * std::min(noiseOf(ours, 0), noiseOf(theirs, 0));
    const auto sum = [most](const std::vector<double>& sizes) {
      double squares = 0;
      for (const double size : sizes) squares += std::min(size * size, most * most);
      return squares;
    };
    return sum(ours) < sum(theirs);
  }

  /// The robust fit from near by.
  /// @param pairs  those that were set aside are taken out
  PairFit settle(std::vector<ObservedPair>& pairs, VectorXd p) const {
    PairFit fit;
    const std::size_t given = pairs.size();
    for (int attempt = 0; attempt < 10; ++attempt) {
      const Distances distances = distancesOf(pairs);
      double noise = 0;
      bool noiseIsKnown = false;
      VectorXd weights(static_cast<Eigen::Index>(pairs.size()));
      for (int round = 0; round < 30; ++round) {
        const std::vector<double> sizes = absolute(distances, p);
        // The noise settles first; then the weights belong to one function, which falls.
        if (!noiseIsKnown) {
          const double before = std::exchange(noise, noiseOf(sizes, noise));
          noiseIsKnown = round == 4 || std::abs(noise - before) < kSteadyNoise * noise;
        }
        for (std::size_t i = 0; i < sizes.size(); ++i) {
          const double u = sizes[i] / (kTukey * noise);
          weights[static_cast<Eigen::Index>(i)] = u < 1 ? (1 - u * u) / noise : 0;
        }
        const VectorXd before = p;
        solve(distances, weights, 3, p);
        fit.converged = (p - before).norm() < 1e-8 * (1 + p.norm());
        if (noiseIsKnown && fit.converged) break;
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
    judge(distancesOf(pairs), VectorXd::Zero(parameters_), fit);
  }

 private:
  Distances distancesOf(const std::vector<ObservedPair>& pairs) const {
    return {pose_, pairs, parameters_};
  }

  std::vector<double> absolute(const Distances& distances, const VectorXd& p) const {
    const auto at = distances.at(p.data());
    std::vector<double> sizes(distances.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) sizes[i] = std::abs(distances.distance(i, at));
    return sizes;
  }

  /// From the median, first of all, then of those that are no outliers by the figure before.
  double noiseOf(std::vector<double> sizes, double before) const {
    if (before > 0)
      sizes.erase(std::remove_if(sizes.begin(), sizes.end(),
                                 [&](double size) { return size > kTukey * before; }),
                  sizes.end());
    const auto count = static_cast<double>(sizes.size());
    const double freedom = std::max(count - static_cast<double>(parameters_), 1.0);
    return std::max(1.4826 * median(sizes) * std::sqrt(count / freedom), kFewestNoise);
  }

  void solve(const Distances& distances, const VectorXd& weights, int steps, VectorXd& p) const {
    const Weighted function{distances, weights, beliefs_};
    ceres::TinySolver<Weighted> solver;
    solver.options.max_num_iterations = steps;
    solver.options.gradient_tolerance = solver.options.parameter_tolerance = 1e-14;
    solver.options.function_tolerance = kLeastGain;
    VectorXd result = p;
    solver.Solve(function, &result);
    if (result.allFinite()) p = result;
  }

  /// Fills covariance and counts; returns the pairs on which a direction hangs alone.
  std::vector<std::size_t> judge(const Distances& distances, const VectorXd& p,
                                 PairFit& fit) const {
    const Distances::At at = distances.withDerivatives(p.data());
    const auto count = static_cast<Eigen::Index>(distances.size());
    const Eigen::Index n = parameters_;
    MatrixXd rows(n, count);
    VectorXd bends = VectorXd::Zero(count), pulls2 = VectorXd::Zero(count);
    fit.used = fit.outliers = 0;
    for (Eigen::Index i = 0; i < count; ++i) {
      const double distance = distances.distance(static_cast<std::size_t>(i), at, rows.col(i));
      const double u = distance / (kTukey * fit.noise), rest = 1 - u * u;
      if (!(std::abs(u) < 1)) {
        ++fit.outliers;
        rows.col(i).setZero();
        continue;
      }
      ++fit.used;
      bends[i] = rest * (1 - 5 * u * u);
      const double psi = distance * rest * rest;
      pulls2[i] = psi * psi;
    }
    MatrixXd curvature = rows * bends.asDiagonal() * rows.transpose();
    MatrixXd scatter = rows * pulls2.asDiagonal() * rows.transpose();
    const double variance = fit.noise * fit.noise;
    const VectorXd belief = beliefs_.array().square();
    curvature /= variance;
    curvature.diagonal() += belief;
    scatter /= variance * variance;
    scatter.diagonal() += belief;
    // Parameters of different units are brought to one size before they are inverted.
    VectorXd size = curvature.diagonal().cwiseAbs().cwiseSqrt();
    for (Eigen::Index i = 0; i < n; ++i)
      if (!(size[i] > 0)) size[i] = 1;
    const VectorXd unit = size.cwiseInverse();
    const MatrixXd scaled = unit.asDiagonal() * curvature * unit.asDiagonal();
    const Eigen::SelfAdjointEigenSolver<MatrixXd> eigen(scaled);
    const VectorXd values = eigen.eigenvalues().cwiseMax(1e-14);
    const MatrixXd vectors = unit.asDiagonal() * eigen.eigenvectors();
    const MatrixXd inverse = vectors * values.cwiseInverse().asDiagonal() * vectors.transpose();
    // Where nothing scatters because nothing is seen, the curvature alone says how little is known.
    const bool unseen = eigen.eigenvalues().minCoeff() < 1e-14;
    fit.covariance = unseen ? inverse : MatrixXd(inverse * scatter * inverse);

    const VectorXd leverages = rows.cwiseProduct(inverse * rows).colwise().sum() / variance;
    std::vector<std::size_t> alone;
    for (Eigen::Index i = 0; i < count; ++i)
      if (bends[i] > 0 && leverages[i] > kLargestLeverage)
        alone.push_back(static_cast<std::size_t>(i));
    return alone;
  }

  const Pose& pose_;
  const Eigen::Index parameters_;
  VectorXd beliefs_;
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

PairFit fitFrom(const StereoCalibration& given, const std::vector<ObservedPair>& pairs,
                Eigen::Index parameters, const VectorXd& believed) {
  const Pose pose = poseOf(given);
  std::vector<ObservedPair> usable = withinTheLens(pose, pairs);
  PairFit fit;
  fit.change = VectorXd::Zero(parameters);
  fit.covariance = MatrixXd::Identity(parameters, parameters) * 1e6;
  if (usable.size() < static_cast<std::size_t>(2 * parameters)) return fit;
  // The lenses move only once the pose is near.
  VectorXd poseStart = VectorXd::Zero(kPoseParameters);
  const VectorXd poseBelief =
      believed.size() > 0 ? VectorXd(believed.head(kPoseParameters)) : VectorXd();
  const Fitter poseFitter(pose, kPoseParameters, poseBelief);
  const std::vector<ObservedPair> some = thinned(usable, kCoarsePairs);
  poseFitter.approach(some, poseStart);
  // Where the pose is believed, the start is near.
  if (poseBelief.size() == 0 || !(poseBelief.minCoeff() > 0)) {
    VectorXd guessed = VectorXd::Zero(kPoseParameters);
    poseFitter.guess(some, guessed);
    poseFitter.approach(some, guessed);
    // Where markers stay near one another, another pose of the cameras explains them nearly as
    // well, and a few noisy pairs lead there as easily. Then the given one's neighbourhood decides.
    if (!poseFitter.explainsBetter(some, poseStart, guessed)) poseStart = guessed;
  }
  VectorXd start = VectorXd::Zero(parameters);
  start.head(kPoseParameters) = poseStart;
  fit = Fitter(pose, parameters, believed).settle(usable, start);
  // As small differences from the result. Those from a calibration that is degrees away are others,
  // and where parameters look nearly alike, a few percent of difference are many deviations.
  const Pose result = poseOf(moved(given, fit.change));
  Fitter(result, parameters, believed).judgeResult(usable, fit);
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

StereoCalibration moved(const StereoCalibration& calibration, const VectorXd& p) {
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
  return fitFrom(given, pairs,
                 options.parameters == kAllParameters ? kAllParameters : kPoseParameters,
                 options.believed);
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

VectorXd sampsonGradient(const StereoCalibration& calibration, const ObservedPair& pair,
                         int parameters) {
  const Pose pose = poseOf(calibration);
  const std::vector<ObservedPair> pairs = {pair};
  const VectorXd zero = VectorXd::Zero(parameters);
  const Distances distances(pose, pairs, parameters);
  VectorXd gradient(parameters);
  distances.distance(0, distances.withDerivatives(zero.data()), gradient);
  return gradient;
}

}  // namespace calibration
