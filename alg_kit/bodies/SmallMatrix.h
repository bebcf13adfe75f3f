// Products and roots of small matrices of fixed size, column by column and two numbers at a time:
// Eigen's general ones cost several times as much at these sizes, and so does what compilers make
// of plain loops.
#pragma once

#include <alg_kit/estimate/Lanes.h>

#include <Eigen/Core>
#include <cmath>
#include <cstring>

namespace bodies {

/// A column of a matrix, in registers.
template <int kRows>
class Column {
 public:
  Column() = default;
  explicit Column(const double* from) {
    for (int i = 0; i < kRows / 2; ++i) std::memcpy(&of_[i], from + 2 * i, sizeof(Two));
    if (kRows % 2 == 1) of_[kPairs - 1] = Two{from[kRows - 1], 0};
  }
  void store(double* to) const {
    for (int i = 0; i < kRows / 2; ++i) std::memcpy(to + 2 * i, &of_[i], sizeof(Two));
    if (kRows % 2 == 1) to[kRows - 1] = of_[kPairs - 1][0];
  }
  double operator[](int row) const { return of_[row / 2][row % 2]; }
  /// *this += factor other
  void add(double factor, const Column& other) {
    const Two both{factor, factor};
    for (int i = 0; i < kPairs; ++i) of_[i] = of_[i] + both * other.of_[i];
  }
  void scale(double factor) {
    const Two both{factor, factor};
    for (int i = 0; i < kPairs; ++i) of_[i] = of_[i] * both;
  }

 private:
  using Two = estimate::Two;
  static constexpr int kPairs = (kRows + 1) / 2;
  Two of_[kPairs]{};
};

/// a L; nothing above the diagonal of L is read.
template <int kRows, int kSize>
Eigen::Matrix<double, kRows, kSize> timesLower(const Eigen::Matrix<double, kRows, kSize>& a,
                                               const Eigen::Matrix<double, kSize, kSize>& lower) {
  Eigen::Matrix<double, kRows, kSize> result;
  for (int j = 0; j < kSize; ++j) {
    Column<kRows> column;
    for (int k = j; k < kSize; ++k) column.add(lower(k, j), Column<kRows>(a.col(k).data()));
    column.store(result.col(j).data());
  }
  return result;
}

/// x L^-T, in place; nothing above the diagonal of L is read.
template <int kRows, int kSize>
void divideByTransposed(Eigen::Matrix<double, kRows, kSize>& x,
                        const Eigen::Matrix<double, kSize, kSize>& lower) {
  for (int j = 0; j < kSize; ++j) {
    Column<kRows> column(x.col(j).data());
    for (int k = 0; k < j; ++k) column.add(-lower(j, k), Column<kRows>(x.col(k).data()));
    column.scale(1 / lower(j, j));
    column.store(x.col(j).data());
  }
}

/// The lower L of m = L L^T. A column of which the ones before it leave less than the share `least`
/// becomes zero; without `least`, one of which they leave nothing. Nothing above the diagonal of
/// L is set to anything that has a meaning.
/// @return whether no column is zero
template <int kSize>
bool rootOf(const Eigen::Matrix<double, kSize, kSize>& m,
            Eigen::Matrix<double, kSize, kSize>& lower, double least = 0) {
  bool whole = true;
  for (int j = 0; j < kSize; ++j) {
    Column<kSize> column(m.col(j).data());
    for (int k = 0; k < j; ++k) column.add(-lower(j, k), Column<kSize>(lower.col(k).data()));
    const double rest = column[j];
    const bool some = rest > least * m(j, j);
    whole = whole && some;
    column.scale(some ? 1 / std::sqrt(rest) : 0);
    column.store(lower.col(j).data());
  }
  return whole;
}

/// x with L x = y; 0 where a column of L is zero.
template <int kSize>
Eigen::Matrix<double, kSize, 1> solveLower(const Eigen::Matrix<double, kSize, kSize>& lower,
                                           Eigen::Matrix<double, kSize, 1> y) {
  for (int j = 0; j < kSize; ++j) {
    y[j] = lower(j, j) > 0 ? y[j] / lower(j, j) : 0;
    for (int i = j + 1; i < kSize; ++i) y[i] -= lower(i, j) * y[j];
  }
  return y;
}

}  // namespace bodies
