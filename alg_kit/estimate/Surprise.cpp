#include <alg_kit/estimate/Surprise.h>

#include <algorithm>

namespace estimate {
namespace {

constexpr double kMost = 36;  // per sighting; more is an outlier of one model
constexpr int kMemory = 500;  // sightings
constexpr int kFirst = 50;    // ... that are taken to be as stated
constexpr int kPosition = 3;  // numbers that a position has; what a sighting has more is noise

}  // namespace

void Surprise::add(double distance2, int numbers) {
  if (numbers == 0) return;
  ++count_;
  const double share = 1.0 / std::min(count_ + kFirst, kMemory);
  const int noise = std::max(numbers - kPosition, 0);
  squares_ += share * (std::min(distance2, kMost) - noise - squares_);
  numbers_ += share * (numbers - noise - numbers_);
}

double Surprise::factor() const {
  return std::max(1.0, squares_ / numbers_);
}

}  // namespace estimate
