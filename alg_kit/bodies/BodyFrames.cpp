#include <alg_kit/bodies/BodyFrames.h>

#include <alg_kit/bodies/CallFrames.h>
#include <alg_kit/estimate/BlobNoise.h>
#include <alg_kit/estimate/Candidates.h>
#include <alg_kit/estimate/Information.h>
#include <alg_kit/recording/FrameRate.h>
#include <alg_kit/recording/Recording.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

namespace bodies {
namespace {

constexpr double kRaysMissMost = 25;  // squared standard deviations of one number
constexpr std::size_t kMostMisses = 200000;
constexpr double kMedianOfChi2 = 0.4549;  // one degree of freedom

/// The one place where the camera saw the marker, its halves joined.
std::optional<Eigen::Vector2d> placeIn(const estimate::CandidateList& list) {
  if (list.blobCount() == 1) return list[0].pixel;
  if (list.blobCount() == 2 && list.size() == 3) return list[2].pixel;
  return std::nullopt;
}

}  // namespace

bool frameFrom(const std::uint8_t* packet, std::size_t length, int ids, BodyFrame& frame) {
  estimate::PacketBlobs blobs;
  if (!estimate::readPacket(packet, length, ids, blobs)) return false;
  std::array<estimate::ObjectCandidates, kMostMarkers> candidates;
  for (std::size_t i = 0; i < blobs.count; ++i) {
    const estimate::Blob& blob = blobs.blobs[i];
    candidates[static_cast<std::size_t>(blob.id)][static_cast<std::size_t>(blob.camera)].add(blob);
  }
  for (std::size_t id = 0; id < kMostMarkers; ++id)
    for (const int camera : {estimate::kLeft, estimate::kRight}) {
      estimate::CandidateList& list = candidates[id][static_cast<std::size_t>(camera)];
      list.addMerged();
      frame.markers[id].pixel[camera] = placeIn(list);
    }
  return true;
}

void readFrames(const recording::RecordingReader& reader, const FrameTaker& take) {
  CallFrames frames(recording::frameRateOf(reader));
  auto entries = reader.entries();
  session::Entry entry;
  while (entries.next(entry))
    if (frames.take(entry.call)) take(frames.frame(), *frames.cameras());
  if (!frames.cameras())
    throw std::runtime_error(reader.path() + ": expected an Init with a calibration, found none");
}

double blobNoiseOf(const recording::RecordingReader& reader) {
  std::vector<double> misses;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    for (const estimate::Sighting& sighting : frame.markers) {
      if (misses.size() == kMostMisses || !sighting.both()) continue;
      const auto point = cameras.triangulate(sighting);
      const auto fit = point ? cameras.information(sighting, *point, 1) : std::nullopt;
      if (fit) misses.push_back(estimate::raysMiss(*fit));
    }
  });
  if (misses.empty()) return estimate::BlobNoise::kLeast;
  const auto middle = misses.begin() + static_cast<std::ptrdiff_t>(misses.size() / 2);
  std::nth_element(misses.begin(), middle, misses.end());
  return std::max(estimate::BlobNoise::kLeast, std::sqrt(*middle / kMedianOfChi2));
}

std::optional<MarkerPoint> pointOf(const estimate::Sighting& sighting,
                                   const estimate::PixelEquations& cameras, double noise) {
  if (!sighting.both()) return std::nullopt;
  const auto point = cameras.triangulate(sighting);
  if (!point) return std::nullopt;
  const auto fit = cameras.information(sighting, *point, noise);
  if (!fit || estimate::raysMiss(*fit) > kRaysMissMost) return std::nullopt;
  return MarkerPoint{*point, fit->weight};
}

}  // namespace bodies
