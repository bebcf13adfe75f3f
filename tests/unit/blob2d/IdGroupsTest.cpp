#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdGroups.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using algorithm::Blob2DPoint;
using algorithm::IdGroups;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Blob2DPoint> blobsOf(const std::vector<int>& ids) {
  std::vector<Blob2DPoint> blobs(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) blobs[i].id = ids[i];
  return blobs;
}

std::vector<std::uint32_t> indices(IdGroups& groups, std::size_t id) {
  return {groups[id].begin(), groups[id].end()};
}

TEST(IdGroups, ListTheIndicesOfEachIdInTheOrderOfTheFrame) {
  IdGroups groups;
  groups.setIds(3);
  groups.group(blobsOf({2, 0, 2, 2, 0}));
  EXPECT_EQ(groups.ids(), 3u);
  EXPECT_THAT(indices(groups, 0), ElementsAre(1, 4));
  EXPECT_THAT(indices(groups, 1), IsEmpty());
  EXPECT_THAT(indices(groups, 2), ElementsAre(0, 2, 3));
}

TEST(IdGroups, LeaveOutIdsWithoutAGroup) {
  IdGroups groups;
  groups.setIds(3);
  groups.group(blobsOf({3, -1, 2, 127, -128}));
  EXPECT_THAT(indices(groups, 0), IsEmpty());
  EXPECT_THAT(indices(groups, 1), IsEmpty());
  EXPECT_THAT(indices(groups, 2), ElementsAre(2));
}

TEST(IdGroups, HoldOnlyTheLatestFrame) {
  IdGroups groups;
  groups.setIds(6);
  groups.group(blobsOf({5, 5, 1}));
  groups.group(blobsOf({5}));
  EXPECT_THAT(indices(groups, 5), ElementsAre(0));
  EXPECT_THAT(indices(groups, 1), IsEmpty());
  groups.group(std::vector<Blob2DPoint>());
  EXPECT_THAT(indices(groups, 5), IsEmpty());
}

TEST(IdGroups, AreEmptyAfterTheirNumberChanged) {
  IdGroups groups;
  EXPECT_EQ(groups.ids(), 0u);
  groups.group(blobsOf({0}));  // has no group
  groups.setIds(3);
  groups.group(blobsOf({0, 1}));
  groups.setIds(6);
  for (std::size_t id = 0; id < 6; ++id) EXPECT_THAT(indices(groups, id), IsEmpty());
}

}  // namespace
