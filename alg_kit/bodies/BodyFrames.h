// What a pair of cameras saw of marked bodies, frame by frame.
#pragma once

#include <alg_kit/bodies/Body.h>
#include <alg_kit/estimate/PixelEquations.h>

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace recording {
class RecordingReader;
}

namespace bodies {

/// The blobs of the two-point object's id in one camera: one, or two that do not overlap. Which
/// marker a blob is, it does not say. Of more, nobody knows which are the markers': none.
struct PairBlobs {
  std::array<Eigen::Vector2d, 2> pixel;
  int count = 0;
};

/// One frame: of every id what each camera saw for certain. Where a camera saw several blobs of an
/// id that do not overlap, nobody knows which is the marker: it counts as not seen.
struct BodyFrame {
  std::int64_t call = 0;
  std::int64_t packet = 0;  ///< number among the packets, from 0
  int init = 0;             ///< number of the Init whose cameras saw it
  double time = 0;          ///< seconds since the recording's first call
  /// Seconds since the frame before, by the device's stamps where it has them; 0 = it is the first,
  /// or the device or its cameras began anew.
  double elapsed = 0;
  std::array<estimate::Sighting, kMostMarkers> markers;  ///< by id
  std::array<PairBlobs, 2> pair;                         ///< by camera
};

using FrameTaker = std::function<void(const BodyFrame&, const estimate::PixelEquations&)>;

/// Every packet with a good check byte that is not late, in order, with the cameras of the latest
/// Init.
/// @throws recording::RecordingError; std::runtime_error, in one line, if there is no Init with a
///         calibration
void readFrames(const recording::RecordingReader& reader, const FrameTaker& take);

/// A frame from the blobs of a packet.
/// @return false if the packet cannot be trusted
bool frameFrom(const std::uint8_t* packet, std::size_t length, int ids, BodyFrame& frame);

/// By how much the cameras' rays missed each other, px^2, for every marker that both saw: of its
/// four numbers one is noise alone.
void eachMiss(const BodyFrame& frame, const estimate::PixelEquations& cameras,
              const std::function<void(double)>& take);

/// The blobs' noise, from by how much the cameras' rays miss each other: of a pair's four numbers
/// one is noise alone. The median: a few wrong pairs do not move it.
/// @return px, standard deviation of a centre's x and of its y; at least
/// estimate::BlobNoise::kLeast
double blobNoiseOf(const recording::RecordingReader& reader);

/// A marker that both cameras saw.
struct MarkerPoint {
  Eigen::Vector3d position = Eigen::Vector3d::Zero();  ///< right camera's frame
  Eigen::Matrix3d weight = Eigen::Matrix3d::Zero();    ///< information: inverse covariance
};

/// Nothing where the rays do not meet: the two are images of different things.
std::optional<MarkerPoint> pointOf(const estimate::Sighting& sighting,
                                   const estimate::PixelEquations& cameras, double noise);

}  // namespace bodies
