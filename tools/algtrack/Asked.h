// What is asked of a recording that has nothing to answer it with is refused, by every command in
// the same words.
#pragma once

#include <alg_kit/analysis/Moment.h>
#include <alg_kit/recording/Recording.h>

#include <optional>

namespace algtrack {

/// @param productType  of every Init, in the place of the recorded ones
/// @throws recording::RecordingError unless an Init has a product type that tracks the object
void requireTracked(const recording::RecordingReader& reader, int object,
                    std::optional<int> productType = std::nullopt);

/// @throws recording::RecordingError if no device packet is in that time
void requirePackets(const recording::RecordingReader& reader, const analysis::TimeRange& range);

/// What to throw where nothing is in that time.
/// @param end  of the recording, in its seconds
recording::RecordingError nothingInTime(const recording::RecordingReader& reader,
                                        const char* expected, double end);

}  // namespace algtrack
