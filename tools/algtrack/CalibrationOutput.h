// Calibrations out of recordings and into files.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/recording/Recording.h>

#include <string>

namespace algtrack {

/// The calibration of a recording's last Init.
/// @throws recording::RecordingError where there is none
calibration::LoadedCalibration recordedCalibration(const recording::RecordingReader& reader);

struct CalibrationToWrite {
  const algorithm::StereoCalibration& calibration;
  std::string unit;  ///< of its translation
  int width = 0;     ///< pixels; 0 = not known
  int height = 0;
};

/// Writes a calibration in the format that the path's ending asks for.
/// @returns what was written, for people: "JSON"
/// @throws std::runtime_error in one line
std::string writeCalibration(const std::string& path, const CalibrationToWrite& written,
                             bool force);

}  // namespace algtrack
