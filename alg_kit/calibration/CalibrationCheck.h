// What a person can judge of a calibration, and what seems wrong with it in plain words.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/rig/LensGeometry.h>

#include <optional>
#include <string>
#include <vector>

namespace calibration {

/// Figures of a calibration by itself.
struct Geometry {
  double baseline = 0;             ///< unit of the translation
  double rotationAngle = 0;        ///< degrees, between the two cameras' frames
  double rotationDeviation = 0;    ///< largest entry of |R R^T - I|
  double rotationDeterminant = 0;  ///< 1 for a rotation, -1 for a mirroring
  double convergence = 0;          ///< degrees by which the optical axes lean towards each other
  bool sideBySide = false;         ///< the cameras are apart mostly in x
  rig::FieldOfView left;
  rig::FieldOfView right;
  int width = 0;                ///< pixels, for the fields of view
  int height = 0;               ///< pixels
  bool sizeStated = false;      ///< else taken as twice the principal point
  double fundamentalError = 0;  ///< mean epipolar error of F against K, R and T, pixels
};

/// Something that seems wrong.
struct Finding {
  std::string code;  ///< for programs: "translation-inverted"
  std::string text;  ///< for people: what, why it is thought so, and what to do
};

Geometry measure(const LoadedCalibration& loaded);

/// Whether the length of the baseline is none that a pair in millimetres has; none = it may be one.
std::optional<Finding> judgeUnit(const LoadedCalibration& loaded);

/// What the figures alone say.
std::vector<Finding> judge(const LoadedCalibration& loaded, const Geometry& geometry);

/// What the pairs of a recording say in addition. Where the calibration does not explain them, the
/// usual mistakes are undone one by one, and the one whose undoing explains them is named. What the
/// recording settles about left and right replaces what `judge` suspected.
void judgeWithPairs(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                    std::vector<Finding>& findings);

}  // namespace calibration
