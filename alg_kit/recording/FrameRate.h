// How fast a recording's packets came.
#pragma once

#include <cstddef>

namespace recording {

class RecordingReader;

/// By the median distance of the first packets: lost ones and bursts do not move it.
/// `most` distances are looked at: a minute and a half at the usual rate has enough, and hours need
/// not be read for it.
/// @return Hz; 90 where the recording does not say
/// @throws RecordingError
double frameRateOf(const RecordingReader& reader, std::size_t most = 8192);

}  // namespace recording
