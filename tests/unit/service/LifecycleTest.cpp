#include <cstring>
#include <thread>

#include <tests/unit/service/ServiceFixture.h>

namespace algorithm {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* kUnknownType = "alg: unknown product type!";

class LifecycleTest : public ServiceFixture {};

TEST_F(LifecycleTest, ThereIsOneInstanceHoweverManyThreadsAskFirst) {
  constexpr std::size_t kThreads = 16;
  std::vector<StereoService*> seen(kThreads, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&seen, i] { seen[i] = StereoService::instance(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_NE(seen[0], nullptr);
  EXPECT_THAT(seen, Each(seen[0]));
  EXPECT_EQ(StereoService::instance(), seen[0]);
}

TEST_F(LifecycleTest, StartsUnfilteredWithoutObjects) {
  EXPECT_EQ(service_.productType(), 0);
  EXPECT_EQ(service_.filterMode(), -1);
  EXPECT_EQ(service_.result().header, 0u);
  for (const TrackedPoint& record : service_.result().records) {
    EXPECT_EQ(record.id, -1);
    EXPECT_EQ(record.x, 0.0f);
  }
  EXPECT_THAT(service_.missCounts(), Each(0));
  EXPECT_EQ(service_.model().transition.size(), 0);
  for (const KalmanFilter& filter : service_.headFilters()) EXPECT_EQ(filter.state().size(), 0);
  for (const KalmanFilter& filter : service_.markerFilters()) EXPECT_EQ(filter.state().size(), 0);
}

TEST_F(LifecycleTest, InitializesEveryStageForTheProduct) {
  for (const int type : {0, 1, 2}) {
    ASSERT_TRUE(initialize(type));
    const int ids = type == 2 ? 6 : 3;
    EXPECT_EQ(service_.productType(), type);
    EXPECT_EQ(service_.protocol().blobIdCount(), ids);
    EXPECT_EQ(service_.blobLeft().blobIdCount(), ids);
    EXPECT_EQ(service_.blobRight().blobIdCount(), ids);
    EXPECT_EQ(service_.stereo().blobIdCount(), ids);
    EXPECT_EQ(service_.steady().productType(), type);
    EXPECT_EQ(service_.steady().objectCount(), ids);
    // Wired as well: the storage that configuring sizes is there.
    EXPECT_EQ(service_.blobLeft().groups(), static_cast<std::size_t>(ids));
    EXPECT_EQ(service_.blobRight().groups(), static_cast<std::size_t>(ids));
    EXPECT_EQ(service_.steady().sightings().lastSeen.size(), static_cast<std::size_t>(ids));
  }
  EXPECT_THAT(log_.lines, IsEmpty());
}

TEST_F(LifecycleTest, NamesTheCamerasLeftAndRight) {
  initialize(0);
  EXPECT_EQ(service_.blobLeft().name(), "left");
  EXPECT_EQ(service_.blobRight().name(), "right");
  EXPECT_NE(service_.blobLeft().output(), service_.blobRight().output());
}

TEST_F(LifecycleTest, ReadsTheCalibrationAtAnyOffsetOfTheConfiguration) {
  StereoCalibration record = calibration();
  record.lead = 11;
  record.tail[58] = 22;
  std::vector<unsigned char> buffer(2000, 0xCD);
  for (const int offset : {0, 1, 7, 1000}) {
    std::memcpy(buffer.data() + offset, &record, sizeof record);
    ASSERT_TRUE(service_.initialize(0, buffer.data(), offset));
    EXPECT_EQ(std::memcmp(&service_.stereo().calibration(), &record, sizeof record), 0) << offset;
    record.lead += 1;
  }
  std::memcpy(buffer.data() + 3, &record, sizeof record);
  ASSERT_TRUE(service_.initialize(0, buffer.data() + 500, -497));
  EXPECT_EQ(service_.stereo().calibration().lead, record.lead);
}

TEST_F(LifecycleTest, ANullConfigurationIsReportedAndTouchesNoStage) {
  ASSERT_TRUE(initialize(1));
  EXPECT_FALSE(service_.initialize(2, nullptr, 16));
  EXPECT_THAT(log_.lines, ElementsAre(Pair(4, "alg: configure failed!\n")));
  EXPECT_EQ(service_.productType(), 2);
  EXPECT_EQ(service_.protocol().blobIdCount(), 3);
  EXPECT_EQ(service_.blobLeft().blobIdCount(), 3);
  EXPECT_EQ(service_.blobRight().blobIdCount(), 3);
  EXPECT_EQ(service_.stereo().blobIdCount(), 3);
  EXPECT_EQ(service_.steady().productType(), 1);
}

TEST_F(LifecycleTest, AnUnknownProductTypeIsAcceptedAndLoggedByTheStagesThatMindIt) {
  ASSERT_TRUE(initialize(2));
  EXPECT_TRUE(initialize(3));
  EXPECT_EQ(service_.productType(), 3);
  // Both 2D stages and the stabilisation stage.
  EXPECT_THAT(log_.lines,
              ElementsAre(Pair(4, kUnknownType), Pair(4, kUnknownType), Pair(4, kUnknownType)));
  EXPECT_EQ(service_.protocol().blobIdCount(), 3);
  EXPECT_EQ(service_.blobLeft().blobIdCount(), 6);
  EXPECT_EQ(service_.steady().objectCount(), 6);
}

TEST_F(LifecycleTest, ASecondInitializationRewiresForItsProductType) {
  ASSERT_TRUE(initialize(1));
  frame({{2, 0, 0, 1200}});
  EXPECT_EQ(data_.blocks.back().records[2].id, 2);
  ASSERT_TRUE(initialize(2));
  frame({{5, 0, 0, 1200}});
  EXPECT_EQ(data_.blocks.back().records[5].id, 5);
  ASSERT_TRUE(initialize(0));
  frame({{0, 0, 0, 1200}, {5, 50, 0, 1200}});
  EXPECT_EQ(data_.blocks.back().records[0].id, 0);
  EXPECT_EQ(data_.blocks.back().records[5].id, -1);
  EXPECT_EQ(service_.productType(), 0);
}

TEST_F(LifecycleTest, ASecondInitializationKeepsFiltersAndResult) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  frame({{0, 10, 20, 1200}});
  frame({{0, 10, 20, 1200}});
  const KalmanFilter::Vector state = service_.markerFilters()[0].state();
  const float x = service_.result().records[0].x;
  initialize(0);
  EXPECT_EQ(service_.filterMode(), 0);
  EXPECT_EQ(service_.markerFilters()[0].state(), state);
  EXPECT_EQ(service_.result().records[0].id, 0);
  EXPECT_EQ(service_.result().records[0].x, x);
  // The filter goes on: its object was there in the block before.
  frame({{0, 10, 20, 1200}});
  EXPECT_DOUBLE_EQ(service_.markerFilters()[0].time(), 3.0 / 90);
}

}  // namespace
}  // namespace algorithm
