// The same tracking job, put together from OpenCV 4 as its users would: what the library is
// measured against. Product type 2, plain device packets, filters with small measurement noise.
// Only plain types cross this boundary: the peers have compile options, and an Eigen, of their own.
#pragma once

#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#define PEERS_EXPORT __attribute__((visibility("default")))

namespace peers {

class PEERS_EXPORT Peer {
 public:
  virtual ~Peer() = default;

  /// Tracks one device packet and hands an algorithm::ResultBlock to the sink.
  virtual void inputPacket(const std::uint8_t* packet, std::size_t length) = 0;

  /// The filtered position of an object, mirrored as in the block; false before it was ever seen.
  virtual bool filteredPosition(int object, double (&position)[3]) const = 0;
};

/// P1: fisheye undistortion, correspondence lines, Matx and six cv::KalmanFilter.
PEERS_EXPORT std::unique_ptr<Peer> makeOpenCvPeer(const algorithm::StereoCalibration& calibration,
                                                  algorithm::DataSink& data,
                                                  algorithm::LogSink& log);

/// P2: the same with six fixed-size Eigen filters.
PEERS_EXPORT std::unique_ptr<Peer> makeEigenFilterPeer(
    const algorithm::StereoCalibration& calibration, algorithm::DataSink& data,
    algorithm::LogSink& log);

}  // namespace peers
