// Where a body truly was, where a recording says it.
#pragma once

#include <alg_kit/bodies/BodyTracks.h>
#include <alg_kit/session/Session.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bodies {

/// The true pose, axes as delivered: the body laid over its markers' true places, whatever its
/// frame. What truly moved is in the file's fact true_body.
/// @param rows  of one packet's frame
/// @return nothing without three of its markers, which span a plane, or both of a pair
std::optional<RigidMotion> trueMotionOf(const Body& body,
                                        const std::vector<session::TruthRow>& rows);

/// The true poses by the packet's call, where there is one.
/// @throws recording::RecordingError
std::map<std::int64_t, RigidMotion> trueMotions(const recording::RecordingReader& reader,
                                                const Body& body);

struct BodyError {
  double position = 0;  ///< mm, of the origin
  double turn = 0;      ///< degrees; of a pair its direction's
};

/// A pair's ends look alike: which is which does not count.
BodyError errorOf(const Body& body, const RigidMotion& found, const RigidMotion& truth);

/// Root mean squares of what was answered against the truth.
struct BodyErrors {
  std::int64_t packets = 0;  ///< compared; the rest holds if there is one
  double position = 0;       ///< mm, of the origin
  double turn = 0;           ///< degrees
};

/// @param rows  of this body, of the packets' own moments
BodyErrors errorsOf(const Body& body, const std::vector<BodyRow>& rows,
                    const std::map<std::int64_t, RigidMotion>& truth);

}  // namespace bodies
