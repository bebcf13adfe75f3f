#include <alg_factory/hid/IMUProtocol.h>

#include <cmath>
#include <cstring>

namespace hid {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr float kHalfPi = 1.5707964f;

/// `scaled` is an angle in radians already multiplied by +-180 in single precision.
float toDegrees(float scaled) {
  return static_cast<float>(static_cast<double>(scaled) / kPi);
}

}  // namespace

std::uint16_t IMUProtocol::readU16(const std::uint8_t* bytes, std::int32_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::uint32_t IMUProtocol::readU32(const std::uint8_t* bytes, std::int32_t offset) {
  return std::uint32_t{readU16(bytes, offset)} | std::uint32_t{readU16(bytes, offset + 2)} << 16;
}

float IMUProtocol::readFloat(const std::uint8_t* bytes, std::int32_t offset) {
  const std::uint32_t bits = readU32(bytes, offset);
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

std::uint64_t IMUProtocol::readU64(const std::uint8_t* bytes, std::int32_t offset) {
  std::uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | bytes[offset + i];
  return value;
}

float IMUProtocol::asinClamped(float s) {
  if (std::isnan(s)) return 0.0f;
  if (s >= 1.0f) return kHalfPi;
  if (s <= -1.0f) return -kHalfPi;
  return std::asin(s);
}

ImuSample& IMUProtocol::decodeSample(const std::uint8_t* bytes, ImuSample& sample) const {
  sample.stamp = readU32(bytes, 0);
  const float w = sample.qw = readFloat(bytes, 4);
  const float x = sample.qx = readFloat(bytes, 8);
  const float y = sample.qy = readFloat(bytes, 12);
  const float z = sample.qz = readFloat(bytes, 16);

  sample.roll =
      toDegrees(std::atan2(2.0f * (z * y + x * w), 1.0f - 2.0f * (y * y + x * x)) * -180.0f);
  sample.pitch = toDegrees(asinClamped(2.0f * (y * w - z * x)) * 180.0f);
  sample.yaw =
      toDegrees(std::atan2(2.0f * (y * x + z * w), 1.0f - 2.0f * (y * y + z * z)) * -180.0f);

  for (int i = 0; i < 9; ++i) sample.raw[i] = readU16(bytes, 20 + 2 * i);
  return sample;
}

}  // namespace hid
