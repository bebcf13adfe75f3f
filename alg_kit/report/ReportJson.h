#pragma once

#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>

#include <nlohmann/json.hpp>
#include <string>

namespace report {

/// A number that is not known, or not finite, is null.
nlohmann::ordered_json jsonOf(const analysis::ReportNumbers& numbers);

/// The rows for the page. A row of numbers is a string: 32-bit floats, little-endian, in base64,
/// NaN for none; null for a row without any number.
nlohmann::ordered_json jsonOf(const analysis::ReportCurves& curves);

/// Bytes that are no UTF-8 are replaced: texts in a recording may be anything.
/// @param indent  -1 = in one line
std::string textOf(const nlohmann::ordered_json& json, int indent = -1);

}  // namespace report
