#pragma once

#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace report {

/// A number that is not known, or not finite, is null.
/// @param path  of the recording, in the commands that explain its moments; empty = its name alone
nlohmann::ordered_json jsonOf(const analysis::ReportNumbers& numbers, const std::string& path = "");

/// Null where it is not known.
nlohmann::ordered_json jsonOf(const std::optional<analysis::HealthFacts>& facts);

/// The rows for the page. A row of numbers is a string: 32-bit floats, little-endian, in base64,
/// NaN for none; null for a row without any number.
nlohmann::ordered_json jsonOf(const analysis::ReportCurves& curves);

}  // namespace report
