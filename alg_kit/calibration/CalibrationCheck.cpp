#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace calibration {
namespace {

constexpr double kDegrees = 180 / 3.141592653589793;

// A tracker's cameras are some centimetres to a metre apart.
constexpr double kLargestBaselineInMetres = 2;
constexpr double kLargestBaselineInCentimetres = 20;
constexpr double kLargestBaselineInMillimetres = 2000;
constexpr double kRotationTolerance = 1e-3;
constexpr double kFundamentalTolerance = 0.1;   // px; blobs are some pixels wide
constexpr double kClearConvergence = 0.5;       // degrees
constexpr double kOrthographicK1 = -1.0 / 6.0;  // sin(theta) = theta - theta^3 / 6 ...

// With a recording.
constexpr std::size_t kFewestPairs = 20;
constexpr double kGoodResidual = 1.0;  // px, median
constexpr double kExplained = 2.0;     // px, median; with more left nothing is explained
constexpr double kGoodInFront = 0.8;
constexpr double kClearlyBetter = 0.5;        // of the residual as given
constexpr double kAboutAsGood = 1.5;          // a simpler explanation within this factor wins
constexpr double kNegligibleResidual = 0.05;  // px; below it residuals are not compared

constexpr const char* kInverted = "translation-inverted";
constexpr const char* kSwapped = "cameras-swapped";
constexpr const char* kInvertedOrSwapped = "translation-inverted-or-cameras-swapped";
constexpr const char* kDistortion = "distortion-model";

const std::string kInvertedRemedy =
    "The translation must be the left camera's centre in the right camera's frame "
    "(p_right = R p_left + T): about (-baseline, 0, 0).";

std::string number(double value, const char* format = "%.4g") {
  char text[40];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

/// How far the optical axes lean towards each other in the plane of the cameras, degrees.
double convergenceOf(const algorithm::StereoCalibration& c) {
  const Eigen::Vector3d T(c.translation);
  const Eigen::Vector3d toRight = -T.normalized();  // from the left camera, in the right frame
  const Eigen::Vector3d leftAxis = rig::matrixFrom(c.rotation).col(2).normalized();
  const Eigen::Vector3d rightAxis = Eigen::Vector3d::UnitZ();
  const auto lean = [](double sine) { return std::asin(std::clamp(sine, -1.0, 1.0)) * kDegrees; };
  return lean(leftAxis.dot(toRight)) - lean(rightAxis.dot(toRight));
}

void judgeSides(const LoadedCalibration& loaded, const Geometry& geometry,
                std::vector<Finding>& findings) {
  if (!geometry.sideBySide || loaded.calibration.translation[0] < 0) return;
  const std::string what =
      "The translation puts the left camera to the right of the right one (x = " +
      number(loaded.calibration.translation[0]) + "). ";
  if (geometry.convergence < -kClearConvergence) {
    findings.push_back(
        {kInverted, what +
                        "The translation seems inverted: with the opposite sign the optical "
                        "axes would lean towards each other by " +
                        number(-geometry.convergence, "%.1f") +
                        " degrees, as it is they lean apart. " + kInvertedRemedy});
  } else if (geometry.convergence > kClearConvergence) {
    findings.push_back({kSwapped, what + "The cameras seem swapped: their axes lean towards each "
                                         "other as they should, only the sides are exchanged. "
                                         "Import with --swap-cameras if so."});
  } else {
    findings.push_back(
        {kInvertedOrSwapped, what +
                                 "Either the translation is inverted or the cameras are swapped; a "
                                 "recording (--recording) can tell which. " +
                                 kInvertedRemedy});
  }
}

void judgeLens(const Lens& lens, const double (&distortion)[8], const rig::FieldOfView& view,
               const std::string& name, std::vector<Finding>& findings) {
  const std::string remedy =
      " The library undoes the equidistant (fisheye) model only: calibrate again with it (Kalibr: "
      "pinhole-equi, OpenCV: the fisheye functions).";
  if (lens.model != LensModel::kEquidistant) {
    findings.push_back(
        {kDistortion, "The distortion model of the " + name + " camera is wrong: the file gives " +
                          (lens.model == LensModel::kRadialTangential
                               ? "the radial-tangential model (radtan; " + lens.asFound + ")."
                               : "'" + lens.asFound + "'.") +
                          remedy});
  } else if (distortion[0] < kOrthographicK1) {
    findings.push_back(
        {kDistortion,
         "The distortion model of the " + name +
             " camera seems wrong: read as equidistant, k1 = " + number(distortion[0]) +
             " squeezes the image more than an orthographic lens (-0.167), which no "
             "fisheye does; it looks like a radial-tangential (radtan) coefficient." +
             remedy});
  } else if (view.folds) {
    findings.push_back({kDistortion, "The distortion model of the " + name +
                                         " camera seems wrong: its equidistant coefficients end "
                                         "before the image does." +
                                         remedy});
  }
}

/// A mistake, undone.
struct Attempt {
  std::string code;
  std::string text;
  algorithm::StereoCalibration calibration;
  Reading reading = Reading::kEquidistant;
};

algorithm::StereoCalibration withTransform(algorithm::StereoCalibration calibration,
                                           const Eigen::Matrix3d& R, const Eigen::Vector3d& T) {
  rig::storeMatrix(R, calibration.rotation);
  for (int i = 0; i < 3; ++i) calibration.translation[i] = T[i];
  recomputeFundamental(calibration);
  return calibration;
}

/// The usual mistakes, the simplest explanations first.
std::vector<Attempt> attempts(const algorithm::StereoCalibration& c) {
  const Eigen::Matrix3d R = rig::matrixFrom(c.rotation);
  const Eigen::Vector3d T(c.translation);
  return {
      {"fundamental",
       "The fundamental matrix does not fit: computed from K, R and T it explains the recording. "
       "Import the calibration again.",
       withTransform(c, R, T)},
      {kInverted, "The translation is inverted. " + kInvertedRemedy, withTransform(c, R, -T)},
      {kInverted,
       "The translation is inverted: it is the right camera's centre in the left camera's frame. " +
           kInvertedRemedy,
       withTransform(c, R, -R * T)},
      {"transform-inverted",
       "Rotation and translation are inverted: they take a point of the right camera's frame to "
       "the "
       "left one's. " +
           kInvertedRemedy,
       withTransform(c, R.transpose(), -R.transpose() * T)},
      {kSwapped,
       "The cameras are swapped: what the calibration calls left is the camera that the device "
       "reports as right. Import with --swap-cameras.",
       withCamerasSwapped(c)},
      {kDistortion,
       "The distortion model is wrong: read as radial-tangential (radtan) coefficients the numbers "
       "explain the recording, read as equidistant ones they do not. Calibrate again with the "
       "equidistant model.",
       withTransform(c, R, T), Reading::kRadialTangential},
  };
}

std::string describe(const FitQuality& quality) {
  return "median residual " + number(quality.medianResidual, "%.3g") + " px, " +
         number(100 * quality.inFront, "%.0f") + " % of the pairs in front of the cameras";
}

void drop(std::vector<Finding>& findings, const std::vector<std::string>& codes) {
  findings.erase(std::remove_if(findings.begin(), findings.end(),
                                [&](const Finding& finding) {
                                  return std::count(codes.begin(), codes.end(), finding.code) > 0;
                                }),
                 findings.end());
}

}  // namespace

Geometry measure(const LoadedCalibration& loaded) {
  const auto& c = loaded.calibration;
  Geometry geometry;
  const Eigen::Matrix3d R = rig::matrixFrom(c.rotation);
  geometry.baseline = baselineOf(c);
  geometry.rotationAngle = std::acos(std::clamp((R.trace() - 1) / 2, -1.0, 1.0)) * kDegrees;
  geometry.rotationDeviation =
      (R * R.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff();
  geometry.rotationDeterminant = R.determinant();
  geometry.convergence = convergenceOf(c);
  geometry.sideBySide = std::fabs(c.translation[0]) > 0.7 * geometry.baseline;
  geometry.sizeStated = loaded.width > 0 && loaded.height > 0;
  const auto twice = [](double left, double right) {
    return static_cast<int>(std::lround(std::clamp(left + right, 1.0, 65535.0)));
  };
  geometry.width =
      geometry.sizeStated ? loaded.width : twice(c.leftIntrinsics[2], c.rightIntrinsics[2]);
  geometry.height =
      geometry.sizeStated ? loaded.height : twice(c.leftIntrinsics[5], c.rightIntrinsics[5]);
  geometry.left =
      rig::fieldOfView(c.leftIntrinsics, c.leftDistortion, geometry.width, geometry.height);
  geometry.right =
      rig::fieldOfView(c.rightIntrinsics, c.rightDistortion, geometry.width, geometry.height);
  geometry.fundamentalError = epipolarErrorOfFundamental(c);
  return geometry;
}

std::optional<Finding> judgeUnit(const LoadedCalibration& loaded) {
  const double baseline = baselineOf(loaded.calibration);
  if (baseline > kLargestBaselineInMillimetres) {
    std::string text = "The unit of the translation seems to be too large: the baseline is " +
                       number(baseline, "%.6g") + " mm (" + number(baseline / 1000) +
                       " m), wider than any pair that the library is made for. ";
    text +=
        loaded.appliedFactor > 1
            ? "The file's numbers were read as " + unitOfFile(loaded) +
                  "; they seem to be of a smaller unit: import it with --unit " +
                  (baseline / loaded.appliedFactor > kLargestBaselineInCentimetres ? "mm." : "cm.")
            : "Import it with the unit that it really has (--unit).";
    return Finding{"unit-too-large", text};
  }
  const std::string why = "the baseline is " + number(baseline) +
                          ", and the library's limits (depth 10 to 4500, jumps 150) are made for "
                          "millimetres. Import it with --unit ";
  if (baseline < kLargestBaselineInMetres)
    return Finding{"unit-metres", "The unit of the translation seems to be metres: " + why + "m."};
  if (baseline < kLargestBaselineInCentimetres)
    return Finding{"unit-centimetres",
                   "The unit of the translation seems to be centimetres: " + why + "cm if so."};
  return std::nullopt;
}

std::vector<Finding> judge(const LoadedCalibration& loaded, const Geometry& geometry) {
  const auto& c = loaded.calibration;
  std::vector<Finding> findings;
  judgeSides(loaded, geometry, findings);
  if (auto finding = judgeUnit(loaded)) findings.push_back(std::move(*finding));
  judgeLens(loaded.left, c.leftDistortion, geometry.left, "left", findings);
  judgeLens(loaded.right, c.rightDistortion, geometry.right, "right", findings);
  if (geometry.rotationDeviation > kRotationTolerance || geometry.rotationDeterminant < 0)
    findings.push_back({"rotation", "The rotation is none: R R^T differs from the identity by " +
                                        number(geometry.rotationDeviation) +
                                        ", its determinant is " +
                                        number(geometry.rotationDeterminant) + "."});
  // Of a matrix that is no rotation F cannot be judged.
  const bool turns =
      geometry.rotationDeviation <= kRotationTolerance && geometry.rotationDeterminant > 0;
  if (turns && !(geometry.fundamentalError <= kFundamentalTolerance))
    findings.push_back(
        {"fundamental", "The fundamental matrix does not belong to K, R and T: its lines miss by " +
                            number(geometry.fundamentalError) +
                            " px on average. Import the calibration again."});
  for (const auto& [name, k] :
       {std::pair{"left", &c.leftIntrinsics}, {"right", &c.rightIntrinsics}})
    if ((*k)[1] != 0)
      findings.push_back({"skew", std::string("The ") + name + " camera matrix has a skew of " +
                                      number((*k)[1]) +
                                      ", which the library leaves out when it undistorts."});
  return findings;
}

void judgeWithPairs(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                    std::vector<Finding>& findings) {
  if (pairs.size() < kFewestPairs) {
    findings.push_back({"few-pairs", "The recording says little: it has " +
                                         std::to_string(pairs.size()) +
                                         " frames in which both cameras saw one blob of an id; " +
                                         std::to_string(kFewestPairs) + " are needed."});
    return;
  }
  const FitQuality given = fit(loaded.calibration, pairs);
  const std::vector<std::string> sides = {kInverted, kSwapped, kInvertedOrSwapped};
  const bool inFront = given.inFront >= kGoodInFront;
  const bool good = inFront && given.medianResidual <= kGoodResidual;

  struct Explanation {
    Attempt attempt;
    FitQuality quality;
  };
  std::vector<Explanation> explanations;
  for (Attempt& attempt : attempts(loaded.calibration)) {
    const FitQuality quality = fit(attempt.calibration, pairs, attempt.reading);
    if (quality.inFront < kGoodInFront || quality.medianResidual > kExplained) continue;
    const bool clearlyBetter = given.medianResidual > kNegligibleResidual &&
                               quality.medianResidual <= kClearlyBetter * given.medianResidual;
    const bool asGoodButInFront =
        !inFront && quality.medianResidual <= given.medianResidual * kAboutAsGood;
    const bool fits = !good && quality.medianResidual <= kGoodResidual;
    if (clearlyBetter || asGoodButInFront || fits)
      explanations.push_back({std::move(attempt), quality});
  }
  if (explanations.empty()) {
    if (good)
      drop(findings, sides);
    else
      findings.push_back({"recording-unexplained",
                          "The calibration and the recording do not belong together (" +
                              describe(given) +
                              "), and none of the usual mistakes explains it: they are of two "
                              "rigs, or of one that has changed a lot."});
    return;
  }
  double smallest = explanations[0].quality.medianResidual;
  for (const Explanation& e : explanations) smallest = std::min(smallest, e.quality.medianResidual);
  const double limit = std::max(smallest * kAboutAsGood, kNegligibleResidual);
  const auto isBest = [&](const Explanation& e) { return e.quality.medianResidual <= limit; };
  const auto best = std::find_if(explanations.begin(), explanations.end(), isBest);

  drop(findings, sides);
  Finding finding{best->attempt.code, best->attempt.text};
  const bool alsoSwapped =
      finding.code != kSwapped && std::any_of(best, explanations.end(), [&](const auto& e) {
        return isBest(e) && e.attempt.code == kSwapped;
      });
  if (finding.code == kInverted && alsoSwapped)
    finding = {kInvertedOrSwapped,
               "Either the translation is inverted or the cameras are swapped: this rig is so "
               "symmetric that the recording fits both. " +
                   kInvertedRemedy};
  finding.text +=
      " (As given: " + describe(given) + "; corrected: " + describe(best->quality) + ".)";
  // A lens that its file or its numbers already betray needs no second finding.
  if (finding.code == kDistortion) drop(findings, {kDistortion});
  if (finding.code == "fundamental") drop(findings, {"fundamental"});
  findings.push_back(std::move(finding));
}

}  // namespace calibration
