// Public: installed for hosts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace algorithm {

/// Payload of stream types 1, 3 and 4, little-endian. Note the order of the counts: the record
/// holds the accelerometer first.
///
/// The counts are along the sensor's own axes. Orientation and position are for whoever reads the
/// result block: types 3 and 4 copy them there as they are. What is written here, and by the
/// simulator, is the pose of the sensor in the right camera's frame (x right, y down, z forward; y
/// and z are not negated as in delivered positions), in the unit of the calibration's translation.
struct InertialRecord {
  std::uint8_t unused1[8] = {};        ///< not used
  float q[4] = {};                     ///< orientation, quaternion x, y, z, w; not normalised here
  float p[3] = {};                     ///< position; type 1 uses nothing else
  std::int16_t accelerometer[3] = {};  ///< x, y, z counts of 1/2048 g
  std::int16_t gyroscope[3] = {};      ///< x, y, z counts, 16.4 per degree per second
  std::uint8_t unused2[8] = {};        ///< not used
};

static_assert(sizeof(InertialRecord) == 56, "the size crosses the interface");
static_assert(offsetof(InertialRecord, q) == 8, "the layout crosses the interface");
static_assert(offsetof(InertialRecord, p) == 24, "the layout crosses the interface");
static_assert(offsetof(InertialRecord, accelerometer) == 36, "the layout crosses the interface");
static_assert(offsetof(InertialRecord, gyroscope) == 42, "the layout crosses the interface");
static_assert(offsetof(InertialRecord, unused2) == 48, "the layout crosses the interface");

}  // namespace algorithm
