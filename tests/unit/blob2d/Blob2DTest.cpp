#include <alg_factory/blob2d/Blob2D.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/support/RecordingLog.h>

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

namespace {

using algorithm::Blob2D;
using algorithm::Blob2DPoint;
using hid::RawBlob;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr const char* kUnknownType = "alg: unknown product type!";

// A blob of the given centre; 778, 2160 and 6998 are the first weights of diameters 4, 6 and 10.
RawBlob blob(int id, std::uint32_t weight, std::uint32_t x, std::uint32_t y) {
  return {static_cast<std::int8_t>(id), weight, x * weight, y * weight};
}

using Seen = std::tuple<int, double, double, int>;

class Blob2DTest : public testing::Test {
 protected:
  Blob2DTest() { stage.setLogger(&log); }

  void start(std::uint32_t productType) {
    stage.init(productType);
    stage.configure(&input, &output, "left");
  }

  std::vector<Seen> run(std::vector<RawBlob> blobs) {
    input = std::move(blobs);
    EXPECT_TRUE(stage.process());
    return seen();
  }

  std::vector<Seen> seen() const {
    std::vector<Seen> result;
    for (const Blob2DPoint& point : output) {
      result.emplace_back(point.id, point.x, point.y, point.diameter);
    }
    return result;
  }

