// How fast a recording's packets came.
#pragma once

namespace recording {

class RecordingReader;

/// By the median distance of the first 65,536 packets: lost ones and bursts do not move it.
/// @return Hz; 90 where the recording does not say
/// @throws RecordingError
double frameRateOf(const RecordingReader& reader);

}  // namespace recording
