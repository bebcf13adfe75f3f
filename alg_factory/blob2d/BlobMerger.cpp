#include <alg_factory/blob2d/BlobMerger.h>

#include <cmath>

#include <alg_factory/blob2d/StableSort.h>

namespace algorithm {

bool overlap(const Blob2DPoint& a, const Blob2DPoint& b) {
  const double dy = b.y - a.y;
  const double dx = b.x - a.x;
  const double distance = std::sqrt(dy * dy + dx * dx);
  return (a.diameter + b.diameter) * 0.5 > distance;
}

void mergeOverlapping(std::vector<Blob2DPoint>& group) {
  if (group.size() < 2) return;
  sortByDiameter(group);
  for (std::size_t j = 0; j < group.size(); ++j) {
    for (std::size_t k = j + 1; k < group.size();) {
      if (overlap(group[j], group[k])) {
        group[j].x = (group[j].x + group[k].x) * 0.5;
        group[j].y = (group[j].y + group[k].y) * 0.5;
        group.erase(group.begin() + static_cast<std::ptrdiff_t>(k));
      } else {
        ++k;
      }
    }
  }
}

}  // namespace algorithm
