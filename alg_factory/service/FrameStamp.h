#pragma once

#include <atomic>
#include <cstdint>

namespace algorithm {

/// Stamp of the latest type 2 frame, microseconds; one for the process. Written by stream input
/// before its packet runs, read by event queries of other threads.
extern std::atomic<std::uint32_t> lastFrameStamp;

}  // namespace algorithm
