#include <alg_factory/hid/IMUProtocol.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>

namespace {

using hid::IMUProtocol;
using hid::ImuSample;
using testing::ElementsAre;

constexpr double kPi = 3.14159265358979323846;

using Record = std::array<std::uint8_t, IMUProtocol::kRecordSize>;

void putFloat(Record& record, std::size_t offset, float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  for (std::size_t i = 0; i < 4; ++i) {
    record[offset + i] = static_cast<std::uint8_t>(bits >> (8 * i));
  }
}

ImuSample decodeQuaternion(float w, float x, float y, float z) {
  Record record{};
  putFloat(record, 4, w);
  putFloat(record, 8, x);
  putFloat(record, 12, y);
  putFloat(record, 16, z);
  ImuSample sample;
  IMUProtocol().decodeSample(record.data(), sample);
  return sample;
}

TEST(IMUProtocol, HasAVirtualDestructorAndNoData) {
  EXPECT_TRUE(std::has_virtual_destructor_v<IMUProtocol>);
  EXPECT_EQ(sizeof(IMUProtocol), sizeof(void*));
}

TEST(IMUProtocol, RecordFieldsAreWhereTheLayoutSays) {
  const Record record = {0x04, 0x03, 0x02, 0x01,                                // stamp
                         0x00, 0x00, 0x80, 0x3F,                                // w 1
                         0x00, 0x00, 0x00, 0x40,                                // x 2
                         0x00, 0x00, 0x40, 0xC0,                                // y -3
                         0x00, 0x00, 0x80, 0x3E,                                // z 0.25
                         0x01, 0x00, 0x02, 0x01, 0xFE, 0xFF, 0x00, 0x80, 0x05,  // nine values
                         0x00, 0x06, 0x00, 0x07, 0x00, 0x08, 0x00, 0xAD, 0xDE};
  ImuSample sample;
  ImuSample& result = IMUProtocol().decodeSample(record.data(), sample);
  EXPECT_EQ(&result, &sample);
  EXPECT_EQ(sample.stamp, 0x01020304u);
  EXPECT_EQ(sample.qw, 1.0f);
  EXPECT_EQ(sample.qx, 2.0f);
  EXPECT_EQ(sample.qy, -3.0f);
  EXPECT_EQ(sample.qz, 0.25f);
  EXPECT_THAT(sample.raw, ElementsAre(0x0001, 0x0102, 0xFFFE, 0x8000, 5, 6, 7, 8, 0xDEAD));
}

TEST(IMUProtocol, StampIsWidenedWithZeros) {
  Record record{};
  record[0] = 0x01;
  record[3] = 0x80;
  ImuSample sample;
  sample.stamp = ~std::uint64_t{0};
  IMUProtocol().decodeSample(record.data(), sample);
  EXPECT_EQ(sample.stamp, 0x0000000080000001u);
}

TEST(IMUProtocol, EveryFieldIsOverwritten) {
  ImuSample sample;
  sample.stamp = 9;
  sample.qx = sample.qy = sample.qz = sample.qw = 9;
  sample.yaw = sample.pitch = sample.roll = 9;
  for (auto& value : sample.raw) value = 9;
  Record record{};
  putFloat(record, 4, 1.0f);
  IMUProtocol().decodeSample(record.data(), sample);
  EXPECT_EQ(sample.stamp, 0u);
  EXPECT_EQ(sample.qw, 1.0f);
  EXPECT_EQ(sample.qx, 0.0f);
  EXPECT_EQ(sample.qy, 0.0f);
  EXPECT_EQ(sample.qz, 0.0f);
  EXPECT_EQ(sample.yaw, 0.0f);
  EXPECT_EQ(sample.pitch, 0.0f);
  EXPECT_EQ(sample.roll, 0.0f);
  EXPECT_THAT(sample.raw, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(IMUProtocol, RecordMayBeUnaligned) {
  std::array<std::uint8_t, IMUProtocol::kRecordSize + 1> bytes{};
  bytes[1] = 7;          // stamp
  bytes[1 + 7] = 0x3F;   // w 0.5
  bytes[1 + 36] = 0x0B;  // last value
  ImuSample sample;
  IMUProtocol().decodeSample(bytes.data() + 1, sample);
  EXPECT_EQ(sample.stamp, 7u);
  EXPECT_EQ(sample.qw, 0.5f);
  EXPECT_EQ(sample.raw[8], 0x0B);
}

TEST(IMUProtocol, IdentityHasNoAngles) {
  const ImuSample sample = decodeQuaternion(1, 0, 0, 0);
  EXPECT_EQ(sample.yaw, 0.0f);
  EXPECT_EQ(sample.pitch, 0.0f);
  EXPECT_EQ(sample.roll, 0.0f);
}

TEST(IMUProtocol, RollAndYawAreNegatedAndPitchIsNot) {
  // Thirty degrees about one axis each: cosine and sine of fifteen degrees.
  const float c = 0.9659258f;
  const float s = 0.25881904f;
  const ImuSample aboutX = decodeQuaternion(c, s, 0, 0);
  EXPECT_NEAR(aboutX.roll, -30.0, 1e-4);
  EXPECT_EQ(aboutX.pitch, 0.0f);
  EXPECT_EQ(aboutX.yaw, 0.0f);
  const ImuSample aboutY = decodeQuaternion(c, 0, s, 0);
  EXPECT_EQ(aboutY.roll, 0.0f);
  EXPECT_NEAR(aboutY.pitch, 30.0, 1e-4);
  EXPECT_EQ(aboutY.yaw, 0.0f);
  const ImuSample aboutZ = decodeQuaternion(c, 0, 0, s);
  EXPECT_EQ(aboutZ.roll, 0.0f);
  EXPECT_EQ(aboutZ.pitch, 0.0f);
  EXPECT_NEAR(aboutZ.yaw, -30.0, 1e-4);
}

TEST(IMUProtocol, RollAndYawCoverTheFullTurn) {
  // 150 degrees: cosine and sine of 75.
  EXPECT_NEAR(decodeQuaternion(0.25881904f, 0.9659258f, 0, 0).roll, -150.0, 1e-4);
  EXPECT_NEAR(decodeQuaternion(0.25881904f, 0, 0, -0.9659258f).yaw, 150.0, 1e-4);
}

TEST(IMUProtocol, ThirdOfATurnAboutTheDiagonal) {
  // All components one half: 2 (1/4 + 1/4) = 1 over 1 - 2 (1/4 + 1/4) = 0, a right angle exactly.
  const ImuSample sample = decodeQuaternion(0.5f, 0.5f, 0.5f, 0.5f);
  EXPECT_EQ(sample.roll, -90.0f);
  EXPECT_EQ(sample.pitch, 0.0f);
  EXPECT_EQ(sample.yaw, -90.0f);
}

// Builds the quaternion from its three angles, which the decoder must give back.
TEST(IMUProtocol, AnglesAreThoseTheQuaternionWasBuiltFrom) {
  constexpr unsigned kSeed = 20240611;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> turn(-175.0, 175.0);
  std::uniform_real_distribution<double> tilt(-80.0, 80.0);
  for (int i = 0; i < 500; ++i) {
    const double aboutZ = turn(random);
    const double aboutY = tilt(random);
    const double aboutX = turn(random);
    const auto half = [](double degrees) { return degrees * kPi / 360.0; };
    const double cz = std::cos(half(aboutZ)), sz = std::sin(half(aboutZ));
    const double cy = std::cos(half(aboutY)), sy = std::sin(half(aboutY));
    const double cx = std::cos(half(aboutX)), sx = std::sin(half(aboutX));
    // Turn about x first, then y, then z.
    const ImuSample sample = decodeQuaternion(static_cast<float>(cz * cy * cx + sz * sy * sx),
                                              static_cast<float>(cz * cy * sx - sz * sy * cx),
                                              static_cast<float>(cz * sy * cx + sz * cy * sx),
                                              static_cast<float>(sz * cy * cx - cz * sy * sx));
    EXPECT_NEAR(sample.yaw, -aboutZ, 2e-3) << i;
    EXPECT_NEAR(sample.pitch, aboutY, 2e-3) << i;
    EXPECT_NEAR(sample.roll, -aboutX, 2e-3) << i;
  }
}

// The angle times 180 is rounded to single precision before the division, which is in double; the
// numbers are such that any other place of the rounding gives another last digit. They come from
// the exact angle (asin or atan2 to 12 digits), rounded by hand at those places.
TEST(IMUProtocol, DegreesAreSinglePrecisionProductsDividedInDouble) {
  // asin(2 * 59 / 256) = 0.479051327296 -> 0.479051322; times 180 = 86.2292379 -> 86.2292404;
  // over pi = 27.44762041 (not rounded before: 27.4476185).
  EXPECT_EQ(decodeQuaternion(1, 0, 59.0f / 256, 0).pitch, 27.4476204f);
  EXPECT_EQ(decodeQuaternion(1, 0, -59.0f / 256, 0).pitch, -27.4476204f);
  // atan2(2 * 63 / 256, 1 - 2 * 63^2 / 256^2) = 0.510503124717 -> 0.510503113; times 180 =
  // 91.8905604 -> 91.890564; over pi = 29.2496758 (not rounded before: 29.2496738).
  EXPECT_EQ(decodeQuaternion(1, 63.0f / 256, 0, 0).roll, -29.2496758f);
  EXPECT_EQ(decodeQuaternion(1, 0, 0, 63.0f / 256).yaw, -29.2496758f);
}

TEST(IMUProtocol, PitchAtGimbalLockIsExactlyNinety) {
  // 2 (y w - z x) = 2 (1/4 + 1/4) = 1
  EXPECT_EQ(decodeQuaternion(0.5f, 0.5f, 0.5f, -0.5f).pitch, 90.0f);
  EXPECT_EQ(decodeQuaternion(0.5f, 0.5f, -0.5f, 0.5f).pitch, -90.0f);
}

TEST(IMUProtocol, PitchBeyondGimbalLockIsClamped) {
  EXPECT_EQ(decodeQuaternion(2, 0, 2, 0).pitch, 90.0f);
  EXPECT_EQ(decodeQuaternion(2, 0, -2, 0).pitch, -90.0f);
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(decodeQuaternion(1, 0, infinity, 0).pitch, 90.0f);
}

TEST(IMUProtocol, NotANumberGivesPitchZero) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(decodeQuaternion(nan, 0, 0, 0).pitch, 0.0f);
  EXPECT_EQ(decodeQuaternion(1, nan, 0, 0).pitch, 0.0f);
  EXPECT_EQ(decodeQuaternion(1, 0, nan, 0).pitch, 0.0f);
  EXPECT_EQ(decodeQuaternion(1, 0, 0, nan).pitch, 0.0f);
  EXPECT_TRUE(std::isnan(decodeQuaternion(1, nan, 0, 0).qx));
}

TEST(IMUProtocol, ReadersReadAtTheOffset) {
  const std::uint8_t bytes[] = {0xEE, 0x01, 0x82, 0x03, 0x84, 0x05, 0x06, 0x07, 0x88, 0xEE};
  EXPECT_EQ(IMUProtocol::readU16(bytes, 1), 0x8201);
  EXPECT_EQ(IMUProtocol::readU32(bytes, 1), 0x84038201u);
  EXPECT_EQ(IMUProtocol::readU16(bytes + 3, -2), 0x8201);
  EXPECT_EQ(IMUProtocol::readU32(bytes + 3, -2), 0x84038201u);
}

TEST(IMUProtocol, SixtyFourBitReaderAloneIsBigEndian) {
  const std::uint8_t bytes[] = {0xEE, 0x81, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88, 0xEE};
  EXPECT_EQ(IMUProtocol::readU64(bytes, 1), 0x8102030405060788u);
  EXPECT_EQ(IMUProtocol::readU64(bytes + 3, -2), 0x8102030405060788u);
}

TEST(IMUProtocol, FloatReaderIsLittleEndian) {
  const std::uint8_t bytes[] = {0xEE, 0x00, 0x00, 0x48, 0xC1};  // -12.5
  EXPECT_EQ(IMUProtocol::readFloat(bytes, 1), -12.5f);
  EXPECT_EQ(IMUProtocol::readFloat(bytes + 3, -2), -12.5f);
}

}  // namespace
