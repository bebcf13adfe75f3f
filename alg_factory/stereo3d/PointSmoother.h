#pragma once

#include <vector>

#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

/// Raw points of one id in the latest frames, oldest first; at most three between frames.
using PointHistory = std::vector<StereoPoint>;

constexpr std::size_t kHistoryLength = 3;

/// Pulls `point` towards the history points that are closer than `radius`, each weighted by its
/// closeness, and appends the raw point to the history.
void smoothPoint(double radius, PointHistory& history, StereoPoint& point);

/// Smooths the first point of every id; an id without a point loses its history.
void smoothPoints(double radius, std::vector<PointHistory>& historyById,
                  std::vector<StereoPoint>& points);

}  // namespace algorithm
