// Moments and stretches of a recording as every command prints them.
#pragma once

#include <alg_kit/analysis/Moment.h>
#include <tools/algtrack/terminal/Json.h>

namespace algtrack {

/// {"packet": 450, "call": 1804, "time_s": 5.0}
Json momentJson(const analysis::Moment& moment);

/// {"from_s": null, "to_s": 7.0}
Json rangeJson(const analysis::TimeRange& range);

}  // namespace algtrack
