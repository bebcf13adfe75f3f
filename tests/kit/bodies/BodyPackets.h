// Device packets of a body that the built-in rig sees.
#pragma once

#include <sim/PacketWriter.h>
#include <tests/kit/bodies/SeenBody.h>

#include <cmath>
#include <vector>

namespace testing_support {

/// The moments round a centre by less than 1/20000 px; a pair's, whose blobs must not overlap, by
/// less than 1/200 px.
inline sim::Bytes packetOf(const bodies::BodyFrame& frame) {
  const std::uint32_t weight = frame.markers[bodies::kSecondOfPair].any() ? 200 : 20000;
  const auto moment = [weight](double centre) {
    return static_cast<std::uint32_t>(std::lround(centre * weight));
  };
  std::vector<sim::BlobRecord> blobs;
  for (std::size_t id = 0; id < bodies::kMostMarkers; ++id)
    for (const int camera : {estimate::kLeft, estimate::kRight})
      if (const auto& pixel = frame.markers[id].pixel[camera])
        blobs.push_back({id == bodies::kSecondOfPair ? bodies::kPairId : static_cast<int>(id),
                         camera == estimate::kLeft ? rig::Camera::kLeft : rig::Camera::kRight,
                         weight, moment(pixel->x()), moment(pixel->y())});
  return sim::devicePacket(blobs);
}

/// Turned by 120 degrees about no axis of the frame, 1.5 m in front.
inline bodies::RigidMotion leaning() {
  bodies::RigidMotion motion;
  motion.orientation = Eigen::Quaterniond(0.5, 0.5, -0.1, 0.7);  // w x y z
  motion.position = {100, -50, 1500};
  return motion;
}

}  // namespace testing_support
