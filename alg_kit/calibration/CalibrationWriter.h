// Calibrations as the files that other programs read.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>

#include <string>

namespace calibration {

struct CalibrationToWrite {
  const algorithm::StereoCalibration& calibration;
  std::string unit;  ///< of its translation: "mm", "cm", "m" or "in"
  int width = 0;     ///< pixels; 0 = not known
  int height = 0;
};

/// OpenCV's FileStorage: K1, D1, K2, D2, R, T, E and F, with every bit of every number. The file
/// states its unit as `translation_unit`, which OpenCV passes over and our reader knows.
std::string openCvText(const CalibrationToWrite& written);

/// Kalibr's camera chain, in metres: what is written in millimetres is read back with every bit,
/// as the decimal point moves in the text.
/// @throws std::invalid_argument where the format has no place for it: no image size, a skew
std::string kalibrText(const CalibrationToWrite& written);

/// The number times 10^shift as text, without rounding: shiftedText(12.5, -3) is "1.25...e-02".
std::string shiftedText(double value, int shift);

/// Reads a plain decimal number times 10^shift with one rounding; false for other text.
bool readShifted(const std::string& text, int shift, double& value);

}  // namespace calibration
