#include <bindings/c/Records.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace c_interface {
namespace {

template <typename T, std::size_t N>
void copyArray(const T (&from)[N], T (&to)[N]) {
  std::copy(std::begin(from), std::end(from), std::begin(to));
}

}  // namespace

alg_block blockFrom(const algorithm::ResultBlock& block) {
  static_assert(ALG_POINTS == algorithm::ResultBlock::kRecords);
  alg_block result{};
  result.size = sizeof result;
  result.point_count = ALG_POINTS;
  result.stamp = block.header;
  for (int k = 0; k < ALG_POINTS; ++k) {
    const algorithm::TrackedPoint& from = block.records[k];
    alg_point& to = result.points[k];
    to.id = from.id;
    to.x = from.x;
    to.y = from.y;
    to.z = from.z;
    copyArray(from.hostPosition, to.host_position);
    copyArray(from.hostOrientation, to.host_orientation);
    to.reserved = from.reserved;
    to.bearing = from.bearing;
  }
  return result;
}

alg_pose poseFrom(const algorithm::PoseAnswer& answer) {
  alg_pose pose{};
  pose.id = answer.id;
  copyArray(answer.raw, pose.raw);
  copyArray(answer.rate, pose.rate);
  copyArray(answer.filtered, pose.filtered);
  return pose;
}

alg_heading headingFrom(const algorithm::HeadingAnswer& answer) {
  alg_heading heading{};
  heading.new_offset = answer.status;
  heading.value = answer.value;
  copyArray(answer.orientation, heading.orientation);
  heading.yaw = answer.yaw;
  heading.negated_corrected_yaw = answer.negatedCorrectedYaw;
  heading.score = answer.score;
  return heading;
}

algorithm::StereoCalibration calibrationFrom(const void* bytes) {
  algorithm::StereoCalibration calibration;
  std::memcpy(static_cast<void*>(&calibration), bytes, sizeof calibration);
  return calibration;
}

}  // namespace c_interface
