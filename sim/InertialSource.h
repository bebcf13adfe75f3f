#pragma once

#include <alg_factory/service/InertialRecord.h>
#include <sim/Scene.h>

namespace sim {

/// What an inertial sensor at an object's origin, aligned with the object's frame, would measure:
/// the turning rate in counts of 1/16.4 degree per second and the specific force (acceleration
/// minus gravity; gravity points along the right camera's y) in counts of 1/2048 g, with g =
/// 9.81 m/s^2, cut to 16 bits. `q` is the orientation x, y, z, w and `p` the position in mm, both
/// in the right camera's frame. Rates are central differences over two frames of 90 Hz, which
/// measured motions (linear between samples) need.
algorithm::InertialRecord inertialRecord(const Scene& scene, const SceneObject& object,
                                         double seconds);

}  // namespace sim
