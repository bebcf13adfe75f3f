#include <alg_factory/blob2d/BlobMerger.h>

#include <cmath>
#include <limits>

#include <alg_factory/blob2d/Twin.h>
#include <alg_factory/hid/PacketDecoder.h>

namespace algorithm {

double centreDistance(const Blob2DPoint& a, const Blob2DPoint& b) {
  const double dy = b.y - a.y;
  const double dx = b.x - a.x;
  return std::sqrt(dy * dy + dx * dx);
}

bool overlap(const Blob2DPoint& a, const Blob2DPoint& b) {
  const double limit = meanDiameter(a, b);
  // Most are far apart, and no root is needed: rounded roots of sums at or above the squared limit
  // are never below the limit.
  const double dy = b.y - a.y;
  const double dx = b.x - a.x;
  return dy * dy + dx * dx < limit * limit && limit > centreDistance(a, b);
}

bool mayOverlap(const std::vector<Blob2DPoint>& blobs, IndexSpan group) {
  constexpr std::size_t kRoom = (hid::kMaxRecords + 1) / 2;
  if (group.size > 2 * kRoom) return true;  // more than a packet holds
  Twin x[kRoom], y[kRoom], half[kRoom];
  for (std::size_t i = 0; i < group.size; ++i) {
    const Blob2DPoint& blob = blobs[group[i]];
    x[i / 2][i % 2] = blob.x;
    y[i / 2][i % 2] = blob.y;
    half[i / 2][i % 2] = blob.diameter * 0.5;
  }
  const std::size_t twins = (group.size + 1) / 2;
  if (group.size % 2 != 0) {  // a blob that overlaps nothing fills the last place
    x[twins - 1][1] = y[twins - 1][1] = std::numeric_limits<double>::infinity();
    half[twins - 1][1] = 0.0;
  }
  // Rounded roots of sums at or above the squared limit are never below the limit. A blob is its
  // own neighbour, too, in the twin that it shares.
  const auto close = [&](std::size_t j, std::size_t twin) {
    const Twin dx = x[twin] - x[j / 2][j % 2];
    const Twin dy = y[twin] - y[j / 2][j % 2];
    const Twin limit = half[twin] + half[j / 2][j % 2];
    return dy * dy + dx * dx < limit * limit;
  };
  decltype(close(0, 0)) any = {0, 0};
  for (std::size_t j = 0; j + 1 < group.size; ++j) {
    if (j % 2 == 0 && close(j, j / 2)[1] != 0) return true;
    for (std::size_t twin = j / 2 + 1; twin < twins; ++twin) any |= close(j, twin);
  }
  return any[0] != 0 || any[1] != 0;
}

}  // namespace algorithm
