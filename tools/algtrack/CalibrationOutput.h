// Calibrations out of recordings and into files.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/recording/Recording.h>

#include <string>
#include <vector>

namespace algtrack {

/// For help texts: which ending gives which format.
constexpr const char* kCalibrationEndings =
    ".json, .yml (OpenCV), .yaml (Kalibr), .bin or none (the 920-byte record)";

/// The calibration of a recording's last Init.
/// @throws recording::RecordingError where there is none
calibration::LoadedCalibration recordedCalibration(const recording::RecordingReader& reader);

/// Refuses endings that ask for no known format.
/// @throws std::runtime_error in one line
void checkCalibrationEndings(const std::vector<std::string>& paths);

/// Writes a calibration in the format that the path's ending asks for.
/// @returns what was written, for people: "JSON"
/// @throws std::runtime_error in one line, before anything is written
std::string writeCalibration(const std::string& path,
                             const calibration::CalibrationToWrite& written, bool force);

/// --image-size WIDTH,HEIGHT, in pixels; nothing for an empty text.
/// @throws std::runtime_error in one line
void setImageSize(const std::string& text, calibration::LoadedCalibration& loaded);

}  // namespace algtrack
