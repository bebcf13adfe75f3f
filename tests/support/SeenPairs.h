// What a camera pair sees of points all over its view.
#pragma once

#include <alg_kit/calibration/StereoFit.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <sim/Random.h>

#include <cstddef>
#include <vector>

namespace support {

struct SeenPlace {
  Eigen::Vector3d p_R;
  calibration::ObservedPair pair;
};

/// Points 0.5 to 3 m away, all over the view of both cameras.
/// @param noise  px, standard deviation of every coordinate
inline std::vector<SeenPlace> placesAllOver(const rig::StereoRig& rig, std::size_t count,
                                            unsigned seed, double noise = 0) {
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  sim::Random random(seed);
  std::vector<SeenPlace> places;
  while (places.size() < count) {
    const double depth = random.uniform(500, 3000);
    const Eigen::Vector3d p_R(random.uniform(-1, 1) * depth, random.uniform(-1, 1) * depth, depth);
    const auto l = left.project(rig::rightToLeft(rig.calibration, p_R));
    const auto r = right.project(p_R);
    if (!l || !r) continue;
    const auto noisy = [&](const Eigen::Vector2d& p) {
      return algorithm::ImagePoint{p.x() + noise * random.normal(),
                                   p.y() + noise * random.normal()};
    };
    places.push_back({p_R, {noisy(*l), noisy(*r), 8, 8}});
  }
  return places;
}

inline std::vector<calibration::ObservedPair> pairsAllOver(const rig::StereoRig& rig,
                                                           std::size_t count, double noise,
                                                           unsigned seed) {
  std::vector<calibration::ObservedPair> pairs;
  for (const SeenPlace& place : placesAllOver(rig, count, seed, noise)) pairs.push_back(place.pair);
  return pairs;
}

}  // namespace support
