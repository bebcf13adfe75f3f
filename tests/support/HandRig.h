// A camera pair and device packets whose numbers can be worked out by hand.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include <alg_factory/stereo3d/StereoCalibration.h>

namespace testing_support {

using Bytes = std::vector<std::uint8_t>;

// Two equal cameras that look along z, the left one `kBaseline` mm to the left of the right one.
// Without distortion coefficients the fisheye model is r = theta.
constexpr double kFocal = 256;     ///< pixels
constexpr double kCentre = 256;    ///< pixels, x and y
constexpr double kBaseline = 100;  ///< mm

inline algorithm::StereoCalibration handCalibration(double baseline = kBaseline) {
  algorithm::StereoCalibration c;
  const double k[9] = {kFocal, 0, kCentre, 0, kFocal, kCentre, 0, 0, 1};
  // The epipolar lines are the image rows: F (x, y, 1) = (0, 1, -y).
  const double f[9] = {0, 0, 0, 0, 0, 1, 0, -1, 0};
  for (int i = 0; i < 9; ++i) {
    c.leftIntrinsics[i] = c.rightIntrinsics[i] = k[i];
    c.rotation[i] = i % 4 == 0 ? 1 : 0;
    c.fundamental[i] = f[i];
  }
  c.translation[0] = -baseline;
  return c;
}

/// So heavy that a centre is exact to 1e-7 px (a position to 1e-5 mm); 312 px wide.
constexpr std::uint32_t kHeavy = 1u << 23;
/// 10 px wide: two of them 68 mm apart at 800 mm do not merge. Positions exact to some 0.01 mm.
constexpr std::uint32_t kSmall = 8192;

/// A marker at a position in the right camera's frame (x right, y down, z forward; mm).
struct Marker {
  int id;
  double x, y, z;
  std::uint32_t weight = kHeavy;
};

inline void appendBlob(int camera, int id, std::uint32_t weight, double x, double y, Bytes& bytes) {
  const auto put = [&](std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  };
  put(weight, 3);
  bytes.push_back(static_cast<std::uint8_t>(camera << 4 | id));
  put(static_cast<std::uint32_t>(std::llround(x * weight)), 4);
  put(static_cast<std::uint32_t>(std::llround(y * weight)), 4);
}

/// Appends the marker's blob as one camera (0 = left, 1 = right) sees it.
inline void appendView(int camera, const Marker& marker, double baseline, Bytes& bytes) {
  const double x = (marker.x + (camera == 0 ? baseline : 0)) / marker.z;
  const double y = marker.y / marker.z;
  const double rho = std::hypot(x, y);
  const double scale = rho == 0 ? 1 : std::atan(rho) / rho;
  appendBlob(camera, marker.id, marker.weight, kCentre + kFocal * scale * x,
             kCentre + kFocal * scale * y, bytes);
}

/// Appends the check byte: the sum of all bytes before it.
inline Bytes closed(Bytes bytes) {
  std::uint8_t sum = 0;
  for (const std::uint8_t byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
  bytes.push_back(sum);
  return bytes;
}

/// The device packet of a frame in which both cameras see all markers.
inline Bytes packetOf(const std::vector<Marker>& markers, double baseline = kBaseline) {
  Bytes bytes = {0xAA, 0x55};
  for (const Marker& marker : markers) {
    appendView(0, marker, baseline, bytes);
    appendView(1, marker, baseline, bytes);
  }
  return closed(bytes);
}

/// Payload of stream type 2.
inline Bytes stamped(std::uint32_t stamp, const Bytes& packet) {
  Bytes bytes(4);
  for (std::size_t i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(stamp >> (8 * i));
  for (const std::uint8_t byte : packet) bytes.push_back(byte);
  return bytes;
}

}  // namespace testing_support
