// The trend of a calibration's health in JSON, as reports, `calibration check` and the viewer give
// it.
#pragma once

#include <alg_kit/calibration/CalibrationHealth.h>

#include <nlohmann/json.hpp>
#include <vector>

namespace calibration {

/// An array, a stretch of the recording each.
nlohmann::ordered_json toJson(const std::vector<HealthPoint>& trend);

}  // namespace calibration
