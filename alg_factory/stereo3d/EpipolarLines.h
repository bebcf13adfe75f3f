#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/stereo3d/ImagePoint.h>

namespace algorithm {

/// Which image the points lie in: the line of a left point p is F p, of a right point q is F^T q.
enum class LineDirection { kLeftToRight, kRightToLeft };

/// Replaces `lines` by the normalised epipolar line, in the other image, of every point.
/// @param fundamental  F, row by row
/// @param direction    which image `points` lie in
/// @param points       undistorted pixels
/// @param[out] lines   as many as `points`, in their order
void epipolarLines(const double (&fundamental)[9], LineDirection direction,
                   const std::vector<ImagePoint>& points, std::vector<ImageLine>& lines);

/// Writes each blob's undistorted centre and line (into `aux`) and appends a copy to the list of
/// its id. Blobs whose id has no list are left out. Precondition: the three lists are equally long.
void sortById(std::vector<Blob2DPoint>& blobs, const std::vector<ImagePoint>& undistorted,
              const std::vector<ImageLine>& lines, std::vector<std::vector<Blob2DPoint>>& byId);

}  // namespace algorithm
