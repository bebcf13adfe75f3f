// A body's shape from an ordinary recording.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bodies {

/// The points of one frame that both cameras saw.
struct FramePoints {
  std::vector<int> ids;
  std::vector<MarkerPoint> points;
};

/// @param ids    of the markers, each once
/// @param noise  px, of blob centres
/// Of a long recording some frames are left out, evenly, so that there are never more than 6000.
std::vector<FramePoints> pointsOf(const recording::RecordingReader& reader,
                                  const std::vector<int>& ids, double noise);

/// The distance of two markers.
struct MarkerDistance {
  int first = 0, second = 0;  ///< ids
  double distance = 0;        ///< mm
  double deviation = 0;       ///< mm, standard deviation
  std::int64_t frames = 0;    ///< that saw both
};

struct LearnedBody {
  Body body;  ///< origin: the markers' mean; axes: see BodyLearning.cpp, deviations stated
  std::vector<MarkerDistance> distances;
  std::int64_t frames = 0;  ///< that took part
  /// Squared misfit over the expected one: 1 if the body is rigid and the noise is what was said.
  double misfit = 0;
  std::vector<int> loose;      ///< ids that do not hold still relative to the rest: left out
  std::vector<int> notLinked;  ///< ids that were never seen with three of the others: left out
  std::vector<std::pair<int, int>> neverTogether;  ///< ids of which no frame saw both
};

/// Finds the shape that all frames fit best: markers and poses together, in units of what stereo
/// really has at each point (full covariances). Stereo gives the scale and tells a body from its
/// mirror image, so that neither has to be guessed. Standard deviations are from the equations, and
/// larger by the root of `misfit` where that is above 1.
/// @throws std::runtime_error in one line if fewer than three markers are left, or they stand in a
///         line
LearnedBody learn(const std::vector<FramePoints>& frames, const std::vector<int>& ids,
                  const std::string& name);

}  // namespace bodies
