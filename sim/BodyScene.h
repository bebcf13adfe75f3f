// A body whose shape a file gives, moving along a trajectory.
#pragma once

#include <alg_kit/bodies/Body.h>
#include <sim/Scene.h>

#include <string>

namespace sim {

/// The body's markers, each an object of its own, on what follows the trajectory. A marker radiates
/// where it faces, or away from the body's middle where the body does not say it; a pair's all
/// around. A pair is product type 1's two-point object.
/// @param name  of the body's file, for the message
/// @throws std::invalid_argument in one line if the product type has no object for a marker's id
Scene sceneOf(const bodies::Body& body, const std::string& name, int productType,
              Trajectory trajectory);

}  // namespace sim
