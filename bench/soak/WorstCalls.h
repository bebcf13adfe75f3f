#pragma once

#include <alg_factory/api/AlgFactory.h>

namespace soak {

/// Makes every kind of call many times, packets with the payloads that cost most, and prints the
/// median and the longest processor time of each (of this thread: what other programs take does not
/// count, page faults and interrupts do).
/// @return false, with a line, when one took longer than `kLongestCall`.
bool worstCallsAreBounded(algorithm::AlgBase& alg, const algorithm::StereoCalibration& calibration);

/// Microseconds; a frame at 90 Hz lasts 11,111.
constexpr double kLongestCall = 2000;

}  // namespace soak
