#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/bodies/Body.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace analysis {

struct Report {
  ReportNumbers numbers;
  ReportCurves curves;
};

/// Told while something long goes on: what is being done, how much of it is done, and of how much.
using Progress = std::function<void(const char* step, std::int64_t done, std::int64_t total)>;

/// Reads the recording and runs it through the library's stages once, and once more through its
/// interface where the time of the packets was not recorded. Needs the same memory for a recording
/// of any length. A packet is an InputStream call of stream type 0 or 2.
/// @param bodies    that are followed too; they have no id in common
/// @param library   for that replay; must not have been used before
/// @param progress  may be empty
/// @throws recording::RecordingError; std::runtime_error, in one line, if there is nothing to
///         report: no packet, or none in the range, or no such object
Report makeReport(const recording::RecordingReader& reader, const ReportRules& rules,
                  const ReportRange& range, const std::vector<bodies::Body>& bodies,
                  algorithm::AlgBase& library, const Progress& progress = {});

}  // namespace analysis
