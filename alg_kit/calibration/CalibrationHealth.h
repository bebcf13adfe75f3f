// Whether a calibration still belongs to the cameras, by what a recording shows.
#pragma once

#include <alg_kit/calibration/Refinement.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace calibration {

/// One stretch of a recording.
struct HealthPoint {
  double from = 0, to = 0;  ///< seconds
  std::size_t pairs = 0;
  double residual = 0;           ///< px, median epipolar distance with the given calibration
  double residualRefined = 0;    ///< px, with the refined one
  double rotation = 0;           ///< degrees between the cameras' rotation then and the given one
  double rotationDeviation = 0;  ///< standard deviation of it
};

enum class HealthVerdict {
  kUnknown,  ///< the recording does not tell
  kGood,     ///< nothing that matters is off
  kStale,    ///< refining would move points by more than the blobs' noise does, and by 0.1 mm
  kDrifts,   ///< the cameras moved while the recording went on
};

/// For programs: "unknown", "good", "stale", "drifts".
const char* nameOf(HealthVerdict verdict);

struct CalibrationHealth {
  HealthVerdict verdict = HealthVerdict::kUnknown;
  std::string text;                 ///< the verdict in one sentence
  std::vector<std::string> unseen;  ///< what this recording cannot tell
  Refinement refinement;
  std::vector<HealthPoint>
      trend;  ///< at most ten stretches of equal length, those with few pairs left out
};

/// Runs `job(0)` to `job(count - 1)`, which do not depend on one another, and returns when all are
/// done.
using RunAll = std::function<void(std::size_t count, const std::function<void(std::size_t)>& job)>;
void runInOrder(std::size_t count, const std::function<void(std::size_t)>& job);

/// @param loaded  a usable calibration
/// @param pairs   in order of time
/// @param runAll  may use several threads: the result is the same
CalibrationHealth healthOf(const LoadedCalibration& loaded, const std::vector<ObservedPair>& pairs,
                           const RunAll& runAll = runInOrder);

}  // namespace calibration
