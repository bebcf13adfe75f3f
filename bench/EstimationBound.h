// How well any filter can know where a simulated session's objects are.
#pragma once

#include <sim/Simulator.h>

#include <cstddef>

namespace bench {

constexpr std::size_t kFramesAhead = 3;

/// Root mean squares over all objects and frames, mm.
struct EstimationBound {
  double online = 0;    ///< from all frames up to the moment
  double ahead = 0;     ///< kFramesAhead later
  double smoothed = 0;  ///< from all frames
};

/// The posterior Cramer-Rao bound (Tichavsky, Muravchik and Nehorai, IEEE Trans. Signal Processing
/// 46, 1998) along the true motion, for a filter that is told at every moment how strong the white
/// jerk and the tremor of that half second are: both are taken from the truth, and the measurement
/// equations are linearised at it. A motion with more structure than that can be followed better.
/// @param warmUp  seconds at the beginning that do not count
EstimationBound boundAlong(const sim::Simulator& simulator, double seconds, double noise,
                           double warmUp = 1);

}  // namespace bench
