#include <alg_kit/calibration/RawTriangulation.h>
#include <alg_kit/calibration/Refinement.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace calibration {
namespace {

using algorithm::ImagePoint;
using algorithm::StereoCalibration;

constexpr double kDegrees = 180 / 3.141592653589793;
constexpr std::size_t kFewestPairs = 50;
// More say no more that matters, and take longer.
constexpr std::size_t kMostPairs = 60000;
constexpr std::size_t kMostPairsForLenses = 8000;
constexpr std::size_t kHeldBack = 5;  // one of so many
constexpr double kDepths[] = {1000, 2000, 3000};
constexpr double kJudgedDepth = 2000;
constexpr double kLeastCommon = 0.5;  // share of the pairs that the result must explain
constexpr double kLeastInFront = 0.8;
constexpr double kLargestResidual = 1;  // px, median
// 99 % of chi squared with 5 and 21 degrees of freedom.
constexpr double kPoseLimit = 15.09, kAllLimit = 38.93;

const char* const kPoseNames[kPoseParameters] = {
    "rotation about x (one camera looks higher than the other)",
    "rotation about y (toe-in of the cameras)",
    "rotation about z (one camera rolls against the other)",
    "direction of translation, up or down (one camera stands higher)",
    "direction of translation, forward or back (one camera stands in front)"};
const char* const kLensNames[8] = {
    "focal length x", "focal length y", "centre x", "centre y", "k1", "k2", "k3", "k4"};

std::string number(double value, const char* format) {
  char text[40];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

rig::StereoRig rigOf(const LoadedCalibration& loaded, const StereoCalibration& calibration) {
  rig::StereoRig rig;
  rig.calibration = calibration;
  const bool sized = loaded.width > 0 && loaded.height > 0;
  rig.width = sized ? loaded.width : static_cast<int>(2 * calibration.rightIntrinsics[2]);
  rig.height = sized ? loaded.height : static_cast<int>(2 * calibration.rightIntrinsics[5]);
  return rig;
}

/// A place that both cameras see, and its pixels.
struct Place {
  Eigen::Vector3d p_R;
  ImagePoint left, right;
};

/// Places on a 5 x 5 grid of the right image at one depth.
std::vector<Place> commonView(const rig::StereoRig& rig, double depth) {
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  const auto& k = rig.calibration.rightIntrinsics;
  std::vector<Place> places;
  for (int row = 0; row < 5; ++row)
    for (int column = 0; column < 5; ++column) {
      // Straight through the pinhole: where the point lands does not matter, only that it spreads.
      const double u = rig.width * (0.1 + 0.2 * column), v = rig.height * (0.1 + 0.2 * row);
      const Eigen::Vector3d p_R(depth * (u - k[2]) / k[0], depth * (v - k[5]) / k[4], depth);
      const auto l = left.project(rig::rightToLeft(rig.calibration, p_R));
      const auto r = right.project(p_R);
      if (l && r) places.push_back({p_R, {l->x(), l->y()}, {r->x(), r->y()}});
    }
  return places;
}

/// dP / d parameters, by central differences of the same pixels.
Eigen::MatrixXd positionPerParameter(const StereoCalibration& calibration, const Place& place,
                                     const Eigen::VectorXd& steps) {
  Eigen::MatrixXd result(3, steps.size());
  for (Eigen::Index k = 0; k < steps.size(); ++k) {
    const auto at = [&](double sign) {
      Eigen::VectorXd change = Eigen::VectorXd::Zero(steps.size());
      change[k] = sign * steps[k];
      return RawTriangulation(moved(calibration, change))(place.left, place.right).position;
    };
    result.col(k) = (at(1) - at(-1)) / (2 * steps[k]);
  }
  return result;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Eigen::VectorXd stepsFor(Eigen::Index parameters, double focal) {
  Eigen::VectorXd steps = Eigen::VectorXd::Constant(parameters, 1e-6);
  for (Eigen::Index first = kPoseParameters; first < parameters; first += 8)
    steps.segment<4>(first).setConstant(1e-6 * focal);
  return steps;
}

std::vector<ExpectedError> expectedErrors(const rig::StereoRig& refined,
                                          const StereoCalibration& given,
                                          const Eigen::MatrixXd& covariance, double noise) {
  const RawTriangulation triangulation(refined.calibration), givenTriangulation(given);
  const Eigen::VectorXd steps = stepsFor(covariance.rows(), refined.calibration.rightIntrinsics[0]);
  std::vector<ExpectedError> errors;
  for (const double depth : kDepths) {
    std::vector<double> fromNoise, fromCalibration, before;
    for (const Place& place : commonView(refined, depth)) {
      const auto perPixel = positionPerPixel(triangulation, place.left, place.right);
      const Eigen::MatrixXd perParameter = positionPerParameter(refined.calibration, place, steps);
      fromNoise.push_back(noise * perPixel.norm());
      fromCalibration.push_back(
          std::sqrt((perParameter * covariance * perParameter.transpose()).trace()));
      before.push_back((givenTriangulation(place.left, place.right).position -
                        triangulation(place.left, place.right).position)
                           .norm());
    }
    if (!before.empty())
      errors.push_back({depth, median(fromNoise), median(fromCalibration), median(before)});
  }
  return errors;
}

Eigen::VectorXd beliefs(const rig::StereoRig& rig) {
  Eigen::VectorXd believed = Eigen::VectorXd::Zero(kAllParameters);
  Eigen::Index first = kPoseParameters;
  for (const auto* const k : {&rig.calibration.leftIntrinsics, &rig.calibration.rightIntrinsics}) {
    believed[first] = 0.005 * (*k)[0];
    believed[first + 1] = 0.005 * (*k)[4];
    believed.segment<2>(first + 2).setConstant(0.01 * rig.width);
    believed.segment<4>(first + 4).setConstant(0.005);
    first += 8;
  }
  return believed;
}

std::vector<FittedParameter> parametersOf(const Eigen::VectorXd& change,
                                          const Eigen::MatrixXd& covariance,
                                          const Eigen::VectorXd& believed) {
  std::vector<FittedParameter> parameters;
  for (Eigen::Index i = 0; i < change.size(); ++i) {
    FittedParameter p;
    const bool pose = i < kPoseParameters;
    const double scale = pose ? kDegrees : 1;
    const Eigen::Index lens = (i - kPoseParameters) % 8;
    p.name = pose ? kPoseNames[i]
                  : std::string(i < kPoseParameters + 8 ? "left " : "right ") + kLensNames[lens];
    p.unit = pose ? "degrees" : lens < 4 ? "px" : "";
    p.change = change[i] * scale;
    p.deviation = std::sqrt(std::max(covariance(i, i), 0.0)) * scale;
    p.believed = believed.size() > 0 ? believed[i] : 0;
    parameters.push_back(std::move(p));
  }
  return parameters;
}

/// The length of a change and its standard deviation along itself; where there is no change, in the
/// least certain direction.
std::pair<double, double> lengthOf(const Eigen::VectorXd& change,
                                   const Eigen::MatrixXd& covariance) {
  const double length = change.norm();
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(covariance);
  const double largest = eigen.eigenvalues().maxCoeff();
  const double along = length > 0 ? change.dot(covariance * change) / (length * length) : largest;
  return {length * kDegrees, std::sqrt(std::max(along, 0.0)) * kDegrees};
}

std::string placeInImage(const Place& place, const rig::StereoRig& rig) {
  const auto third = [](double at, int size) {
    return std::clamp(static_cast<int>(3 * at / size), 0, 2);
  };
  const char* const rows[] = {"top", "middle", "bottom"};
  const char* const columns[] = {"left", "middle", "right"};
  const int row = third(place.right.y, rig.height), column = third(place.right.x, rig.width);
  if (row == 1 && column == 1) return "the middle";
  if (row == 1) return std::string("the ") + columns[column] + " edge";
  if (column == 1) return std::string("the ") + rows[row] + " edge";
  return std::string("the ") + rows[row] + " " + columns[column] + " corner";
}

/// What the data leave open, in words, and where markers would help most.
void nameTheOpen(const rig::StereoRig& rig, const Eigen::MatrixXd& covariance, double noise,
                 const std::vector<ObservedPair>& pairs, Refinement& result) {
  const Eigen::MatrixXd pose = covariance.topLeftCorner(kPoseParameters, kPoseParameters);
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(pose);
  const Eigen::VectorXd steps = Eigen::VectorXd::Constant(kPoseParameters, 1e-6);
  const RawTriangulation triangulation(rig.calibration);
  const std::vector<Place> places = commonView(rig, kJudgedDepth);
  bool open = false;
  for (Eigen::Index k = kPoseParameters; k-- > 0;) {
    const Eigen::VectorXd v = eigen.eigenvectors().col(k);
    const double deviation = std::sqrt(std::max(eigen.eigenvalues()[k], 0.0));
    std::vector<double> shares;
    for (const Place& place : places) {
      const Eigen::VectorXd shift = positionPerParameter(rig.calibration, place, steps) * v;
      shares.push_back(deviation * shift.norm() /
                       (noise * positionPerPixel(triangulation, place.left, place.right).norm()));
    }
    const double share = places.empty() ? deviation * kDegrees / 0.1 : median(shares);
    if (!(share > 0.5)) continue;
    std::vector<int> order = {0, 1, 2, 3, 4};
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return std::abs(v[a]) > std::abs(v[b]); });
    std::string text = kPoseNames[order[0]];
    for (std::size_t i = 1; i < order.size(); ++i)
      if (std::abs(v[order[i]]) > 0.5 * std::abs(v[order[0]]))
        text += std::string(" together with ") + kPoseNames[order[i]];
    result.undetermined.push_back(text + ", within " + number(deviation * kDegrees, "%.2g") +
                                  " degrees");
    if (open) continue;
    open = true;
    // The place where one more pair would say most about the least certain direction.
    double most = 0;
    std::string best;
    for (const double depth : {500.0, 1000.0, 2000.0, 3000.0})
      for (const Place& place : commonView(rig, depth)) {
        const ObservedPair pair{place.left, place.right, 0, 0};
        const double says =
            std::abs(sampsonGradient(rig.calibration, pair, kPoseParameters).dot(v));
        if (!(says > most)) continue;
        most = says;
        best = placeInImage(place, rig) + " of the right image about " +
               number(depth / 1000, "%.1f") + " m away";
      }
    if (!best.empty()) result.advice.push_back("Markers help most at " + best + ".");
  }
  if (!open) return;
  int cells[9] = {};
  std::vector<double> depths;
  for (const ObservedPair& pair : pairs) {
    const auto cell = [](double at, int size) {
      return std::clamp(static_cast<int>(3 * at / size), 0, 2);
    };
    ++cells[3 * cell(pair.right.y, rig.height) + cell(pair.right.x, rig.width)];
    const double depth = triangulation(pair.left, pair.right).position.z();
    if (depth > 0) depths.push_back(depth);
  }
  const auto empty = std::count_if(std::begin(cells), std::end(cells), [&](int count) {
    return count < static_cast<int>(pairs.size()) / 100 + 1;
  });
  if (empty > 0)
    result.advice.push_back("Of nine fields of the right image " + std::to_string(empty) +
                            " saw no or nearly no marker: move it through the whole image.");
  std::sort(depths.begin(), depths.end());
  if (!depths.empty()) {
    const auto at = [&](double share) {
      return depths[static_cast<std::size_t>(share * static_cast<double>(depths.size() - 1))];
    };
    if (at(0.95) < 2 * at(0.05))
      result.advice.push_back("The markers were " + number(at(0.05) / 1000, "%.2f") + " to " +
                              number(at(0.95) / 1000, "%.2f") +
                              " m away: show them from near to far, at least 1 to 3.");
  }
}

}  // namespace

