#include <alg_factory/blob2d/BlobMoments.h>

#include <cmath>

namespace algorithm {

namespace {
constexpr double kPi = 3.141592653589793;
constexpr double kMaxRadius = 1 << 28;
}  // namespace

int blobDiameter(std::uint32_t weight, std::int32_t areaDivisor) {
  const double radius = std::sqrt(static_cast<double>(weight) / areaDivisor / kPi) + 0.5;
  if (radius < kMaxRadius) return 2 * static_cast<std::int32_t>(radius);
  return std::isnan(radius) ? 0 : 2 * static_cast<std::int32_t>(kMaxRadius);
}

namespace {

void measure(const hid::RawBlob& raw, std::int32_t areaDivisor, Blob2DPoint& point) {
  const auto weight = static_cast<double>(raw.weight);
  point.x = static_cast<double>(raw.sumX) / weight;
  point.y = static_cast<double>(raw.sumY) / weight;
  point.diameter = blobDiameter(raw.weight, areaDivisor);
  point.id = raw.id;
}

}  // namespace

Blob2DPoint pointFromMoments(const hid::RawBlob& raw, std::int32_t areaDivisor) {
  Blob2DPoint point;
  measure(raw, areaDivisor, point);
  return point;
}

void measureBlobs(const std::vector<hid::RawBlob>& rawBlobs,
                  const std::vector<std::uint32_t>& which, std::int32_t areaDivisor,
                  std::vector<Blob2DPoint>& blobs) {
  blobs.clear();
  const hid::RawBlob* const raw = rawBlobs.data();
  for (const std::uint32_t i : which) measure(raw[i], areaDivisor, blobs.emplace_back());
}

}  // namespace algorithm