  testing_support::RecordingLog log;
  std::vector<RawBlob> input;
  std::vector<Blob2DPoint> output;
  Blob2D stage;
};

TEST_F(Blob2DTest, DefaultPointIsZeroWithoutAnId) {
  const Blob2DPoint point;
  EXPECT_EQ(point.x, 0.0);
  EXPECT_EQ(point.y, 0.0);
  EXPECT_THAT(point.aux, Each(0.0));
  EXPECT_EQ(point.diameter, 0);
  EXPECT_EQ(point.id, -1);
}

TEST_F(Blob2DTest, NewStageIsUnsetAndUnbound) {
  EXPECT_EQ(stage.blobIdCount(), 0);
  EXPECT_EQ(stage.areaDivisor(), 0);
  EXPECT_EQ(stage.input(), nullptr);
  EXPECT_EQ(stage.output(), nullptr);
  EXPECT_EQ(stage.groups(), 0u);
  EXPECT_EQ(stage.name(), "");
}

TEST_F(Blob2DTest, ProductTypeSetsTheNumberOfIds) {
  const int counts[] = {3, 3, 6};
  for (std::uint32_t type = 0; type < 3; ++type) {
    Blob2D fresh;
    EXPECT_TRUE(fresh.setLogger(&log));
    EXPECT_TRUE(fresh.init(type));
    EXPECT_EQ(fresh.blobIdCount(), counts[type]);
    EXPECT_EQ(fresh.areaDivisor(), 110);
    EXPECT_TRUE(fresh.configure(&input, &output, "left"));
    EXPECT_EQ(fresh.groups(), static_cast<std::size_t>(counts[type]));
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(Blob2DTest, UnknownProductTypeIsLoggedAndIsNoFailure) {
  EXPECT_TRUE(stage.init(7));
  EXPECT_THAT(log.lines, ElementsAre(Pair(4, kUnknownType)));
  EXPECT_EQ(stage.blobIdCount(), 0);
  EXPECT_EQ(stage.areaDivisor(), 0);
}

TEST_F(Blob2DTest, UnknownProductTypeKeepsTheSettings) {
  stage.init(2);
  for (const std::uint32_t type : {3u, 0xFFFFFFFFu}) {
    log.lines.clear();
    EXPECT_TRUE(stage.init(type));
    EXPECT_THAT(log.lines, ElementsAre(Pair(4, kUnknownType)));
    EXPECT_EQ(stage.blobIdCount(), 6);
    EXPECT_EQ(stage.areaDivisor(), 110);
  }
}

TEST_F(Blob2DTest, ConfigureBindsAndNames) {
  stage.init(0);
  EXPECT_TRUE(stage.configure(&input, &output, "right"));
  EXPECT_EQ(stage.name(), "right");
  EXPECT_EQ(stage.input(), &input);
  EXPECT_EQ(stage.output(), &output);
  EXPECT_TRUE(stage.configure(&input, &output, stage.name()));
  EXPECT_EQ(stage.name(), "right");
}

TEST_F(Blob2DTest, ConfigureBindsOnlyWhenPrepareSucceeds) {
  struct Preparable : Blob2D {
    bool prepare() override { return ready; }
    bool ready = true;
  } preparable;
  std::vector<RawBlob> otherInput;
  std::vector<Blob2DPoint> otherOutput;
  EXPECT_TRUE(preparable.configure(&input, &output, "left"));
  preparable.ready = false;
  EXPECT_FALSE(preparable.configure(&otherInput, &otherOutput, "right"));
  EXPECT_EQ(preparable.input(), &input);
  EXPECT_EQ(preparable.output(), &output);
  EXPECT_EQ(preparable.name(), "right");
}

TEST_F(Blob2DTest, GroupsFollowTheProductTypeAtTheNextConfigure) {
  start(2);
  EXPECT_EQ(stage.groups(), 6u);
  stage.init(1);
  EXPECT_EQ(stage.blobIdCount(), 3);
  EXPECT_EQ(stage.groups(), 6u);
  stage.configure(&input, &output, "left");
  EXPECT_EQ(stage.groups(), 3u);
  start(2);
  EXPECT_EQ(stage.groups(), 6u);
  EXPECT_THAT(run({blob(5, 778, 1, 2)}), ElementsAre(Seen(5, 1, 2, 4)));
}

TEST_F(Blob2DTest, UnconfiguredGroupsAreSizedByPrepare) {
  stage.init(2);
  EXPECT_EQ(stage.groups(), 0u);
  EXPECT_TRUE(stage.prepare());
  EXPECT_EQ(stage.groups(), 6u);
}

TEST_F(Blob2DTest, EmptyInputGivesEmptyOutput) {
  start(0);
  output.resize(3);
  EXPECT_THAT(run({}), IsEmpty());
}

TEST_F(Blob2DTest, BlobWithoutWeightGivesNoPoint) {
  start(0);
  EXPECT_THAT(run({{1, 0, 5, 5}, {1, 1, 5, 6}}), ElementsAre(Seen(1, 5, 6, 0)));
}

TEST_F(Blob2DTest, CentreAndDiameterComeFromTheMoments) {
  start(0);
  EXPECT_THAT(run({{2, 16, 100, 200}}), ElementsAre(Seen(2, 6.25, 12.5, 0)));
  EXPECT_THAT(output[0].aux, Each(0.0));
}

TEST_F(Blob2DTest, OverlappingBlobsOfOneIdMerge) {
  start(0);
  // 3.9 apart: 1000 * 3.9 = 3900.
  EXPECT_THAT(run({{0, 1000, 0, 0}, {0, 1000, 3900, 0}}), ElementsAre(Seen(0, 1.95, 0, 4)));
  EXPECT_THAT(run({{0, 1000, 0, 0}, {0, 1000, 4000, 0}}),
              ElementsAre(Seen(0, 0, 0, 4), Seen(0, 4, 0, 4)));
}

TEST_F(Blob2DTest, LargerBlobTakesItsNeighbourAndMoves) {
  start(0);
  // 7 away against a limit of 8, then from the midpoint 3.5 the third is 8.5 away.
  EXPECT_THAT(run({blob(1, 2160, 7, 0), blob(1, 6998, 0, 0), blob(1, 2160, 12, 0)}),
              ElementsAre(Seen(1, 3.5, 0, 10), Seen(1, 12, 0, 6)));
}

TEST_F(Blob2DTest, EqualDiametersAreTriedInInputOrder) {
  start(0);
  // 10 at 20 reaches 13 and 27; the one it takes first moves it 10.5 away from the other.
  EXPECT_THAT(run({blob(1, 2160, 13, 0), blob(1, 2160, 27, 0), blob(1, 6998, 20, 0)}),
              ElementsAre(Seen(1, 16.5, 0, 10), Seen(1, 27, 0, 6)));
  EXPECT_THAT(run({blob(1, 2160, 27, 0), blob(1, 2160, 13, 0), blob(1, 6998, 20, 0)}),
              ElementsAre(Seen(1, 23.5, 0, 10), Seen(1, 13, 0, 6)));
}

TEST_F(Blob2DTest, DifferentIdsNeverMerge) {
  start(0);
  EXPECT_THAT(run({blob(0, 6998, 9, 9), blob(1, 6998, 9, 9), blob(2, 6998, 9, 9)}),
              ElementsAre(Seen(0, 9, 9, 10), Seen(1, 9, 9, 10), Seen(2, 9, 9, 10)));
}

TEST_F(Blob2DTest, EveryGroupIsMerged) {
  start(2);
  std::vector<RawBlob> blobs;
  for (int id = 0; id < 6; ++id) {
    blobs.push_back(blob(id, 778, 10, 10));
    blobs.push_back(blob(id, 778, 12, 10));
  }
  EXPECT_THAT(run(blobs), ElementsAre(Seen(0, 11, 10, 4), Seen(1, 11, 10, 4), Seen(2, 11, 10, 4),
                                      Seen(3, 11, 10, 4), Seen(4, 11, 10, 4), Seen(5, 11, 10, 4)));
}

TEST_F(Blob2DTest, OutputListsIdsInAscendingOrderAndTheLargestFirst) {
  start(0);
  EXPECT_THAT(
      run({blob(2, 778, 10, 10), blob(0, 778, 20, 20), blob(2, 6998, 90, 90),
           blob(0, 2160, 60, 60)}),
      ElementsAre(Seen(0, 60, 60, 6), Seen(0, 20, 20, 4), Seen(2, 90, 90, 10), Seen(2, 10, 10, 4)));
}

TEST_F(Blob2DTest, EachCallEmptiesTheInputAndReplacesTheOutput) {
  start(0);
  EXPECT_THAT(run({blob(0, 778, 1, 1), blob(1, 778, 2, 2)}), SizeIs(2));
  EXPECT_THAT(input, IsEmpty());
  EXPECT_THAT(run({blob(2, 778, 3, 3)}), ElementsAre(Seen(2, 3, 3, 4)));
  EXPECT_THAT(input, IsEmpty());
  EXPECT_THAT(run({}), IsEmpty());
}

TEST_F(Blob2DTest, TakesTheInputByExchangingStorage) {
  start(0);
  input = {blob(0, 778, 1, 1)};
  const RawBlob* first = input.data();
  stage.process();
  input = {blob(0, 778, 2, 2)};
  EXPECT_NE(input.data(), first);
  stage.process();
  EXPECT_EQ(input.data(), first);
  EXPECT_GE(input.capacity(), 1u);
}

TEST_F(Blob2DTest, OutputKeepsItsStorage) {
  start(0);
  output.reserve(50);
  const Blob2DPoint* storage = output.data();
  run({blob(0, 778, 1, 1)});
  EXPECT_EQ(output.data(), storage);
  EXPECT_GE(output.capacity(), 50u);
}

TEST_F(Blob2DTest, WithoutAnOutputNothingHappens) {
  stage.init(0);
  stage.configure(&input, nullptr, "left");
  input = {blob(0, 778, 1, 1)};
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(input, SizeIs(1));
}

TEST_F(Blob2DTest, WithoutAnInputTheLastFrameIsProcessedAgain) {
  start(0);
  run({blob(1, 778, 4, 5)});
  stage.configure(nullptr, &output, "left");
  output.clear();
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(seen(), ElementsAre(Seen(1, 4, 5, 4)));
}

}  // namespace
