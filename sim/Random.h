#pragma once

#include <cstdint>
#include <random>

namespace sim {

/// Seeded generator. The engine is fixed by the standard; the distributions are our own, since the
/// standard's differ between platforms.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// One independent generator per (seed, index), so that frame n can be drawn without drawing the
  /// frames before it.
  Random(std::uint64_t seed, std::uint64_t index);

  std::uint64_t bits() { return engine_(); }
  double uniform();                         ///< [0, 1)
  double uniform(double low, double high);  ///< [low, high)
  double normal();                          ///< mean 0, standard deviation 1
  bool chance(double probability);          ///< true with that probability
  int index(int count);                     ///< 0 .. count - 1; 0 for a count below 2
  int poisson(double mean);                 ///< number of events; meant for small means

 private:
  std::mt19937_64 engine_;
};

}  // namespace sim
