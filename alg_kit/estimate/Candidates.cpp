#include <alg_kit/estimate/Candidates.h>

#include <cmath>

namespace estimate {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kWeightPerPixel = 110;

/// Of the disc with the blob's area, in whole even pixels: the library's rule for what overlaps.
double diameterOf(double weight) {
  return 2 * std::trunc(std::sqrt(weight / kWeightPerPixel / kPi) + 0.5);
}

}  // namespace

void CandidateList::add(const Blob& blob) {
  if (blobs_ == kMostOfOneId) return;
  list_[count_++] = {{blob.sumX / blob.weight, blob.sumY / blob.weight}, blob.weight, 1u << blobs_};
  ++blobs_;
}

void CandidateList::addMerged() {
  for (std::size_t i = 0; i < blobs_; ++i)
    for (std::size_t j = i + 1; j < blobs_; ++j) {
      const Candidate &a = list_[i], &b = list_[j];
      const double reach = (diameterOf(a.weight) + diameterOf(b.weight)) / 2;
      if (!((a.pixel - b.pixel).squaredNorm() < reach * reach)) continue;
      const double weight = a.weight + b.weight;
      list_[count_++] = {(a.weight * a.pixel + b.weight * b.pixel) / weight, weight,
                         a.blobs | b.blobs};
    }
}

const Candidate* CandidateList::nearest(const Eigen::Vector2d& pixel, std::uint32_t taken) const {
  const Candidate* best = nullptr;
  double least = HUGE_VAL;
  for (std::size_t i = 0; i < count_; ++i) {
    if ((list_[i].blobs & taken) != 0) continue;
    const double distance2 = (list_[i].pixel - pixel).squaredNorm();
    if (distance2 < least) {
      least = distance2;
      best = &list_[i];
    }
  }
  return best;
}

}  // namespace estimate
