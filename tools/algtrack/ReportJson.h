#pragma once

#include <tools/algtrack/ReportData.h>

#include <nlohmann/json.hpp>

namespace algtrack {

struct ReportRules {
  double jumpLimit = 80;  ///< mm per packet; the library's own for single markers
};

/// The report's numbers, without the rows: what `--json` prints.
nlohmann::ordered_json numbersOf(const ReportData& data, const ReportRules& rules);

/// The rows that the page draws, thinned so that a long recording stays a few MB. What is left out
/// lies within what is drawn: see Buckets and pathPackets.
nlohmann::ordered_json rowsOf(const ReportData& data);

}  // namespace algtrack
