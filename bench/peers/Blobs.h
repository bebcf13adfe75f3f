#pragma once

#include <alg_factory/api/LogSink.h>
#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace peers {

constexpr int kIds = 6;

struct Blob {
  cv::Point2d centre;  ///< pixels
  cv::Vec3d line;      ///< its epipolar line in the other image
  int diameter = 0;    ///< pixels
  int id = 0;
};

struct CameraBlobs {
  std::vector<Blob> left, right;
};

/// Decodes a device packet into blobs by id and merges those that overlap. A wrong check byte is
/// reported and the records are used.
CameraBlobs decodeBlobs(const std::uint8_t* packet, std::size_t length, algorithm::LogSink& log);

}  // namespace peers
