// Products and roots of small matrices of fixed size, column by column: Eigen's general ones cost
// several times as much at these sizes.
#pragma once

#include <Eigen/Core>
#include <cmath>

namespace bodies {

template <int kRows, int kInner, int kColumns>
Eigen::Matrix<double, kRows, kColumns> times(const Eigen::Matrix<double, kRows, kInner>& a,
                                             const Eigen::Matrix<double, kInner, kColumns>& b) {
  Eigen::Matrix<double, kRows, kColumns> result;
  for (int j = 0; j < kColumns; ++j) {
    double column[kRows] = {};
    for (int k = 0; k < kInner; ++k)
      for (int i = 0; i < kRows; ++i) column[i] += a(i, k) * b(k, j);
    for (int i = 0; i < kRows; ++i) result(i, j) = column[i];
  }
  return result;
}

/// a^T a, both halves.
template <int kRows, int kSize>
Eigen::Matrix<double, kSize, kSize> squareOf(const Eigen::Matrix<double, kRows, kSize>& a) {
  Eigen::Matrix<double, kSize, kSize> result;
  for (int j = 0; j < kSize; ++j)
    for (int i = j; i < kSize; ++i) {
      double sum = 0;
      for (int k = 0; k < kRows; ++k) sum += a(k, i) * a(k, j);
      result(i, j) = result(j, i) = sum;
    }
  return result;
}

/// The lower L of m = L L^T; nothing above the diagonal is read.
/// @return false if `m` is not positive definite: `lower` is not to be used
template <int kSize>
bool rootOf(const Eigen::Matrix<double, kSize, kSize>& m,
            Eigen::Matrix<double, kSize, kSize>& lower) {
  double rest[kSize][kSize];  // m without what the columns so far explain
  for (int j = 0; j < kSize; ++j)
    for (int i = 0; i < kSize; ++i) rest[j][i] = i < j ? 0 : m(i, j);
  for (int j = 0; j < kSize; ++j) {
    if (!(rest[j][j] > 0)) return false;
    const double scale = 1 / std::sqrt(rest[j][j]);
    for (int i = 0; i < kSize; ++i) lower(i, j) = rest[j][i] * scale;
    for (int k = j + 1; k < kSize; ++k)
      for (int i = k; i < kSize; ++i) rest[k][i] -= lower(i, j) * lower(k, j);
  }
  return true;
}

/// x L^-T, in place.
template <int kRows, int kSize>
void divideByTransposed(Eigen::Matrix<double, kRows, kSize>& x,
                        const Eigen::Matrix<double, kSize, kSize>& lower) {
  for (int j = 0; j < kSize; ++j) {
    for (int k = 0; k < j; ++k)
      for (int i = 0; i < kRows; ++i) x(i, j) -= x(i, k) * lower(j, k);
    const double scale = 1 / lower(j, j);
    for (int i = 0; i < kRows; ++i) x(i, j) *= scale;
  }
}

}  // namespace bodies
