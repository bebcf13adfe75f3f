#pragma once

#include <cstddef>
#include <cstdint>

namespace algorithm {

/// Payload of stream types 1, 3 and 4, little-endian. Note the order of the counts: the record
/// holds the accelerometer first.
struct InertialRecord {
  std::uint8_t unused1[8] = {};        ///< not used
  float q[4] = {};                     ///< orientation q0 to q3, passed through to the result block
  float p[3] = {};                     ///< position p0 to p2, passed through to the result block
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
