// The estimator, the smoother and the library side by side on one simulated session.
#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/rig/StereoRig.h>
#include <sim/Simulator.h>

#include <string>

namespace testing_support {

/// Root mean squares over all objects' frames in which the library delivered the object, mm.
struct TrialResult {
  long frames = 0;   ///< compared: object by object
  long missing = 0;  ///< ... delivered, but unknown to the estimator
  double delivered = 0;
  double answered = 0;  ///< by the library's queries, filter mode 0
  double online = 0;
  double predicted = 0;  ///< 3 frames ahead, by the estimator
  double held = 0;       ///< 3 frames ahead, if the delivered position is kept
  double smoothed = 0;
  double answeredLag = 0, onlineLag = 0;        ///< seconds behind the motion
  double answeredJitter = 0, onlineJitter = 0;  ///< about the mean; for scenes at rest
  double onlineNees = 0, smoothedNees = 0;      ///< squared error in stated variances, over 3
  double predictedNees = 0;
  double onlineStated = 0, smoothedStated = 0;  ///< what the covariances say the errors are
  double noise = 0;                             ///< px, that the estimator assumed at the end
  double microseconds = 0;  ///< of the estimator, an object and frame; processor time
};

/// @param library  initialised anew here
/// @param warmUp   seconds at the beginning that do not count
TrialResult runTrial(algorithm::AlgBase& library, const sim::Simulator& simulator, double seconds,
                     const estimate::EstimatorOptions& options, double warmUp = 1);

}  // namespace testing_support
