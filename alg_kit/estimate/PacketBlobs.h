// The blobs of a device packet, as docs/byte-formats.md lays it out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace estimate {

/// A blob's moments: its centre in pixels of the raw image is (sumX, sumY) / weight.
struct Blob {
  int camera = 0;  ///< 0 left, 1 right
  int id = 0;
  double weight = 0;  ///< above 0
  double sumX = 0;
  double sumY = 0;
};

constexpr std::size_t kMostBlobs = 42;  ///< a packet of 512 bytes has no room for more

struct PacketBlobs {
  std::array<Blob, kMostBlobs> blobs;
  std::size_t count = 0;
};

/// Reads the packet's blobs of the ids below `ids`. Any bytes are safe.
/// @return false without a start word or with a wrong check byte: some byte is not what the device
///         sent, and one in a moment would move a centre by an unknown amount
bool readPacket(const std::uint8_t* packet, std::size_t length, int ids, PacketBlobs& result);

}  // namespace estimate
