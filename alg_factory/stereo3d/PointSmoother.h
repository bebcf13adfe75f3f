#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// Raw positions of one id in the latest frames, oldest first.
class PointHistory {
 public:
  struct Position {
    double x = 0.0, y = 0.0, z = 0.0;
  };
  static constexpr std::size_t kLength = 3;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const Position& operator[](std::size_t i) const { return positions_[i]; }
  const Position& back() const { return positions_[size_ - 1]; }
  void clear() { size_ = 0; }

  /// The oldest goes where there is no more room.
  void push(const Position& position) {
    if (size_ == kLength) {
      for (std::size_t i = 1; i < kLength; ++i) positions_[i - 1] = positions_[i];
      --size_;
    }
    positions_[size_++] = position;
  }

 private:
  std::array<Position, kLength> positions_;
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
