#include <alg_kit/bodies/BodyAbsence.h>

#include <alg_kit/bodies/BodyPose.h>
#include <alg_kit/bodies/PairSight.h>

#include <algorithm>
#include <array>
#include <optional>

namespace bodies {
namespace {

/// Packets, by what became of the body's markers.
struct Sights {
  std::int64_t packets = 0;
  std::array<std::int64_t, kMostMarkers> seen{};  ///< by place in the body
  std::int64_t enough = 0;                        ///< as many as a pose needs, by both cameras
  std::int64_t raysApart = 0;  ///< of them: the cameras' rays of too many miss each other
  std::int64_t offShape = 0;   ///< of them: the places are not those of the shape
};

void addPair(const BodyFrame& frame, const Body& pair, const estimate::PixelEquations& cameras,
             double noise, Sights& sights) {
  const PairBlobs &left = frame.pair[estimate::kLeft], &right = frame.pair[estimate::kRight];
  if (left.count > 0 || right.count > 0) ++sights.seen[0], ++sights.seen[1];
  if (left.count != 2 || right.count != 2) return;
  ++sights.enough;
  if (!toldApart(frame, pair, cameras, noise)) ++sights.offShape;
}

void addMarkers(const BodyFrame& frame, const Body& body, const estimate::PixelEquations& cameras,
                double noise, Sights& sights) {
  int both = 0, points = 0;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    const auto& sighting = frame.markers[static_cast<std::size_t>(body.markers[i].id)];
    if (sighting.any()) ++sights.seen[i];
    if (sighting.both()) ++both;
    if (pointOf(sighting, cameras, noise)) ++points;
  }
  if (both < 3) return;
  ++sights.enough;
  if (points < 3)
    ++sights.raysApart;
  else if (!poseOf(body, frame, cameras, noise))
    ++sights.offShape;
}

std::string neverSeen(const Body& body, const Sights& sights) {
  std::string ids;
  int count = 0;
  for (std::size_t i = 0; i < body.markers.size(); ++i) {
    const std::string id = std::to_string(body.blobIdOf(body.markers[i]));
    if (sights.seen[i] > 0 || ids == id) continue;  // a pair's two have one
    ids += (ids.empty() ? "" : ", ") + id;
    ++count;
  }
  if (ids.empty()) return {};
  return (count == 1 ? "id " : "ids ") + ids + (count == 1 ? " was" : " were") + " never seen";
}

std::string refused(const Body& body, const Sights& sights) {
  const auto counted = [](std::int64_t count, const char* what) {
    return std::to_string(count) + " " + what;
  };
  const std::string off = counted(sights.offShape, "off shape");
  const std::string apart = counted(sights.raysApart, "whose rays from the two cameras miss");
  std::string text = "of " + std::to_string(sights.enough) + " packets with " +
                     (body.isPair() ? "both markers" : "three markers or more") +
                     " in both cameras ";
  const bool shape = sights.offShape >= sights.raysApart;
  text += shape ? off : apart;
  if (std::min(sights.offShape, sights.raysApart) > 0) text += ", " + (shape ? apart : off);
  return text;
}

}  // namespace

std::string whyNoPose(const recording::RecordingReader& reader, const Body& body, double noise) {
  Sights sights;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    ++sights.packets;
    if (body.isPair())
      addPair(frame, body, cameras, noise, sights);
    else
      addMarkers(frame, body, cameras, noise, sights);
  });
  if (sights.packets == 0)
    return "no packet with a start word and a right check byte comes behind an Init";
  const std::string never = neverSeen(body, sights);
  if (sights.enough > 0) return refused(body, sights) + (never.empty() ? "" : "; " + never);
  if (!never.empty()) return never;
  return body.isPair() ? "never two blobs of id " + std::to_string(kPairId) + " in both cameras"
                       : "never three of its markers in both cameras at once";
}

}  // namespace bodies
