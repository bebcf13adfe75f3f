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
  lines.clear();
  for (const auto& [x, y] : points) {
    if (direction == LineDirection::kLeftToRight) {
      lines.push_back(normalised({f[0] * x + f[1] * y + f[2],  //
                                  f[3] * x + f[4] * y + f[5],  //
                                  f[6] * x + f[7] * y + f[8]}));
    } else {
      lines.push_back(normalised({f[0] * x + f[3] * y + f[6],  //
                                  f[1] * x + f[4] * y + f[7],  //
                                  f[2] * x + f[5] * y + f[8]}));
    }
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
