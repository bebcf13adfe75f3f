#pragma once

#include <alg_kit/view/FrameLog.h>

#include <cstdint>
#include <string>

namespace view {

constexpr std::int64_t kMostCsvFrames = 60000;     ///< in one table
constexpr std::int64_t kMostSavedCalls = 1000000;  ///< in one recording

/// The frames whose time lies between, as a table: a line for every frame and object.
/// @throws std::runtime_error in one line, if there are too many
std::string csvOf(const FrameLog& log, double from, double to);

/// The calls between two times as a recording of its own, which begins with the calls that set the
/// library up. It is made among the temporary files, of which nothing stays.
/// @return the bytes of the file
/// @throws std::runtime_error in one line
std::string recordingOf(const std::string& path, double from, double to);

}  // namespace view
