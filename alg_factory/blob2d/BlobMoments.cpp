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

void groupById(const std::vector<hid::RawBlob>& rawBlobs, std::int32_t areaDivisor,
               std::vector<std::vector<Blob2DPoint>>& groups) {
  for (auto& group : groups) group.clear();
  for (const hid::RawBlob& raw : rawBlobs) {
    if (raw.weight == 0) continue;
    if (raw.id < 0 || static_cast<std::size_t>(raw.id) >= groups.size()) continue;
    groups[static_cast<std::size_t>(raw.id)].push_back(pointFromMoments(raw, areaDivisor));
  }
}

}  // namespace algorithm
