#pragma once

#include <cstdint>

namespace hid {

/// A decoded 38-byte inertial record.
struct ImuSample {
  std::uint64_t stamp = 0;               ///< the record's 32-bit stamp, widened with zeros
  float qx = 0, qy = 0, qz = 0, qw = 0;  ///< orientation
  float yaw = 0, pitch = 0, roll = 0;    ///< degrees; yaw and roll are negated, pitch is not
  std::uint16_t raw[9] = {};             ///< copied unchanged
};

/// Decoder of the inertial unit's records:
/// stamp u32, quaternion w x y z (floats), nine 16-bit values; little-endian.
class IMUProtocol {
 public:
  static constexpr int kRecordSize = 38;

  virtual ~IMUProtocol() = default;

  /// Fills `sample` from the 38 bytes at `bytes` and returns it.
  ImuSample& decodeSample(const std::uint8_t* bytes, ImuSample& sample) const;

  // Byte readers, without bounds checks.
  static std::uint16_t readU16(const std::uint8_t* bytes, std::int32_t offset);  ///< little-endian
  static float readFloat(const std::uint8_t* bytes, std::int32_t offset);        ///< little-endian
  static std::uint32_t readU32(const std::uint8_t* bytes, std::int32_t offset);  ///< little-endian
  /// Big-endian, unlike the others, by design.
  static std::uint64_t readU64(const std::uint8_t* bytes, std::int32_t offset);

 private:
  static float asinClamped(float s);
};

}  // namespace hid
