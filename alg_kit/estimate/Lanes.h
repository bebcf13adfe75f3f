// One number for each motion model.
#pragma once

#include <alg_kit/estimate/MotionModels.h>

#include <Eigen/Core>
#include <array>

namespace estimate {

/// Two numbers that one instruction reckons with. Without it compilers put numbers of different
/// matrix elements together, and spend more on that than they save.
#if defined(__GNUC__)
using Two = double __attribute__((vector_size(16)));
#else
struct Two {
  double of[2];
  double& operator[](int i) { return of[i]; }
  double operator[](int i) const { return of[i]; }
  friend Two operator+(Two a, Two b) { return {{a.of[0] + b.of[0], a.of[1] + b.of[1]}}; }
  friend Two operator-(Two a, Two b) { return {{a.of[0] - b.of[0], a.of[1] - b.of[1]}}; }
  friend Two operator*(Two a, Two b) { return {{a.of[0] * b.of[0], a.of[1] * b.of[1]}}; }
  friend Two operator/(Two a, Two b) { return {{a.of[0] / b.of[0], a.of[1] / b.of[1]}}; }
  friend Two operator-(Two a) { return {{-a.of[0], -a.of[1]}}; }
};
#endif

/// A scalar for Eigen's matrices: reckons for all models at once.
struct Lanes {
  Lanes() = default;
  Lanes(double all) : low{all, all}, high{all, all} {}
  Lanes(Two first, Two second) : low(first), high(second) {}
  explicit Lanes(const std::array<double, kModels>& x) : low{x[0], x[1]}, high{x[2], x[3]} {}

  double operator[](int m) const { return m < 2 ? low[m] : high[m - 2]; }
  void set(int m, double value) { (m < 2 ? low : high)[m & 1] = value; }
  std::array<double, kModels> all() const { return {low[0], low[1], high[0], high[1]}; }
  double sum() const {
    const Two halves = low + high;
    return halves[0] + halves[1];
  }

  friend Lanes operator+(Lanes a, Lanes b) { return {a.low + b.low, a.high + b.high}; }
  friend Lanes operator-(Lanes a, Lanes b) { return {a.low - b.low, a.high - b.high}; }
  friend Lanes operator*(Lanes a, Lanes b) { return {a.low * b.low, a.high * b.high}; }
  friend Lanes operator/(Lanes a, Lanes b) { return {a.low / b.low, a.high / b.high}; }
  friend Lanes operator-(Lanes a) { return {-a.low, -a.high}; }
  Lanes& operator+=(Lanes b) { return *this = *this + b; }
  Lanes& operator-=(Lanes b) { return *this = *this - b; }
  Lanes& operator*=(Lanes b) { return *this = *this * b; }
  Lanes& operator/=(Lanes b) { return *this = *this / b; }

  Two low, high;
};
static_assert(kModels == 4, "Lanes are four");

}  // namespace estimate

namespace Eigen {
template <>
struct NumTraits<estimate::Lanes> : GenericNumTraits<estimate::Lanes> {
  using Real = estimate::Lanes;
  using NonInteger = estimate::Lanes;
  using Nested = estimate::Lanes;
  using Literal = estimate::Lanes;
  enum {
    IsComplex = 0,
    IsInteger = 0,
    IsSigned = 1,
    RequireInitialization = 0,
    ReadCost = estimate::kModels,
    AddCost = estimate::kModels,
    MulCost = estimate::kModels
  };
};
}  // namespace Eigen
