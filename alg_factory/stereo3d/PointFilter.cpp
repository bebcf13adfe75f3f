#include <alg_factory/stereo3d/PointFilter.h>

#include <algorithm>

namespace algorithm {

void meansById(const std::vector<StereoPoint>& points, std::vector<PointMean>& means) {
  std::fill(means.begin(), means.end(), PointMean());
  for (const StereoPoint& point : points) {
    if (point.id >= 0 && static_cast<std::size_t>(point.id) < means.size()) {
      means[static_cast<std::size_t>(point.id)].add(point);
    }
  }
  for (PointMean& mean : means) mean.divide();
}

}  // namespace algorithm
