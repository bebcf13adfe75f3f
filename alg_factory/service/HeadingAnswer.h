// Public: installed for hosts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace algorithm {

/// Input of `HandleEvent` 16: an orientation of the two-point object, from the host.
struct OrientationSample {
  float orientation[4] = {};  ///< quaternion x, y, z, w
  std::uint64_t value = 0;    ///< returned unchanged in the answer
};

static_assert(sizeof(OrientationSample) == 24, "the size crosses the interface");
static_assert(offsetof(OrientationSample, value) == 16, "the layout crosses the interface");

/// Answer of `HandleEvent` 16: the optical heading compared with the orientation. Angles in
/// degrees.
struct HeadingAnswer {
  float orientation[4] = {};      ///< the quaternion as received
  float yaw = 0;                  ///< yaw of the quaternion
  float negatedCorrectedYaw = 0;  ///< minus (yaw - yaw offset)
  std::int32_t status = 0;        ///< 1 = new offset since the last answer, 0 = none
  std::uint32_t notWritten1 = 0;  ///< never written
  std::uint64_t value = 0;        ///< the input's value
  float score = 0;                ///< quality of the offset: 1 = best, 0 = worst
  std::uint32_t notWritten2 = 0;  ///< never written
};

static_assert(sizeof(HeadingAnswer) == 48, "the size crosses the interface");
static_assert(offsetof(HeadingAnswer, orientation) == 0, "the layout crosses the interface");
static_assert(offsetof(HeadingAnswer, yaw) == 16, "the layout crosses the interface");
static_assert(offsetof(HeadingAnswer, negatedCorrectedYaw) == 20,
              "the layout crosses the interface");
static_assert(offsetof(HeadingAnswer, status) == 24, "the layout crosses the interface");
static_assert(offsetof(HeadingAnswer, value) == 32, "the layout crosses the interface");
static_assert(offsetof(HeadingAnswer, score) == 40, "the layout crosses the interface");

}  // namespace algorithm
