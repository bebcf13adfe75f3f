#include <alg_factory/blob2d/BlobMoments.h>

#include <cmath>

namespace algorithm {

namespace {
constexpr double kPi = 3.141592653589793;
constexpr double kMaxRadius = 1 << 28;
}  // namespace

int blobDiameter(std::uint32_t weight, std::int32_t areaDivisor) {
  const double radius = std::sqrt(static_cast<double>(weight) / areaDivisor / kPi) + 0.5;
  if (std::isnan(radius)) return 0;
  return 2 * static_cast<std::int32_t>(radius < kMaxRadius ? radius : kMaxRadius);
}

Blob2DPoint pointFromMoments(const hid::RawBlob& raw, std::int32_t areaDivisor) {
  Blob2DPoint point;
  point.x = static_cast<double>(raw.sumX) / static_cast<double>(raw.weight);
  point.y = static_cast<double>(raw.sumY) / static_cast<double>(raw.weight);
  point.diameter = blobDiameter(raw.weight, areaDivisor);
  point.id = raw.id;
  return point;
}

void measureBlobs(const std::vector<hid::RawBlob>& rawBlobs, std::int32_t areaDivisor,
                  std::vector<Blob2DPoint>& blobs) {
  blobs.resize(rawBlobs.size());
  for (std::size_t i = 0; i < rawBlobs.size(); ++i) {
    const hid::RawBlob& raw = rawBlobs[i];
    blobs[i] = raw.weight == 0 ? Blob2DPoint() : pointFromMoments(raw, areaDivisor);
  }
}

}  // namespace algorithm
