// Public: installed for hosts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace algorithm {

/// One record of the stabilised table. In a delivered block the position is in the right camera's
/// frame with y and z negated, in the unit of the calibration's translation. A record whose `id` is
/// -1 keeps an old position.
struct TrackedPoint {
  std::int32_t id = -1;           ///< object id, -1 = no object
  float x = 0;                    ///< position
  float y = 0;                    ///< position
  float z = 0;                    ///< position
  float hostPosition[3] = {};     ///< records 0 and 1: p of stream type 3 or 4, as sent
  float hostOrientation[4] = {};  ///< records 0 and 1: q of stream type 3 or 4, as sent
  float reserved = 0;             ///< written by nobody
  float bearing = 0;              ///< degrees, 0 to 90; record 2 of product type 1 only
};

static_assert(sizeof(TrackedPoint) == 52, "the size crosses the interface");
static_assert(offsetof(TrackedPoint, id) == 0, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, x) == 4, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, y) == 8, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, z) == 12, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, hostPosition) == 16, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, hostOrientation) == 28, "the layout crosses the interface");
static_assert(offsetof(TrackedPoint, bearing) == 48, "the layout crosses the interface");

}  // namespace algorithm
