#include <alg_kit/bodies/BodyTracks.h>

#include <alg_kit/bodies/BodySmoother.h>
#include <alg_kit/bodies/PairSight.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>

namespace bodies {
namespace {

/// @param last  the latest pose: it tells a pair's ends apart, and nothing else
std::optional<BodyPose> singlePoseOf(const Body& body, const BodyFrame& frame,
                                     const estimate::PixelEquations& cameras, double noise,
                                     const std::optional<RigidMotion>& last) {
  if (!body.isPair()) return poseOf(body, frame, cameras, noise);
  const auto told = toldApart(frame, body, cameras, noise);
  auto pose = told ? poseOf(body, *told, cameras, noise) : std::nullopt;
  if (!pose || !last) return pose;
  const Eigen::Vector3d axis = axisOf(body);
  if ((pose->motion.orientation * axis).dot(last->orientation * axis) < 0)
    pose->motion = otherWayRound(body, pose->motion);
  return pose;
}

void trackEach(const recording::RecordingReader& reader, const std::vector<Body>& bodies,
               double noise, const BodyRowTaker& take) {
  std::vector<std::optional<RigidMotion>> last(bodies.size());
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    for (std::size_t b = 0; b < bodies.size(); ++b) {
      const auto pose = singlePoseOf(bodies[b], frame, cameras, noise, last[b]);
      if (!pose) continue;
      last[b] = pose->motion;
      TrackedPose tracked;
      tracked.source = estimate::Source::kMeasured;
      tracked.pose = *pose;
      take({frame.call, frame.packet, frame.time, b, delivered(tracked)});
    }
  });
}

void trackLive(const recording::RecordingReader& reader, const std::vector<Body>& bodies,
               double noise, double ahead, const BodyRowTaker& take) {
  std::vector<BodyFilter> filters(bodies.begin(), bodies.end());
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    for (std::size_t b = 0; b < bodies.size(); ++b) {
      filters[b].feed(frame, cameras, noise);
      const TrackedPose pose = filters[b].ahead(ahead);
      if (pose.source != estimate::Source::kNone)
        take({frame.call, frame.packet, frame.time + ahead, b, delivered(pose)});
    }
  });
}

/// The frames of one Init.
struct Stretch {
  std::optional<estimate::PixelEquations> cameras;
  std::vector<BodyFrame> frames;
};

void smoothAll(const Stretch& stretch, const std::vector<Body>& bodies, double noise,
               const BodyRowTaker& take) {
  std::vector<BodyRow> rows;
  for (std::size_t b = 0; b < bodies.size(); ++b)
    smoothBody(bodies[b], stretch.frames, *stretch.cameras, noise, {},
               [&](std::size_t k, const TrackedPose& pose) {
                 const BodyFrame& frame = stretch.frames[k];
                 rows.push_back({frame.call, frame.packet, frame.time, b, delivered(pose)});
               });
  std::sort(rows.begin(), rows.end(), [](const BodyRow& a, const BodyRow& b) {
    return std::tie(a.call, a.body) < std::tie(b.call, b.body);
  });
  for (const BodyRow& row : rows) take(row);
}

void trackSmoothed(const recording::RecordingReader& reader, const std::vector<Body>& bodies,
                   double noise, const BodyRowTaker& take) {
  Stretch stretch;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    if (!stretch.frames.empty() && stretch.frames.back().init != frame.init) {
      smoothAll(stretch, bodies, noise, take);
      stretch.frames.clear();
    }
    if (stretch.frames.empty()) stretch.cameras = cameras;
    stretch.frames.push_back(frame);
  });
  if (!stretch.frames.empty()) smoothAll(stretch, bodies, noise, take);
}

}  // namespace

double trackBodies(const recording::RecordingReader& reader, const std::vector<Body>& bodies,
                   const BodyTrackOptions& options, const BodyRowTaker& take) {
  const double noise = options.noise > 0 ? options.noise : blobNoiseOf(reader);
  switch (options.manner) {
    case Manner::kLive:
      trackLive(reader, bodies, noise, options.ahead, take);
      break;
    case Manner::kSmoothed:
      trackSmoothed(reader, bodies, noise, take);
      break;
    case Manner::kSingle:
      trackEach(reader, bodies, noise, take);
      break;
  }
  return noise;
}

std::array<double, 6> deviationsOf(const BodyPose& pose) {
  std::array<double, 6> result{};
  for (std::size_t i = 0; i < 6; ++i) {
    const auto k = static_cast<Eigen::Index>(i);
    result[i] = std::sqrt(pose.covariance(k, k)) * (i < 3 ? 1 : kDegrees);
  }
  return result;
}

std::vector<BodyPose> posesOf(const recording::RecordingReader& reader, const Body& body,
                              double noise) {
  std::vector<BodyPose> poses;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    if (const auto pose = poseOf(body, frame, cameras, noise)) poses.push_back(*pose);
  });
  return poses;
}

}  // namespace bodies
