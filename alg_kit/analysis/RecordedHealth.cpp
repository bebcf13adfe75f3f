#include <alg_kit/analysis/RecordedHealth.h>

#include <alg_kit/calibration/CalibrationRecord.h>

namespace analysis {

std::optional<calibration::LoadedCalibration> usableOf(const algorithm::StereoCalibration& given) {
  if (!calibration::problemOf(given).empty()) return std::nullopt;
  calibration::LoadedCalibration loaded;
  loaded.calibration = given;
  loaded.unit = "mm";
  return loaded;
}

HealthFacts healthFactsOf(const calibration::LoadedCalibration& given,
                          const std::vector<calibration::ObservedPair>& pairs,
                          const calibration::RunAll& runAll) {
  const auto health = calibration::healthOf(given, pairs, runAll);
  return {calibration::nameOf(health.verdict), health.text, health.trend};
}

}  // namespace analysis
