#include <alg_kit/analysis/WorstMoments.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using analysis::Moment;
using analysis::WorstMoment;
using analysis::WorstMoments;
using Kind = WorstMoment::Kind;
using testing::ElementsAre;
using testing::Pair;

constexpr int kProductType = 0;  // three objects

constexpr double kInterval = 0.1, kLongInterval = 1;  // seconds between packets

Moment moment(std::int64_t packet, double interval) {
  return {packet, 4 * packet + 4, static_cast<double>(packet) * interval};
}

class WorstMomentsTest : public testing::Test {
 protected:
  /// A packet with objects 1 and 2 at rest and object 0 at x, or missing.
  void add(std::optional<float> x, const std::vector<session::TruthRow>& truth = {},
           bool corrupt = false) {
    algorithm::ResultBlock block;
    for (int object = 0; object < 3; ++object) block.records[object].id = object;
    block.records[0].id = x ? 0 : -1;
    block.records[0].x = x.value_or(77);
    worst_.add(moment(next_++, interval_), kProductType, &block, truth, corrupt);
  }

  std::vector<WorstMoment> of(Kind kind, int object) const {
    std::vector<WorstMoment> found;
    for (const WorstMoment& moment : worst_.list())
      if (moment.kind == kind && moment.object == object) found.push_back(moment);
    return found;
  }

  WorstMoments worst_{{}, 3};
  double interval_ = kInterval;
  std::int64_t next_ = 0;
};

TEST_F(WorstMomentsTest, AGapLastsFromSightingToSighting) {
  add(0);
  add({});
  add({});
  add(0);
  const auto gaps = of(Kind::kGap, 0);
  ASSERT_EQ(gaps.size(), 1u);
  EXPECT_EQ(gaps[0].first.packet, 1);
  EXPECT_EQ(gaps[0].last.packet, 2);
  EXPECT_NEAR(gaps[0].value, 0.3, 1e-12);
}

TEST_F(WorstMomentsTest, AnObjectThatIsNeverSeenHasOneGapAsLongAsTheRecording) {
  for (int n = 0; n < 5; ++n) add({});
  const auto gaps = of(Kind::kGap, 0);
  ASSERT_EQ(gaps.size(), 1u);
  EXPECT_EQ(gaps[0].first.packet, 0);
  EXPECT_EQ(gaps[0].last.packet, 4);
  EXPECT_NEAR(gaps[0].value, 0.4, 1e-12);
}

TEST_F(WorstMomentsTest, StepsAreBetweenNeighbouringPacketsAlone) {
  interval_ = kLongInterval;
  add(0);
  add(5);
  add({});
  add(100);  // after a gap: no step
  add(101);
  const auto steps = of(Kind::kStep, 0);
  ASSERT_EQ(steps.size(), 2u);
  EXPECT_EQ(steps[0].first.packet, 1);
  EXPECT_EQ(steps[0].value, 5);
  EXPECT_EQ(steps[1].first.packet, 4);
  EXPECT_EQ(steps[1].value, 1);
}

TEST_F(WorstMomentsTest, ErrorsAreDistancesFromTheMirroredMiddleOfTheMarkers) {
  session::TruthRow row;
  row.object = 0;
  row.position[0] = 1;
  row.position[1] = -3;  // 3 as delivered
  session::TruthRow other = row;
  other.position[0] = 7;
  add(0, {row, other});  // the middle is (4, 3, 0)
  const auto errors = of(Kind::kError, 0);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].value, 5);
}

TEST_F(WorstMomentsTest, KeepsTheWorstAndTheFirstCorruptPackets) {
  interval_ = kLongInterval;
  float x = 0;
  for (const float step : {1, 9, 3, 7, 5}) add(x += step, {}, true);
  std::vector<double> sizes;
  for (const auto& moment : of(Kind::kStep, 0)) sizes.push_back(moment.value);
  EXPECT_THAT(sizes, ElementsAre(9, 7, 5));
  std::vector<std::int64_t> corrupt;
  for (const auto& moment : of(Kind::kCorrupt, -1)) corrupt.push_back(moment.first.packet);
  EXPECT_THAT(corrupt, ElementsAre(0, 1, 2));
  EXPECT_EQ(worst_.corrupt(), 5);
}

TEST_F(WorstMomentsTest, OfWhatLiesWithinASecondTheWorstStandsForAll) {
  float x = 0;
  for (int n = 0; n < 30; ++n) add(x += n == 4 ? 8 : n == 7 ? 9 : n == 25 ? 5 : 1, {}, n % 6 == 5);
  std::vector<std::pair<std::int64_t, double>> steps;
  for (const auto& moment : of(Kind::kStep, 0))
    steps.emplace_back(moment.first.packet, moment.value);
  // Packet 4 is 0.3 s before packet 7; those from 17 on are 1 s behind it.
  EXPECT_THAT(steps, ElementsAre(Pair(7, 9.0), Pair(25, 5.0)));
  std::vector<std::int64_t> corrupt;
  for (const auto& moment : of(Kind::kCorrupt, -1)) corrupt.push_back(moment.first.packet);
  EXPECT_THAT(corrupt, ElementsAre(5, 17, 29));
}

TEST_F(WorstMomentsTest, AnEventOfManyPacketsLeavesRoomForTheOthers) {
  float x = 0;
  add(x);
  add({});
  for (int n = 2; n < 500; ++n) add(x += n < 400 ? 50.0F : 0.0F);  // for 40 s
  EXPECT_EQ(of(Kind::kGap, 0).size(), 1u);
  interval_ = kLongInterval;
  next_ = 600;
  add({});
  add(x);
  add(x += 3);
  EXPECT_EQ(of(Kind::kGap, 0).size(), 2u);
}

TEST_F(WorstMomentsTest, ThoseOfOneObjectAreNotCrowdedOutByOthers) {
  worst_ = WorstMoments(1, 3);
  interval_ = kLongInterval;
  float x = 0;
  for (int n = 0; n < 10; ++n) add(x += 100);
  EXPECT_TRUE(of(Kind::kStep, 0).empty());
  EXPECT_EQ(of(Kind::kStep, 1).size(), 3u);
}

TEST_F(WorstMomentsTest, APlaceThatIsNoNumberIsNotTheWorstStep) {
  add(0);
  add(std::numeric_limits<float>::quiet_NaN());
  EXPECT_TRUE(of(Kind::kStep, 0).empty());
}

}  // namespace
