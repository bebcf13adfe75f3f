// The functions of the C library that the tracking uses, from sums, products, quotients and square
// roots alone, which every processor rounds alike. A program that links this file instead of the
// platform's functions gives the same bits everywhere, unless something else differs.
// Good to about 1e-15; the headers of the C library are left out because they declare the same
// names.

#include <cstdint>

namespace {

constexpr double kHalfPi = 1.57079632679489661923;

/// Sum of (-1)^n x^(2n + odd) / (2n + odd)! for |x| <= pi / 4.
double alternatingSeries(double x, int odd) {
  double term = odd == 1 ? x : 1.0;
  double sum = term;
  for (int n = 1; n <= 11; ++n) {
    const int k = 2 * n + odd;
    term = -term * x * x / (k * (k - 1));
    sum = sum + term;
  }
  return sum;
}

void sineAndCosine(double x, double& sine, double& cosine) {
  if (!(x > -1e9 && x < 1e9)) {
    sine = cosine = x - x;
    return;
  }
  const auto quarters = static_cast<std::int64_t>(x / kHalfPi + (x < 0 ? -0.5 : 0.5));
  const double rest = x - static_cast<double>(quarters) * kHalfPi;
  const double s = alternatingSeries(rest, 1), c = alternatingSeries(rest, 0);
  switch (quarters & 3) {
    case 0:
      sine = s, cosine = c;
      break;
    case 1:
      sine = c, cosine = -s;
      break;
    case 2:
      sine = -s, cosine = -c;
      break;
    default:
      sine = -c, cosine = s;
      break;
  }
}

double arcTangent(double x) {
  if (x != x) return x;
  if (x < 0) return -arcTangent(-x);
  if (x > 1) return kHalfPi - arcTangent(1 / x);
  for (int n = 0; n < 2; ++n) x = x / (1 + __builtin_sqrt(1 + x * x));  // half the angle, twice
  double power = x, sum = x;
  for (int k = 3; k < 40; k += 2) {
    power = -power * x * x;
    sum = sum + power / k;
  }
  return 4 * sum;
}

double arcTangent(double y, double x) {
  if (x != x || y != y) return x + y;
  if (x > 0) return arcTangent(y / x);
  if (x < 0) return arcTangent(y / x) + (y < 0 ? -2 : 2) * kHalfPi;
  if (y == 0) return 0;
  return y < 0 ? -kHalfPi : kHalfPi;
}

}  // namespace

extern "C" {

double tan(double x) noexcept {
  double sine, cosine;
  sineAndCosine(x, sine, cosine);
  return sine / cosine;
}
double atan(double x) noexcept {
  return arcTangent(x);
}
double atan2(double y, double x) noexcept {
  return arcTangent(y, x);
}
float atan2f(float y, float x) noexcept {
  return static_cast<float>(arcTangent(y, x));
}
float asinf(float x) noexcept {
  const double s = x;
  return static_cast<float>(arcTangent(s, __builtin_sqrt(1 - s * s)));
}
float sinf(float x) noexcept {
  double sine, cosine;
  sineAndCosine(x, sine, cosine);
  return static_cast<float>(sine);
}
float cosf(float x) noexcept {
  double sine, cosine;
  sineAndCosine(x, sine, cosine);
  return static_cast<float>(cosine);
}
// Compilers join a sine and a cosine of one angle.
void sincosf(float x, float* sine, float* cosine) noexcept {
  *sine = sinf(x);
  *cosine = cosf(x);
}

}  // extern "C"
