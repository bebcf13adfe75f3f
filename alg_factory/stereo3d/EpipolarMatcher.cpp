#include <alg_factory/stereo3d/EpipolarMatcher.h>

#include <cmath>
#include <limits>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

namespace {

/// Distance in pixels of `point` from the line that `owner` carries.
double distanceFromLine(const Blob2DPoint& owner, const Blob2DPoint& point) {
  const double(&line)[3] = owner.aux;
  return std::fabs(line[0] * point.x + line[1] * point.y + line[2]) /
         std::sqrt(line[0] * line[0] + line[1] * line[1]);
}

/// Index of the first of `count` values, `stride` apart, that is `value`; 0 where none is.
std::size_t firstOf(const double* values, std::size_t stride, std::size_t count, double value) {
  for (std::size_t i = 0; i < count; ++i, values += stride) {
    if (*values == value) return i;
  }
  return 0;
}

}  // namespace

double epipolarDistance(const Blob2DPoint& left, const Blob2DPoint& right) {
  return (distanceFromLine(left, right) + distanceFromLine(right, left)) / 2;
}

void NeighbourTable::reserve(std::size_t blobs) {
  if (blobs <= leastOfRow_.size()) return;
  const std::size_t even = blobs + blobs % 2;
  for (auto* list : {&leftX_, &leftY_, &rightX_, &rightY_, &leastOfColumn_}) list->resize(even);
  squares_.resize(blobs * even);
  leastOfRow_.resize(blobs);  // last: its size says that there is room
}

/// Replaces `x` and `y` by the blobs' centres relative to their mean. What fills an odd number up
/// is farther than everything.
void NeighbourTable::centre(const std::vector<Blob2DPoint>& blobs, IndexSpan group,
                            std::vector<double>& x, std::vector<double>& y) {
  double sumX = 0.0, sumY = 0.0;
  for (const std::uint32_t i : group) {
    sumX += blobs[i].x;
    sumY += blobs[i].y;
  }
  const double meanX = sumX / static_cast<double>(group.size);
  const double meanY = sumY / static_cast<double>(group.size);
  if (group.size % 2 != 0) x[group.size] = y[group.size] = std::numeric_limits<double>::infinity();
  for (std::size_t n = 0; n < group.size; ++n) {
    x[n] = blobs[group[n]].x - meanX;
    y[n] = blobs[group[n]].y - meanY;
  }
}

void NeighbourTable::fill(const StereoBlobs& blobs, IndexSpan left, IndexSpan right) {
  const std::size_t stride = left.size + left.size % 2;
  size_ = left.size;
  stride_ = stride;
  reserve(left.size);
  centre(blobs.left, left, leftX_, leftY_);
  centre(blobs.right, right, rightX_, rightY_);
  const auto squares = [this](std::size_t i, std::size_t j) {
    const Twin dx = load(&rightX_[j]) - leftX_[i];
    const Twin dy = load(&rightY_[j]) - leftY_[i];
    return dx * dx + dy * dy;
  };
  double* const leastOfColumn = leastOfColumn_.data();
  for (std::size_t j = 0; j < stride; j += 2) store(squares(0, j), leastOfColumn + j);
  for (std::size_t i = 0; i < left.size; ++i) {
    double* const row = squares_.data() + i * stride;
    // Where the first is not a number nothing is less: both lanes begin with it.
    Twin least = twin(squares(i, 0)[0]);
    for (std::size_t j = 0; j < stride; j += 2) {
      const Twin here = squares(i, j), above = load(leastOfColumn + j);
      store(here, row + j);
      least = here < least ? here : least;
      store(here < above ? here : above, leastOfColumn + j);
    }
    leastOfRow_[i] = least[1] < least[0] ? least[1] : least[0];
  }
}

std::size_t NeighbourTable::nearestRight(std::size_t i) const {
  return firstOf(squares_.data() + i * stride_, 1, size_, leastOfRow_[i]);
}

std::size_t NeighbourTable::nearestLeft(std::size_t j) const {
  return firstOf(squares_.data() + j, stride_, size_, leastOfColumn_[j]);
}

}  // namespace algorithm
