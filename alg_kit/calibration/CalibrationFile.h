// Reading a calibration from any of the formats that people have. docs/calibration.md describes
// them and their conventions.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>

#include <optional>
#include <string>
#include <vector>

namespace calibration {

/// The lens model of one camera, as a file states it or as the number of its coefficients says.
enum class LensModel {
  kEquidistant,       ///< Kannala-Brandt fisheye, k1 to k4: the one that the library undoes
  kRadialTangential,  ///< "radtan", "plumb bob": k1, k2, p1, p2, ...
  kOther,             ///< stated, and neither of these
};

struct Lens {
  LensModel model = LensModel::kEquidistant;
  bool stated = false;  ///< the file names the model or its coefficients leave no choice
  std::string asFound;  ///< in the file's words: "radtan", "5 coefficients"
};

/// A calibration with what its file says, and does not say, about it.
struct LoadedCalibration {
  algorithm::StereoCalibration calibration;  ///< translation as described by `unit`
  std::string format;                        ///< "Kalibr camera chain"
  /// Unit of `translation`, "mm" after conversion; empty where neither file nor caller said it: the
  /// numbers are as they stand in the file.
  std::string unit;
  double appliedFactor = 1;  ///< millimetres per unit of the file, applied to `translation`
  std::string unitSource;    ///< who says so: "stated in it", "of this format", "as given"
  int width = 0;             ///< pixels; 0 = not stated
  int height = 0;            ///< pixels; 0 = not stated
  Lens left;
  Lens right;
  bool fundamentalInFile = false;  ///< else it was computed from K, R and T
};

/// Millimetres per unit of "mm", "cm", "m" or "in".
/// @throws std::invalid_argument for another name
double millimetresPer(const std::string& unit);

/// The unit in which the file has its translation, with its source: "m (of this format)".
std::string unitOfFile(const LoadedCalibration& loaded);

/// Reads one file (Kalibr camera chain, OpenCV FileStorage, our 920-byte record, our JSON) or two
/// (OpenCV's intrinsics and extrinsics, in any order). Lenses of another model are taken as they
/// are, for `requireUsable` or a person to judge.
/// @param unit  of the file's translation, where the caller knows it; converted to mm. Without it
///              Kalibr's is metres, the record's millimetres, JSON states its own, and OpenCV's
///              numbers are kept.
/// @throws text::FileError in one line
LoadedCalibration readCalibration(const std::vector<std::string>& paths,
                                  const std::optional<std::string>& unit = std::nullopt);

/// Refuses what the library cannot work with: lenses that are not equidistant, a rotation that is
/// none, an unknown unit.
/// @param path  for the message
/// @throws text::FileError
void requireUsable(const LoadedCalibration& loaded, const std::string& path);

/// Exchanges left and right: the same rig, with the other camera called left.
algorithm::StereoCalibration withCamerasSwapped(const algorithm::StereoCalibration& calibration);

/// Computes F anew from K, R and T.
void recomputeFundamental(algorithm::StereoCalibration& calibration);

double baselineOf(const algorithm::StereoCalibration& calibration);

}  // namespace calibration
