#include <alg_factory/stereo3d/EpipolarLines.h>

#include <cstddef>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

void drawEpipolarLines(const double (&fundamental)[9], LineDirection direction,
                       std::vector<Blob2DPoint>& blobs) {
  const double(&f)[9] = fundamental;
  const bool forward = direction == LineDirection::kLeftToRight;
  const double m[9] = {f[0], forward ? f[1] : f[3], forward ? f[2] : f[6], forward ? f[3] : f[1],
                       f[4], forward ? f[5] : f[7], forward ? f[6] : f[2], forward ? f[7] : f[5],
                       f[8]};
  // Two blobs at a time; the last of an odd number goes with itself.
  for (std::size_t i = 0; i < blobs.size(); i += 2) {
    Blob2DPoint& p = blobs[i];
    Blob2DPoint& q = blobs[i + 1 < blobs.size() ? i + 1 : i];
    const Twin x = {p.x, q.x};
    const Twin y = {p.y, q.y};
    const Twin a = m[0] * x + m[1] * y + m[2];
    const Twin b = m[3] * x + m[4] * y + m[5];
    const Twin c = m[6] * x + m[7] * y + m[8];
    const Twin n = a * a + b * b;
    const Twin length = n == 0.0 ? twin(1.0) : root(n);
    const Twin line[3] = {a / length, b / length, c / length};
    for (std::size_t k = 0; k < 3; ++k) {
      p.aux[k] = line[k][0];
      q.aux[k] = line[k][1];
    }
  }
}

}  // namespace algorithm
