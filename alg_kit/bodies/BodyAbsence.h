// Why a recording has no pose of a body.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>

#include <string>

namespace bodies {

/// In one line, without a full stop: which ids were never seen, or that too few markers were seen
/// at once, or that they were and did not fit, with counts. For a body that has no pose there.
/// @param noise  px, of blob centres
/// @throws as readFrames
std::string whyNoPose(const recording::RecordingReader& reader, const Body& body, double noise);

}  // namespace bodies
