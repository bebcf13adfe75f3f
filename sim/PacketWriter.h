#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_kit/rig/StereoRig.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

/// One blob as the camera's hardware reports it: its id and moments.
struct BlobRecord {
  int id = 0;  ///< 0 to 15 on the wire
  rig::Camera camera = rig::Camera::kLeft;
  std::uint32_t weight = 0;  ///< zeroth moment, 24 bits on the wire
  std::uint32_t sumX = 0;    ///< first moment: x in pixels = sumX / weight
  std::uint32_t sumY = 0;    ///< first moment: y in pixels = sumY / weight
};

constexpr std::size_t kRecordBytes = 12;
constexpr std::size_t kFrameBytes = algorithm::kMaxPacketSize;  ///< what the device sends at most
constexpr std::size_t kMaxPacketRecords = 42;  ///< as many records as fit, with start and check
constexpr std::size_t kInertialBytes = sizeof(algorithm::InertialRecord);

/// A device packet: leading bytes, 0xAA 0x55, the records, the check byte (sum of all bytes before
/// it, modulo 256). Longer packets than the device sends are written as asked for.
Bytes devicePacket(const std::vector<BlobRecord>& records, const Bytes& leading = {});

/// As above, into storage that is kept.
void writeDevicePacket(const std::vector<BlobRecord>& records, Bytes& packet);

/// Any bytes followed by their check byte: packets that devicePacket would not write.
Bytes withCheckByte(Bytes bytes);

/// Payload of stream type 2: the stamp (microseconds, little-endian), then the packet.
Bytes frameType2(std::uint32_t stamp, const Bytes& packet);

/// Flips the bits of `mask` in one byte; the check byte stays, so it no longer fits.
void corruptByte(Bytes& packet, std::size_t position, std::uint8_t mask = 0xFF);

/// Makes the check byte (the last byte) wrong and leaves the rest.
void spoilCheckByte(Bytes& packet);

/// Payload of stream types 1, 3 and 4: the record's 56 bytes, little-endian.
Bytes inertialPayload(const algorithm::InertialRecord& record);

/// Payload of stream type 5.
Bytes sideHintPayload(std::int32_t hint);

}  // namespace sim
