#include <alg_kit/calibration/CalibrationHealth.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstdio>

namespace calibration {
namespace {

constexpr double kRadians = 3.141592653589793 / 180;
constexpr std::size_t kMostStretches = 10;
constexpr std::size_t kUsualPairs = 150;   // of a stretch: with fewer in all, stretches are longer
constexpr std::size_t kFewestPairs = 100;  // of a stretch
constexpr std::size_t kMostPairs = 3000;   // leave its rotation open by far less than kLeastDrift
constexpr std::size_t kMostInAll = 20000;  // leave less open than the verdict's limits by far
constexpr double kBelieved = 0.5;          // degrees by which a stretch may differ from the given
constexpr double kDriftDeviations = 5;
constexpr double kLeastDrift = 0.02;  // degrees
constexpr double kLeastRamp = 0.1;    // px
constexpr double kSteady = 0.9;       // correlation with time
// Millimetres at two metres, by which a stale calibration puts points elsewhere. Without noise even
// the packets' rounding would be more than the noise.
constexpr double kLeastError = 0.1;

std::string number(double value, const char* format) {
  char text[40];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

/// An even part of many pairs, in runs, so that ids that take turns all have their say.
std::vector<ObservedPair> thinned(const std::vector<ObservedPair>& pairs, std::size_t most) {
  constexpr std::size_t kRun = 7;
  const std::size_t step = pairs.size() / most + 1;
  std::vector<ObservedPair> some;
  for (std::size_t i = 0; i < pairs.size(); ++i)
    if (i / kRun % step == 0) some.push_back(pairs[i]);
  return some;
}

/// A stretch, with its rotation against the given calibration.
struct Stretch {
  std::vector<ObservedPair> pairs;  // thinned
  HealthPoint point;
  Eigen::Vector3d rotation;  // radians
  Eigen::Matrix3d covariance;
};

/// All but what the given and the refined calibration make of them.
std::vector<Stretch> stretchesOf(const std::vector<ObservedPair>& pairs) {
  std::vector<Stretch> stretches;
  if (pairs.empty()) return stretches;
  const double begin = pairs.front().time, length = pairs.back().time - begin;
  if (!(length > 0) || !std::isfinite(length)) return stretches;
  const auto count =
      static_cast<int>(std::clamp<std::size_t>(pairs.size() / kUsualPairs, 1, kMostStretches));
  std::size_t next = 0;
  for (int i = 0; i < count; ++i) {
    const double to = begin + length * (i + 1) / count;
    std::vector<ObservedPair> some;
    for (; next < pairs.size() && (pairs[next].time < to || i == count - 1); ++next)
      some.push_back(pairs[next]);
    if (some.size() < kFewestPairs) continue;
    Stretch& stretch = stretches.emplace_back();
    stretch.pairs = thinned(some, kMostPairs);
    stretch.point.from = begin + length * i / count;
    stretch.point.to = to;
    stretch.point.pairs = some.size();
  }
  return stretches;
}

void judge(Stretch& stretch, const algorithm::StereoCalibration& given) {
  stretch.point.residual = fit(given, stretch.pairs).medianResidual;
  // Turning and shifting look alike in a stretch: what changes is told as a turn, from where the
  // given calibration has the cameras.
  PairFitOptions options;
  options.believed = Eigen::VectorXd::Constant(kPoseParameters, kBelieved * kRadians);
  options.believed.tail<2>().setConstant(1e-6);
  const PairFit own = fitPairs(given, stretch.pairs, options);
  stretch.rotation = own.change.head<3>();
  stretch.covariance = own.covariance.topLeftCorner<3, 3>();
  const double length = stretch.rotation.norm();
  const double variance =
      length > 0 ? stretch.rotation.dot(stretch.covariance * stretch.rotation) / (length * length)
                 : stretch.covariance.trace();
  stretch.point.rotation = length / kRadians;
  stretch.point.rotationDeviation = std::sqrt(std::max(variance, 0.0)) / kRadians;
}

/// Degrees by which the cameras turned from the first stretch to the last one, by a line through
/// all rotations, each with the weight of its certainty; 0 where that is no more than chance.
double driftOf(const std::vector<Stretch>& stretches) {
  if (stretches.size() < 3) return 0;
  const auto weightOf = [](const Stretch& stretch) { return 3 / stretch.covariance.trace(); };
  const auto middleOf = [](const Stretch& s) { return 0.5 * (s.point.from + s.point.to); };
  double weights = 0, time = 0;
  Eigen::Vector3d rotation = Eigen::Vector3d::Zero();
  for (const Stretch& stretch : stretches) {
    const double weight = weightOf(stretch);
    weights += weight;
    time += weight * middleOf(stretch);
    rotation += weight * stretch.rotation;
  }
  time /= weights;
  rotation /= weights;
  double spread = 0;
  Eigen::Vector3d slope = Eigen::Vector3d::Zero();
  for (const Stretch& stretch : stretches) {
    const double late = middleOf(stretch) - time;
    spread += weightOf(stretch) * late * late;
    slope += weightOf(stretch) * late * (stretch.rotation - rotation);
  }
  if (!(spread > 0)) return 0;
  slope /= spread;
  // A rig that moves within a stretch scatters more than noise explains.
  double scatter = 0;
  for (const Stretch& stretch : stretches)
    scatter += weightOf(stretch) *
               (stretch.rotation - rotation - (middleOf(stretch) - time) * slope).squaredNorm();
  const double freedom = 3.0 * (static_cast<double>(stretches.size()) - 2);
  const double deviation = std::sqrt(std::max(scatter / freedom, 1.0) / spread);
  const double degrees =
      slope.norm() * (middleOf(stretches.back()) - middleOf(stretches.front())) / kRadians;
  return slope.norm() > kDriftDeviations * deviation && degrees > kLeastDrift ? degrees : 0;
}

/// Whether the residual with the given calibration rises or falls steadily: pairs that agree ever
/// less. A turn about the baseline's own normal does not show in it, but in the rotations.
bool residualsRamp(const std::vector<Stretch>& stretches) {
  const auto count = static_cast<Eigen::Index>(stretches.size());
  if (count < 5) return false;
  Eigen::VectorXd times(count), residuals(count);
  for (Eigen::Index i = 0; i < count; ++i) {
    const HealthPoint& point = stretches[static_cast<std::size_t>(i)].point;
    times[i] = point.from;
    residuals[i] = point.residual;
  }
  const double range = residuals.maxCoeff() - residuals.minCoeff();
  times.array() -= times.mean();
  residuals.array() -= residuals.mean();
  return range > kLeastRamp && std::abs(times.normalized().dot(residuals.normalized())) > kSteady;
}

}  // namespace

const char* nameOf(HealthVerdict verdict) {
  switch (verdict) {
    case HealthVerdict::kGood:
      return "good";
    case HealthVerdict::kStale:
      return "stale";
    case HealthVerdict::kDrifts:
      return "drifts";
    case HealthVerdict::kUnknown:
      break;
  }
  return "unknown";
}

void runInOrder(std::size_t count, const std::function<void(std::size_t)>& job) {
  for (std::size_t i = 0; i < count; ++i) job(i);
}

CalibrationHealth healthOf(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                           const RunAll& runAll) {
  CalibrationHealth health;
  algorithm::StereoCalibration given = loaded.calibration;
  recomputeFundamental(given);
  std::vector<Stretch> stretches = stretchesOf(pairs);
  // The whole, which takes longest, first.
  runAll(1 + stretches.size(), [&](std::size_t i) {
    if (i == 0)
      health.refinement = refine(loaded, thinned(pairs, kMostInAll));
    else
      judge(stretches[i - 1], given);
  });
  const Refinement& r = health.refinement;
  const bool refused = !r.refusal.empty();
  health.unseen.push_back("the length of the baseline, which scales every position alike");
  for (const std::string& text : r.undetermined) health.unseen.push_back(text);
  // Cameras that move far fit no one calibration: their stretches still tell that they moved, and
  // too roughly how far.
  runAll(stretches.size(), [&](std::size_t i) {
    Stretch& stretch = stretches[i];
    stretch.point.residualRefined =
        fit(refused ? given : r.calibration, stretch.pairs).medianResidual;
  });
  for (const Stretch& stretch : stretches) health.trend.push_back(stretch.point);

  const auto residuals = [&] {
    return "refining would bring the residual from " + number(r.before.medianResidual, "%.2g") +
           " to " + number(r.after.medianResidual, "%.2g") + " px";
  };
  const ExpectedError* atTwo = nullptr;
  for (const ExpectedError& e : r.expected)
    if (atTwo == nullptr || e.depth <= 2000) atTwo = &e;
  const double drift = driftOf(stretches);
  if (drift > 0 && !refused) {
    health.verdict = HealthVerdict::kDrifts;
    health.text = "the cameras moved against each other by about " + number(drift, "%.1g") +
                  " degrees while the recording went on: find what is loose, then calibrate";
  } else if (drift > 0 || residualsRamp(stretches)) {
    health.verdict = HealthVerdict::kDrifts;
    health.text =
        "the cameras moved against each other while the recording went on: the residual "
        "goes from " +
        number(health.trend.front().residual, "%.2g") + " to " +
        number(health.trend.back().residual, "%.2g") + " px; find what is loose, then calibrate";
  } else if (refused) {
    health.text = "the recording does not tell whether the calibration still holds: " + r.refusal;
  } else if (r.changed && atTwo != nullptr &&
             atTwo->before > std::max(atTwo->fromNoise, kLeastError)) {
    health.verdict = HealthVerdict::kStale;
    const double angle = std::max(r.rotation, r.direction);
    health.text =
        "this calibration is stale: about " + number(angle, "%.1f") + " degrees; " + residuals();
  } else {
    health.verdict = HealthVerdict::kGood;
    health.text = r.changed ? "the calibration holds: what is off moves points by less than the "
                              "blobs' noise does, or by less than 0.1 mm at 2 m"
                            : "the calibration holds: it agrees within the uncertainty";
  }
  return health;
}

}  // namespace calibration
