#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>

namespace algorithm {

/// Which image the points lie in: the line of a left point p is F p, of a right point q is F^T q.
enum class LineDirection { kLeftToRight, kRightToLeft };

/// Writes into each blob's `aux` its epipolar line a x + b y + c = 0 in the other image, normalised
/// so that a^2 + b^2 = 1 and |a x + b y + c| is the distance of (x, y) in pixels. A line without
/// direction (a = b = 0) is not divided.
/// @param fundamental  F, row by row
/// @param direction    which image the blobs lie in
/// @param blobs        centres in undistorted pixels
void drawEpipolarLines(const double (&fundamental)[9], LineDirection direction,
                       std::vector<Blob2DPoint>& blobs);

}  // namespace algorithm
