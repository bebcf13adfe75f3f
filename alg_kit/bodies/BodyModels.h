// The ways to move that a body's filter reckons with.
#pragma once

#include <array>

namespace bodies {

/// One way to move.
struct BodyModel {
  double jerk;        ///< spectral density of the white jerk, mm^2/s^5
  double tremor;      ///< mm per axis, standard deviation of what displaces the body in one frame
  double turn;        ///< spectral density of the white angular acceleration, rad^2/s^3
  double turnTremor;  ///< radians per axis, likewise
};

constexpr int kBodyModels = 4;

/// docs/bodies.md says where the numbers come from.
struct BodyModelSet {
  std::array<BodyModel, kBodyModels> models{{
      {1e2, 0, 1e-6, 0},      // still
      {1e6, 0, 0.05, 0},      // smooth: a machine, a slow hand
      {2e7, 0.15, 1, 0.001},  // a hand
      {1e9, 0.2, 50, 0.001},  // fast
  }};
  double memory = 0.4;  ///< seconds, time constant with which an acceleration fades
  double dwell = 2;     ///< seconds, mean time until a body may move in any way, all alike
};

}  // namespace bodies
