// Options that ask a recording by what one knows: an object, a stretch of time, a moment.
#pragma once

#include <alg_kit/analysis/Moment.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace algtrack {

/// Declares --from and --to, in seconds of the recording.
void addTimeRangeOptions(CLI::App& command, analysis::TimeRange& range);

/// @throws std::runtime_error if --to is not behind --from
void checkTimeRange(const analysis::TimeRange& range);

/// Declares --object, an object id.
void addObjectOption(CLI::App& command, std::optional<int>& object, const std::string& description);

/// Declares --time, --call and --packet, of which one may be given.
void addMomentOptions(CLI::App& command, analysis::MomentQuery& query);

}  // namespace algtrack
