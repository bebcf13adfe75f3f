// A calibration put right by what the cameras themselves saw.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/PairFit.h>
#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/calibration/StereoFit.h>

#include <optional>
#include <string>
#include <vector>

namespace calibration {

struct RefineOptions {
  /// Focal lengths, principal points and distortion too. They are believed as given within 0.5 % of
  /// the focal length, 1 % of the image's width and 0.005 for k1 to k4, so that what the data do
  /// not determine stays.
  bool intrinsics = false;
};

/// Median over the common view at one depth, of the length of the error, mm.
struct ExpectedError {
  double depth = 0;            ///< mm
  double fromNoise = 0;        ///< of the blobs' centres, as large as the pairs show it
  double fromCalibration = 0;  ///< of the uncertainty of the result
  double before = 0;           ///< how far the given calibration puts points from the result's
  double after() const;        ///< both of the result's together
};

/// One fitted number.
struct FittedParameter {
  std::string name;      ///< "rotation about x", "left focal length x"
  std::string unit;      ///< "degrees", "px" or empty
  double change = 0;     ///< from the given calibration
  double deviation = 0;  ///< standard deviation of the result
  double believed = 0;   ///< standard deviation before; 0 = nothing was believed
  /// The data say more about it than what was believed before.
  bool determined() const { return believed == 0 || deviation < 0.7 * believed; }
};

struct Refinement {
  std::string refusal;   ///< why there is no result; empty if there is one
  bool changed = false;  ///< false: the given calibration agrees and is kept to the last bit
  algorithm::StereoCalibration calibration;  ///< the result

  std::size_t pairs = 0;     ///< all
  std::size_t heldBack = 0;  ///< every fifth, which had no say
  std::size_t used = 0;
  std::size_t outliers = 0;
  FitQuality before, after;  ///< of the pairs held back
  double noise = 0;          ///< px, standard deviation of a blob's coordinate

  double rotation = 0;           ///< degrees between given and refined
  double rotationDeviation = 0;  ///< degrees, along that change
  double direction = 0;          ///< degrees between the directions of translation
  double directionDeviation = 0;
  std::vector<FittedParameter> parameters;
  Eigen::MatrixXd covariance;             ///< see PairFit.h for the parameters
  std::vector<ExpectedError> expected;    ///< at 1, 2 and 3 m, where both cameras see
  std::vector<std::string> undetermined;  ///< what the data leave open
  std::vector<std::string> advice;        ///< where markers are missing
};

/// Fits rotation and direction of translation, and with `intrinsics` the lenses, to four fifths of
/// the pairs and tests the result on the others. The length of the translation is kept.
///
/// Refused: fewer than 50 pairs, pairs that no pair of cameras explains, and data whose uncertainty
/// would put points farther off than both the blobs' noise and a quarter of what was put right.
/// @param loaded  a usable calibration in millimetres
Refinement refine(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                  const RefineOptions& options = {});

struct WandLength {
  std::size_t views = 0;  ///< with two points in front of both cameras
  double length = 0;      ///< median distance by the calibration, its unit
  double deviation = 0;   ///< standard deviation of that median
};

/// Measures the distance between the two markers; partners are those with the smaller distance from
/// their epipolar lines.
WandLength wandLength(const algorithm::StereoCalibration& calibration,
                      const std::vector<TwoPointView>& views);

/// The same pair with a translation of another length.
algorithm::StereoCalibration withBaseline(algorithm::StereoCalibration calibration,
                                          double baseline);

}  // namespace calibration
