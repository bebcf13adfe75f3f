#include <alg_kit/estimate/BlobNoise.h>

#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

constexpr double kOutlier2 = 9;           // in variances
constexpr double kKeptOfNormal = 0.9950;  // E[min(z^2, 9)] of a standard normal z
constexpr long kMemory = 500;             // sightings
constexpr long kFirst = 10;

}  // namespace

void BlobNoise::add(double raysMiss2) {
  if (!(raysMiss2 >= 0)) return;
  ++count_;
  const double share = 1.0 / static_cast<double>(std::min(count_ + kFirst, kMemory));
  const double square = std::min(raysMiss2, kOutlier2 * variance_) / kKeptOfNormal;
  variance_ = std::clamp(variance_ + share * (square - variance_), kLeast * kLeast, kMost * kMost);
}

double BlobNoise::value() const {
  return std::sqrt(variance_);
}

}  // namespace estimate
