#include <alg_factory/blob2d/IdRuns.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using algorithm::Blob2DPoint;
using algorithm::BlobRun;
using algorithm::runOfId;
using testing::ElementsAre;
using testing::Pair;

/// Blobs of these ids; x is the place.
std::vector<Blob2DPoint> blobsOf(const std::vector<int>& ids) {
  std::vector<Blob2DPoint> blobs(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) {
    blobs[i].id = ids[i];
    blobs[i].x = static_cast<double>(i);
  }
  return blobs;
}

std::vector<std::pair<int, double>> idsAndPlaces(const std::vector<Blob2DPoint>& blobs) {
  std::vector<std::pair<int, double>> seen;
  for (const Blob2DPoint& blob : blobs) seen.emplace_back(blob.id, blob.x);
  return seen;
}

TEST(RunOfId, EndsAtTheFirstBlobOfAnotherId) {
  std::vector<Blob2DPoint> blobs = blobsOf({2, 2, 2, 4, 2});
  Blob2DPoint* const end = blobs.data() + blobs.size();
  const BlobRun run = runOfId(blobs.data(), end, 2);
  EXPECT_EQ(run.first, blobs.data());
  EXPECT_EQ(run.size(), 3u);
  EXPECT_EQ(runOfId(run.last, end, 4).size(), 1u);
  EXPECT_EQ(runOfId(end - 1, end, 2).last, end);
}

TEST(RunOfId, IsEmptyWhereTheListGoesOnWithAnotherId) {
  std::vector<Blob2DPoint> blobs = blobsOf({1, 2});
  Blob2DPoint* const end = blobs.data() + blobs.size();
  EXPECT_TRUE(runOfId(blobs.data(), end, 2).empty());
  EXPECT_EQ(runOfId(blobs.data(), end, 2).last, blobs.data());
  EXPECT_TRUE(runOfId(end, end, 1).empty());
}

TEST(FirstWithId, PassesOverNegativeIds) {
  std::vector<Blob2DPoint> blobs = blobsOf({-128, -1, 0, 3});
  EXPECT_EQ(firstWithId(blobs), &blobs[2]);
  std::vector<Blob2DPoint> none = blobsOf({-1, -1});
  EXPECT_EQ(firstWithId(none), none.data() + 2);
}

TEST(OrderById, KeepsTheOrderWithinAnId) {
  std::vector<Blob2DPoint> blobs = blobsOf({2, 0, 2, -1, 0});
  orderById(blobs);
  EXPECT_THAT(idsAndPlaces(blobs),
              ElementsAre(Pair(-1, 3), Pair(0, 1), Pair(0, 4), Pair(2, 0), Pair(2, 2)));
}

}  // namespace