double ExpectedError::after() const {
  return std::hypot(fromNoise, fromCalibration);
}

Refinement refine(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                  const RefineOptions& options) {
  Refinement result;
  StereoCalibration given = loaded.calibration;
  recomputeFundamental(given);
  result.calibration = loaded.calibration;
  result.pairs = pairs.size();
  if (pairs.size() < kFewestPairs) {
    result.refusal = "expected at least " + std::to_string(kFewestPairs) +
                     " frames in which both cameras saw one blob of an id, found " +
                     std::to_string(pairs.size());
    return result;
  }
  std::vector<ObservedPair> fitted, held;
  const std::size_t most = options.intrinsics ? kMostPairsForLenses : kMostPairs;
  const std::size_t step = pairs.size() / most + 1;
  // Runs of whole rounds, so that no id is left out where several take turns.
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    if (i / 7 % kHeldBack == kHeldBack - 1)
      held.push_back(pairs[i]);
    else if (i / 7 % step == 0)
      fitted.push_back(pairs[i]);
  }
  result.heldBack = held.size();

  PairFit fit = fitPairs(given, fitted);
  rig::StereoRig refined = rigOf(loaded, moved(given, fit.change));
  const auto settle = [&](const PairFit& from) {
    result.used = from.used;
    result.outliers = from.outliers;
    result.noise = from.noise;
    result.covariance = from.covariance;
    result.before = calibration::fit(given, held);
    result.after = calibration::fit(refined.calibration, held);
  };
  settle(fit);
  const auto unexplained = [&] {
    return "no pair of such cameras explains what was seen (median residual " +
           number(result.after.medianResidual, "%.3g") + " px, " +
           number(100 * result.after.inFront, "%.0f") +
           " % of the pairs in front of the cameras, " + std::to_string(fit.outliers) + " of " +
           std::to_string(fitted.size()) + " pairs fit nothing)";
  };
  if (!fit.change.allFinite() || !fit.covariance.allFinite() ||
      static_cast<double>(fit.used) < kLeastCommon * static_cast<double>(fitted.size()) ||
      result.after.medianResidual > kLargestResidual) {
    result.refusal = unexplained();
    return result;
  }

  const auto chiSquared = [](const Eigen::VectorXd& change, const Eigen::MatrixXd& covariance) {
    const Eigen::VectorXd size = covariance.diagonal().cwiseSqrt();
    const Eigen::MatrixXd scaled =
        size.cwiseInverse().asDiagonal() * covariance * size.cwiseInverse().asDiagonal();
    const Eigen::VectorXd d = size.cwiseInverse().asDiagonal() * change;
    return d.dot(scaled.ldlt().solve(d));
  };
  const auto judged = [&](const std::vector<ExpectedError>& errors) {
    for (const ExpectedError& e : errors)
      if (e.depth == kJudgedDepth) return e;
    return errors.empty() ? ExpectedError{} : errors.back();
  };
  result.expected = expectedErrors(refined, given, fit.covariance, fit.noise);
  nameTheOpen(refined, fit.covariance, fit.noise, fitted, result);
  const ExpectedError error = judged(result.expected);
  bool significant = chiSquared(fit.change, fit.covariance) > kPoseLimit;
  // What was put right counts only as far as it is more than chance.
  const double putRight = significant ? error.before / 4 : 0;
  if (result.expected.empty() ||
      (error.fromCalibration > error.fromNoise && error.fromCalibration > putRight)) {
    result.refusal = "the data do not determine how the cameras stand to each other";
    if (!result.expected.empty())
      result.refusal += ": points at 2 m would be uncertain by " +
                        number(error.fromCalibration, "%.3g") + " mm from the calibration alone";
    if (!result.undetermined.empty()) result.refusal += "; open: " + result.undetermined[0];
    return result;
  }

  if (result.after.inFront < kLeastInFront) {
    result.refusal = unexplained();
    return result;
  }

  Eigen::VectorXd believed;
  if (options.intrinsics) {
    believed = beliefs(rigOf(loaded, given));
    fit = fitPairs(given, fitted, {kAllParameters, believed});
    refined = rigOf(loaded, moved(given, fit.change));
    settle(fit);
    if (!fit.change.allFinite() || !fit.covariance.allFinite()) {
      result.refusal = "the fit of the lenses did not come to an end";
      return result;
    }
    significant = chiSquared(fit.change, fit.covariance) > kAllLimit;
    result.expected = expectedErrors(refined, given, fit.covariance, fit.noise);
  }
  result.parameters = parametersOf(fit.change, fit.covariance, believed);
  for (const FittedParameter& parameter : result.parameters)
    if (!parameter.determined())
      result.undetermined.push_back(parameter.name + ", kept within what is believed of it");
  std::tie(result.rotation, result.rotationDeviation) =
      lengthOf(fit.change.head<3>(), fit.covariance.topLeftCorner<3, 3>());
  std::tie(result.direction, result.directionDeviation) =
      lengthOf(fit.change.segment<2>(3), fit.covariance.block<2, 2>(3, 3));
  result.changed = significant;
  if (significant)
    result.calibration = refined.calibration;
  else
    result.after = result.before;
  return result;
}

