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

PairBlobs pairIn(const estimate::CandidateList& list) {
  PairBlobs blobs;
  if (const auto one = placeIn(list)) {
    blobs.pixel[0] = *one;
    blobs.count = 1;
  } else if (list.blobCount() == 2) {
    blobs.pixel = {list[0].pixel, list[1].pixel};
    blobs.count = 2;
  }
  return blobs;
}

/// A pair's markers, in order of x: the two cameras see them in different orders only where they
/// look along its line.
std::array<estimate::Sighting, 2> likelySightings(const BodyFrame& frame) {
  std::array<estimate::Sighting, 2> result;
  for (const int camera : {estimate::kLeft, estimate::kRight}) {
    const PairBlobs& blobs = frame.pair[static_cast<std::size_t>(camera)];
    if (blobs.count != 2) continue;
    const std::size_t first = blobs.pixel[0].x() <= blobs.pixel[1].x() ? 0 : 1;
    result[0].pixel[camera] = blobs.pixel[first];
    result[1].pixel[camera] = blobs.pixel[1 - first];
  }
  return result;
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
      if (id == kPairId) frame.pair[static_cast<std::size_t>(camera)] = pairIn(list);
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

void eachMiss(const BodyFrame& frame, const estimate::PixelEquations& cameras,
              const std::function<void(double)>& take) {
  const auto look = [&](const estimate::Sighting& sighting) {
    const auto point = sighting.both() ? cameras.triangulate(sighting) : std::nullopt;
    const auto fit = point ? cameras.information(sighting, *point, 1) : std::nullopt;
    if (fit) take(estimate::raysMiss(*fit));
  };
  for (const estimate::Sighting& sighting : frame.markers) look(sighting);
  for (const estimate::Sighting& sighting : likelySightings(frame)) look(sighting);
}

double blobNoiseOf(const recording::RecordingReader& reader) {
  std::vector<double> misses;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    if (misses.size() >= kMostMisses) return;
    eachMiss(frame, cameras, [&](double miss) { misses.push_back(miss); });
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
