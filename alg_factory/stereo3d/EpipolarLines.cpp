#include <alg_factory/stereo3d/EpipolarLines.h>

#include <cmath>

namespace algorithm {

namespace {

ImageLine normalised(ImageLine line) {
  const double n = line.a * line.a + line.b * line.b;
  if (n == 0.0) return line;
  const double length = std::sqrt(n);
  return {line.a / length, line.b / length, line.c / length};
}

}  // namespace

void epipolarLines(const double (&fundamental)[9], LineDirection direction,
                   const std::vector<ImagePoint>& points, std::vector<ImageLine>& lines) {
  const double(&f)[9] = fundamental;
  const bool forward = direction == LineDirection::kLeftToRight;
  const double m[9] = {f[0], forward ? f[1] : f[3], forward ? f[2] : f[6], forward ? f[3] : f[1],
                       f[4], forward ? f[5] : f[7], forward ? f[6] : f[2], forward ? f[7] : f[5],
                       f[8]};
  lines.resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const auto& [x, y] = points[i];
    lines[i] = normalised({m[0] * x + m[1] * y + m[2],  //
                           m[3] * x + m[4] * y + m[5],  //
                           m[6] * x + m[7] * y + m[8]});
  }
}

void sortById(std::vector<Blob2DPoint>& blobs, const std::vector<ImagePoint>& undistorted,
              const std::vector<ImageLine>& lines, std::vector<std::vector<Blob2DPoint>>& byId) {
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    Blob2DPoint& blob = blobs[i];
    blob.x = undistorted[i].x;
    blob.y = undistorted[i].y;
    blob.aux[0] = lines[i].a;
    blob.aux[1] = lines[i].b;
    blob.aux[2] = lines[i].c;
    if (blob.id < 0 || static_cast<std::size_t>(blob.id) >= byId.size()) continue;
    byId[static_cast<std::size_t>(blob.id)].push_back(blob);
  }
}

}  // namespace algorithm