WandLength wandLength(const StereoCalibration& calibration,
                      const std::vector<TwoPointView>& views) {
  const RawTriangulation triangulation(calibration);
  std::vector<double> lengths;
  for (const TwoPointView& view : views) {
    const auto pairing = [&](int partner) {
      return std::pair{triangulation(view.left[0], view.right[partner]),
                       triangulation(view.left[1], view.right[1 - partner])};
    };
    const auto gap = [](const auto& pair) {
      return pair.first.epipolarDistance + pair.second.epipolarDistance;
    };
    auto points = pairing(0);
    const auto crossed = pairing(1);
    const auto inFront = [](const auto& pair) {
      return pair.first.position.z() > 0 && pair.second.position.z() > 0;
    };
    if (inFront(crossed) && (!inFront(points) || gap(crossed) < gap(points))) points = crossed;
    const double length = (points.first.position - points.second.position).norm();
    if (inFront(points) && std::isfinite(length)) lengths.push_back(length);
  }
  WandLength result;
  result.views = lengths.size();
  if (lengths.empty()) return result;
  result.length = median(lengths);
  std::vector<double> deviations;
  for (const double length : lengths) deviations.push_back(std::abs(length - result.length));
  // Of a median of normal errors: 1.2533 times that of a mean.
  result.deviation =
      1.2533 * 1.4826 * median(deviations) / std::sqrt(static_cast<double>(lengths.size()));
  return result;
}

StereoCalibration withBaseline(StereoCalibration calibration, double baseline) {
  const double factor = baseline / baselineOf(calibration);
  for (double& t : calibration.translation) t *= factor;
  recomputeFundamental(calibration);
  return calibration;
}

}  // namespace calibration
