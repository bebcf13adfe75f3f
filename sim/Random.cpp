#include <sim/Pi.h>
#include <sim/Random.h>

#include <cmath>

namespace sim {
namespace {

// Neighbouring seeds and indices must not give neighbouring engines (splitmix64's finalizer).
std::uint64_t mixed(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15u;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
  return value ^ (value >> 31);
}

}  // namespace

Random::Random(std::uint64_t seed, std::uint64_t index) : engine_(mixed(mixed(seed) + index)) {}

double Random::uniform() {
  // 53 bits fill a double's mantissa exactly.
  return static_cast<double>(bits() >> 11) * (1.0 / 9007199254740992.0);
}

double Random::uniform(double low, double high) {
  return low + (high - low) * uniform();
}

double Random::normal() {
  const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));
  return radius * std::cos(2 * kPi * uniform());
}

// A draw is made in any case, so that one switched-off effect does not shift the draws of others.
bool Random::chance(double probability) {
  return uniform() < probability;
}

int Random::index(int count) {
  if (count < 2) return 0;
  return static_cast<int>(uniform() * count);
}

int Random::poisson(double mean) {
  const double limit = std::exp(-mean);
  int events = 0;
  for (double product = uniform(); product > limit; product *= uniform()) ++events;
  return events;
}

}  // namespace sim
