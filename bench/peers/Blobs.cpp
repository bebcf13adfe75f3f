#include <bench/peers/Blobs.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace peers {

namespace {

constexpr std::size_t kRecordBytes = 12;
constexpr double kAreaDivisor = 110;

std::uint32_t readU32(const std::uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

Blob blobFromMoments(int id, double weight, double sumX, double sumY) {
  Blob blob;
  blob.id = id;
  blob.centre = {sumX / weight, sumY / weight};
  blob.diameter = 2 * static_cast<int>(std::sqrt(weight / kAreaDivisor / CV_PI) + 0.5);
  return blob;
}

void mergeOverlapping(std::vector<Blob>& blobs) {
  std::sort(blobs.begin(), blobs.end(),
            [](const Blob& a, const Blob& b) { return a.diameter > b.diameter; });
  for (std::size_t j = 0; j < blobs.size(); ++j) {
    for (std::size_t k = j + 1; k < blobs.size();) {
      if ((blobs[j].diameter + blobs[k].diameter) * 0.5 >
          cv::norm(blobs[k].centre - blobs[j].centre)) {
        blobs[j].centre = (blobs[j].centre + blobs[k].centre) * 0.5;
        blobs.erase(blobs.begin() + static_cast<std::ptrdiff_t>(k));
      } else {
        ++k;
      }
    }
  }
}

std::vector<Blob> mergedById(const std::vector<Blob>& blobs) {
  std::vector<std::vector<Blob>> groups(kIds);
  for (const Blob& blob : blobs) groups[static_cast<std::size_t>(blob.id)].push_back(blob);
  std::vector<Blob> merged;
  merged.reserve(blobs.size());
  for (std::vector<Blob>& group : groups) {
    mergeOverlapping(group);
    merged.insert(merged.end(), group.begin(), group.end());
  }
  return merged;
}

}  // namespace

CameraBlobs decodeBlobs(const std::uint8_t* packet, std::size_t length, algorithm::LogSink& log) {
  constexpr std::uint8_t kStart[] = {0xAA, 0x55};
  const std::uint8_t* const check = packet + length - 1;
  const std::uint8_t* position = std::search(packet, check, kStart, kStart + 2);
  if (position == check) {
    log.Log(3, "no start word\n");
    return {};
  }
  if (static_cast<std::uint8_t>(std::accumulate(packet, check, 0u)) != *check) {
    log.Log(3, "wrong check byte\n");
  }

  std::vector<Blob> left, right;
  for (position += 2; position + kRecordBytes <= check; position += kRecordBytes) {
    const std::uint32_t first = readU32(position);
    const std::uint32_t weight = first & 0xFFFFFF;
    const int camera = static_cast<int>(first >> 28);
    const int id = static_cast<int>(first >> 24 & 0xF);
    if (weight == 0 || camera > 1 || id >= kIds) continue;
    (camera == 0 ? left : right)
        .push_back(blobFromMoments(id, weight, readU32(position + 4), readU32(position + 8)));
  }
  return {mergedById(left), mergedById(right)};
}

}  // namespace peers
