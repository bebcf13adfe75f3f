// Our own JSON form of a calibration: every number by name, the conventions beside them.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>

#include <nlohmann/json.hpp>
#include <string>

namespace calibration {

/// @param unit  of the translation: "mm", "cm", "m" or "in"; empty = not known
nlohmann::ordered_json toJson(const algorithm::StereoCalibration& calibration,
                              const std::string& unit, int width, int height);

/// @param path  for the message
/// @throws text::FileError
LoadedCalibration readJson(const std::string& content, const std::string& path);

}  // namespace calibration
