#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// Raw positions of one id in the latest frames, oldest first.
class PointHistory {
 public:
  struct Position {
    double x, y, z;
  };
  static constexpr std::size_t kLength = 3;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Position operator[](std::size_t i) const { return {x_[i], y_[i], z_[i]}; }
  Position back() const { return (*this)[size_ - 1]; }
  void clear() { size_ = 0; }

  /// The oldest goes where there is no more room.
  void push(const Position& position) {
    if (size_ == kLength) {
      for (double* list : {x_, y_, z_}) std::copy(list + 1, list + kLength, list);
      --size_;
    }
    x_[size_] = position.x;
    y_[size_] = position.y;
    z_[size_] = position.z;
    ++size_;
  }

  static constexpr std::size_t kRoom = 4;  ///< two registers of two
  /// Distances of the positions from `position`; what lies beyond `size` has no meaning.
  std::array<double, kRoom> distancesFrom(const Position& position) const;

 private:
  // Coordinate by coordinate, so that two positions are looked at together.
  double x_[kRoom] = {}, y_[kRoom] = {}, z_[kRoom] = {};
  std::size_t size_ = 0;
};

/// Pulls `point` towards the history points that are closer than `radius`, each weighted by its
/// closeness, and appends the raw point to the history.
void smoothPoint(double radius, PointHistory& history, StereoPoint& point);

/// Smooths the first point of every id; an id without a point loses its history. Points come id by
/// id.
void smoothPoints(double radius, std::vector<PointHistory>& historyById,
                  std::vector<StereoPoint>& points);

}  // namespace algorithm
