#pragma once

#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/calibration/CalibrationHealth.h>

#include <optional>
#include <vector>

namespace analysis {

/// A calibration that a recording's Init was given, in mm; none if it cannot be worked with.
std::optional<calibration::LoadedCalibration> usableOf(
    const algorithm::StereoCalibration& calibration);

/// What pairs of blobs, in order of time, say of it.
/// @param runAll  as of calibration::healthOf
HealthFacts healthFactsOf(const calibration::LoadedCalibration& given,
                          const std::vector<calibration::ObservedPair>& pairs,
                          const calibration::RunAll& runAll = calibration::runInOrder);

}  // namespace analysis
