// Sizes and offsets of what crosses the interface, against literal numbers: programs built long ago
// rely on them.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include <alg_factory/api/AlgFactory.h>

namespace {

using namespace algorithm;

TEST(InterfaceLayout, CalibrationIs115Doubles) {
  EXPECT_EQ(sizeof(StereoCalibration), 920u);
  EXPECT_EQ(offsetof(StereoCalibration, lead), 0u);
  EXPECT_EQ(offsetof(StereoCalibration, leftIntrinsics), 8u);
  EXPECT_EQ(offsetof(StereoCalibration, leftDistortion), 80u);
  EXPECT_EQ(offsetof(StereoCalibration, rightIntrinsics), 144u);
  EXPECT_EQ(offsetof(StereoCalibration, rightDistortion), 216u);
  EXPECT_EQ(offsetof(StereoCalibration, rotation), 280u);
  EXPECT_EQ(offsetof(StereoCalibration, translation), 352u);
  EXPECT_EQ(offsetof(StereoCalibration, fundamental), 376u);
  EXPECT_EQ(offsetof(StereoCalibration, tail), 448u);
}

TEST(InterfaceLayout, InertialRecordIs56Bytes) {
  EXPECT_EQ(sizeof(InertialRecord), 56u);
  EXPECT_EQ(offsetof(InertialRecord, q), 8u);
  EXPECT_EQ(offsetof(InertialRecord, p), 24u);
  EXPECT_EQ(offsetof(InertialRecord, accelerometer), 36u);
  EXPECT_EQ(offsetof(InertialRecord, gyroscope), 42u);
  EXPECT_EQ(offsetof(InertialRecord, unused2), 48u);
}

TEST(InterfaceLayout, ResultBlockIs528BytesWithTenRecordsOf52) {
  EXPECT_EQ(sizeof(ResultBlock), 528u);
  EXPECT_EQ(offsetof(ResultBlock, header), 0u);
  EXPECT_EQ(offsetof(ResultBlock, records), 8u);
  EXPECT_EQ(sizeof(ResultBlock::records) / sizeof(TrackedPoint), 10u);

  EXPECT_EQ(sizeof(TrackedPoint), 52u);
  EXPECT_EQ(offsetof(TrackedPoint, id), 0u);
  EXPECT_EQ(offsetof(TrackedPoint, x), 4u);
  EXPECT_EQ(offsetof(TrackedPoint, y), 8u);
  EXPECT_EQ(offsetof(TrackedPoint, z), 12u);
  EXPECT_EQ(offsetof(TrackedPoint, hostPosition), 16u);
  EXPECT_EQ(offsetof(TrackedPoint, hostOrientation), 28u);
  EXPECT_EQ(offsetof(TrackedPoint, reserved), 44u);
  EXPECT_EQ(offsetof(TrackedPoint, bearing), 48u);
}

TEST(InterfaceLayout, PoseAnswerIs52Bytes) {
  EXPECT_EQ(sizeof(PoseAnswer), 52u);
  EXPECT_EQ(offsetof(PoseAnswer, id), 0u);
  EXPECT_EQ(offsetof(PoseAnswer, raw), 4u);
  EXPECT_EQ(offsetof(PoseAnswer, rate), 16u);
  EXPECT_EQ(offsetof(PoseAnswer, filtered), 28u);
  EXPECT_EQ(offsetof(PoseAnswer, rateCopy), 40u);
}

TEST(InterfaceLayout, HeadingExchangeIs24BytesInAnd48Out) {
  EXPECT_EQ(sizeof(OrientationSample), 24u);
  EXPECT_EQ(offsetof(OrientationSample, orientation), 0u);
  EXPECT_EQ(offsetof(OrientationSample, value), 16u);

  EXPECT_EQ(sizeof(HeadingAnswer), 48u);
  EXPECT_EQ(offsetof(HeadingAnswer, orientation), 0u);
  EXPECT_EQ(offsetof(HeadingAnswer, yaw), 16u);
  EXPECT_EQ(offsetof(HeadingAnswer, negatedCorrectedYaw), 20u);
  EXPECT_EQ(offsetof(HeadingAnswer, status), 24u);
  EXPECT_EQ(offsetof(HeadingAnswer, notWritten1), 28u);
  EXPECT_EQ(offsetof(HeadingAnswer, value), 32u);
  EXPECT_EQ(offsetof(HeadingAnswer, score), 40u);
  EXPECT_EQ(offsetof(HeadingAnswer, notWritten2), 44u);
}

TEST(InterfaceLayout, RecordsMayBeCopiedByteByByte) {
  EXPECT_TRUE(std::is_trivially_copyable_v<StereoCalibration>);
  EXPECT_TRUE(std::is_trivially_copyable_v<InertialRecord>);
  EXPECT_TRUE(std::is_trivially_copyable_v<ResultBlock>);
  EXPECT_TRUE(std::is_trivially_copyable_v<PoseAnswer>);
  EXPECT_TRUE(std::is_trivially_copyable_v<OrientationSample>);
  EXPECT_TRUE(std::is_trivially_copyable_v<HeadingAnswer>);
}

TEST(InterfaceLayout, InterfaceHoldsAVirtualTableAndNothingElse) {
  EXPECT_EQ(sizeof(AlgBase), sizeof(void*));
  EXPECT_TRUE(std::is_abstract_v<AlgBase>);
  // A destructor in the table would move the seven operations.
  EXPECT_FALSE(std::has_virtual_destructor_v<AlgBase>);
  EXPECT_TRUE(std::is_empty_v<AlgFactory>);
}

}  // namespace
