// A body as the built-in rig sees it, without a recording.
#pragma once

#include <alg_kit/bodies/BodyFrames.h>
#include <alg_kit/bodies/BodyLearning.h>
#include <alg_kit/bodies/RigidFit.h>
#include <alg_kit/rig/StereoRig.h>
#include <sim/Random.h>
#include <sim/SmoothMotion.h>

#include <vector>

namespace testing_support {

constexpr double kNoise = 0.05;       // px
constexpr double kPeriod = 1.0 / 90;  // s

inline const estimate::PixelEquations& builtInCameras() {
  static const estimate::PixelEquations cameras(rig::builtInRig().calibration);
  return cameras;
}

/// Six markers, no two distances alike, within 60 mm of the origin.
inline bodies::Body sixMarkers() {
  bodies::Body body;
  body.name = "tool";
  const double places[6][3] = {{50, 0, 0},    {-40, 20, 5},    {-10, -45, 10},
                               {10, 35, -30}, {-45, -20, -25}, {30, 30, 40}};
  for (int id = 0; id < 6; ++id)
    body.markers.push_back({id, Eigen::Vector3d(places[id]), Eigen::Vector3d::Zero()});
  return body;
}

inline bodies::Body firstMarkers(std::size_t count) {
  bodies::Body body = sixMarkers();
  body.markers.resize(count);
  return body;
}

/// A two-point object.
inline bodies::Body pairOfMarkers() {
  bodies::Body body;
  body.name = "stick";
  body.markers = {{bodies::kPairId, Eigen::Vector3d(-150, 0, 0)},
                  {bodies::kSecondOfPair, Eigen::Vector3d(150, 0, 0)}};
  return body;
}

/// A hand's motion about 1.5 m in front.
inline bodies::RigidMotion handAt(double seconds) {
  static const sim::SmoothMotion motion = sim::SmoothMotion::handheld(3);
  const sim::Pose pose = motion.at(seconds);
  return {pose.orientation, pose.position + Eigen::Vector3d(0, 0, 1500)};
}

/// About 1.5 m in front, anyhow turned.
inline bodies::RigidMotion drawMotion(sim::Random& random) {
  bodies::RigidMotion motion;
  motion.orientation =
      Eigen::Quaterniond(random.normal(), random.normal(), random.normal(), random.normal())
          .normalized();
  motion.position = {random.uniform(-200, 200), random.uniform(-200, 200),
                     random.uniform(1300, 1700)};
  return motion;
}

/// What both cameras see of the body; noise in pixels.
inline bodies::BodyFrame seen(const bodies::Body& body, const bodies::RigidMotion& motion,
                              double noise, sim::Random& random) {
  bodies::BodyFrame frame;
  for (const bodies::BodyMarker& marker : body.markers)
    for (const int camera : {estimate::kLeft, estimate::kRight}) {
      const auto image = builtInCameras().project(camera, motion * marker.position);
      const Eigen::Vector2d off(noise * random.normal(), noise * random.normal());
      if (image)
        frame.markers[static_cast<std::size_t>(marker.id)].pixel[camera] = image->pixel + off;
    }
  return frame;
}

inline void hide(bodies::BodyFrame& frame, int id) {
  frame.markers[static_cast<std::size_t>(id)] = {};
}

/// As bodies::pointsOf has it of a recording.
inline bodies::FramePoints pointsIn(const bodies::BodyFrame& frame, double noise) {
  bodies::FramePoints result;
  for (std::size_t id = 0; id < bodies::kMostMarkers; ++id)
    if (const auto point = bodies::pointOf(frame.markers[id], builtInCameras(), noise)) {
      result.ids.push_back(static_cast<int>(id));
      result.points.push_back(*point);
    }
  return result;
}

}  // namespace testing_support
