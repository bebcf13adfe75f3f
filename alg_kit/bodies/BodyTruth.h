// Where a body truly was, where a recording says it.
#pragma once

#include <alg_kit/bodies/BodyTracks.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace bodies {

/// The true poses by the packet's call, axes as delivered: the body laid over its markers' true
/// places, whatever its frame. Packets without three of its markers in the truth are left out, and
/// empty where there is no truth. What truly moved is in the file's fact true_body.
/// @throws recording::RecordingError
std::map<std::int64_t, RigidMotion> trueMotions(const recording::RecordingReader& reader,
                                                const Body& body);

/// Root mean squares of what was answered against the truth.
struct BodyErrors {
  std::int64_t packets = 0;  ///< compared; the rest holds if there is one
  double position = 0;       ///< mm, of the origin
  double turn = 0;           ///< degrees
};

/// @param rows  of one body, of the packets' own moments
BodyErrors errorsOf(const std::vector<BodyRow>& rows,
                    const std::map<std::int64_t, RigidMotion>& truth);

}  // namespace bodies
