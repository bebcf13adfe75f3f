#pragma once

#include <cmath>
#include <cstring>

namespace algorithm {

/// Two numbers that go through the same operations side by side, each rounded as if alone: what one
/// vector register of every platform holds. Conditions select lane by lane: `a < b ? c : d`.
using Twin = double __attribute__((vector_size(16)));

inline Twin twin(double value) {
  return Twin{value, value};
}

inline Twin load(const double* from) {
  Twin t;
  std::memcpy(&t, from, sizeof t);
  return t;
}

inline void store(Twin t, double* to) {
  std::memcpy(to, &t, sizeof t);
}

inline Twin root(Twin t) {
  return Twin{std::sqrt(t[0]), std::sqrt(t[1])};
}

}  // namespace algorithm
