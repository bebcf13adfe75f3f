#include <alg_factory/blob2d/BlobMoments.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

using algorithm::Blob2DPoint;
using algorithm::blobDiameter;
using algorithm::measureBlobs;
using algorithm::pointFromMoments;
using hid::RawBlob;
using testing::Each;
using testing::SizeIs;

TEST(BlobDiameter, StepsUpAtTheFirstWeightOfEachRadius) {
  // Radius r begins where weight = 110 pi (r - 1/2)^2, with 110 pi = 345.5752:
  // 86.39, 777.54, 2159.85, 4233.30, 6997.90, 10453.65.
  const std::pair<std::uint32_t, int> firsts[] = {{1, 0},    {87, 2},    {778, 4},   {2160, 6},
                                                  {4234, 8}, {6998, 10}, {10454, 12}};
  for (const auto& [weight, diameter] : firsts) {
    EXPECT_EQ(blobDiameter(weight, 110), diameter) << weight;
    if (diameter > 0) {
      EXPECT_EQ(blobDiameter(weight - 1, 110), diameter - 2) << weight - 1;
    }
  }
}

TEST(BlobDiameter, LargestWireWeight) {
  // 16777215 / 345.5752 = 48548.7, its root 220.337, plus a half 220.84.
  EXPECT_EQ(blobDiameter(0xFFFFFF, 110), 440);
}

TEST(BlobDiameter, LargestWeightIsNotTakenAsNegative) {
  // 4294967295 / 345.5752 = 12428459, its root 3525.4, plus a half 3525.9.
  EXPECT_EQ(blobDiameter(0xFFFFFFFFu, 110), 7050);
}

TEST(BlobDiameter, DivisorIsWeightPerPixel) {
  // 3 / pi = 0.955, its root 0.977, plus a half 1.477; 7 / pi: 1.493 + 0.5 = 1.993; 8 / pi: 2.096.
  EXPECT_EQ(blobDiameter(3, 1), 2);
  EXPECT_EQ(blobDiameter(7, 1), 2);
  EXPECT_EQ(blobDiameter(8, 1), 4);
  EXPECT_EQ(blobDiameter(16, 2), 4);
}

TEST(BlobDiameter, ZeroDivisorIsHeldWithinTheInteger) {
  EXPECT_EQ(blobDiameter(1, 0), 536870912);  // 2 * 2^28, so that two of them still add up
  EXPECT_EQ(blobDiameter(0, 0), 0);
}

TEST(PointFromMoments, CentreIsFirstMomentOverWeight) {
  const Blob2DPoint point = pointFromMoments({2, 16, 100, 200}, 110);
  EXPECT_EQ(point.x, 6.25);
  EXPECT_EQ(point.y, 12.5);
  EXPECT_EQ(point.diameter, 0);
  EXPECT_EQ(point.id, 2);
  EXPECT_THAT(point.aux, Each(0.0));
}

TEST(PointFromMoments, DividesInDoublePrecisionWithoutSign) {
  const Blob2DPoint point = pointFromMoments({0, 3, 10, 4294967295u}, 110);
  EXPECT_EQ(point.x, 3.3333333333333335);
  EXPECT_EQ(point.y, 1431655765.0);  // 4294967295 = 3 * 1431655765
}

TEST(MeasureBlobs, MeasuresWhatIsListedInItsOrder) {
  std::vector<Blob2DPoint> blobs(9);
  measureBlobs({{2, 16, 100, 200}, {0, 0, 5, 5}, {1, 1, 7, 8}}, {2, 0}, 110, blobs);
  ASSERT_THAT(blobs, SizeIs(2));
  EXPECT_EQ(blobs[0].y, 8.0);
  EXPECT_EQ(blobs[0].id, 1);
  EXPECT_EQ(blobs[1].x, 6.25);
  EXPECT_EQ(blobs[1].id, 2);
  EXPECT_THAT(blobs[1].aux, testing::ElementsAre(0, 0, 0));
}

TEST(MeasureBlobs, KeepsTheStorage) {
  std::vector<Blob2DPoint> blobs(8);
  const Blob2DPoint* storage = blobs.data();
  measureBlobs({{0, 1, 1, 1}}, {0}, 110, blobs);
  EXPECT_EQ(blobs.data(), storage);
}

}  // namespace
