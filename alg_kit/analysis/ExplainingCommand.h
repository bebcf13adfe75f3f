#pragma once

#include <alg_kit/analysis/WorstMoments.h>

#include <string>

namespace analysis {

/// The command that explains a moment: "algtrack inspect walk.algrec --explain 17".
/// @param file  the recording's name; quoted for a shell where it has to be
std::string explainingCommand(const WorstMoment& moment, const std::string& file);

}  // namespace analysis
