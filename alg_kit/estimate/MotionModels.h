// The ways to move that the estimator reckons with.
#pragma once

#include <array>

namespace estimate {

/// One way to move.
struct MotionModel {
  double jerk;    ///< spectral density of the white jerk, mm^2/s^5
  double tremor;  ///< mm per axis, standard deviation of what displaces the marker in one frame
  double share;   ///< of time, in the long run
};

constexpr int kModels = 4;

/// docs/estimation.md says where the numbers come from.
struct ModelSet {
  std::array<MotionModel, kModels> models{{
      {1e2, 0, 0.25},     // still
      {1e6, 0, 0.25},     // smooth: a machine, a slow hand
      {2e7, 0.15, 0.25},  // a hand
      {3e8, 1.2, 0.25},   // fast
  }};
  double memory = 0.4;  ///< seconds, time constant with which an acceleration fades
  double dwell = 0.6;   ///< seconds, mean time until the model is drawn anew from the shares
};

}  // namespace estimate
