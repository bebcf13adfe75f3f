#include <alg_factory/stereo3d/EpipolarMatcher.h>

#include <cmath>
#include <limits>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

void NeighbourTable::reserve(std::size_t blobs) {
  if (blobs <= squares_.size()) return;
  const std::size_t even = blobs + blobs % 2;
  for (Camera* camera : {&left_, &right_}) {
    camera->x.resize(even);
    camera->y.resize(even);
    camera->nearest.resize(even);
  }
  squares_.resize(even);  // last: its size says that there is room
}

void NeighbourTable::Camera::takeCentres(const Blob2DPoint* blobs, std::size_t size) {
  Twin sum = twin(0.0);
  for (std::size_t n = 0; n < size; ++n) sum += centreOf(blobs[n]);
  const Twin mean = sum / static_cast<double>(size);
  double* const toX = x.data();
  double* const toY = y.data();
  for (std::size_t n = 0; n < size; ++n) {
    const Twin centre = centreOf(blobs[n]) - mean;
    toX[n] = centre[0];
    toY[n] = centre[1];
  }
  if (size % 2 != 0) toX[size] = toY[size] = std::numeric_limits<double>::infinity();
}

void NeighbourTable::fill(const Blob2DPoint* left, const Blob2DPoint* right, std::size_t size) {
  reserve(size);
  left_.takeCentres(left, size);
  right_.takeCentres(right, size);
  findNearest(left_, right_, size, squares_.data());
  findNearest(right_, left_, size, squares_.data());
}

void NeighbourTable::findNearest(Camera& of, const Camera& among, std::size_t size,
                                 double* squares) {
  const double* const xs = among.x.data();
  const double* const ys = among.y.data();
  std::size_t* const nearestOf = of.nearest.data();
  for (std::size_t n = 0; n < size; ++n) {
    const double x = of.x[n], y = of.y[n];
    Twin least = twin(std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < size; i += 2) {
      const Twin dx = load(xs + i) - x;
      const Twin dy = load(ys + i) - y;
      const Twin here = dx * dx + dy * dy;
      least = here < least ? here : least;
      store(here, squares + i);
    }
    std::size_t nearest = 0;
    if (!std::isnan(squares[0])) {  // nothing is less than what is not a number
      const double leastOfAll = least[1] < least[0] ? least[1] : least[0];
      while (!(squares[nearest] <= leastOfAll)) ++nearest;
    }
    nearestOf[n] = nearest;
  }
}

}  // namespace algorithm
