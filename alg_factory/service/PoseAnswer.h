// Public: installed for hosts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace algorithm {

/// Answer of `HandleEvent` 0 to 5: the pose of one object. Positions in the unit of the
/// calibration's translation, in the right camera's frame with y and z negated (x right, y up,
/// z towards the viewer). Where `id` is -1 the other fields are left over from an earlier answer.
struct PoseAnswer {
  std::int32_t id = -1;    ///< object id, -1 = no object
  float raw[3] = {};       ///< x, y, z in the latest result block
  float rate[3] = {};      ///< units per second; zero when unfiltered
  float filtered[3] = {};  ///< x, y, z; equals `raw` when unfiltered
  float rateCopy[3] = {};  ///< the same as `rate`
};

static_assert(sizeof(PoseAnswer) == 52, "the size crosses the interface");
static_assert(offsetof(PoseAnswer, id) == 0, "the layout crosses the interface");
static_assert(offsetof(PoseAnswer, raw) == 4, "the layout crosses the interface");
static_assert(offsetof(PoseAnswer, rate) == 16, "the layout crosses the interface");
static_assert(offsetof(PoseAnswer, filtered) == 28, "the layout crosses the interface");
static_assert(offsetof(PoseAnswer, rateCopy) == 40, "the layout crosses the interface");

}  // namespace algorithm
