#include <cmath>
#include <cstring>

#include <alg_factory/service/FrameStamp.h>
#include <tests/unit/service/ServiceFixture.h>

namespace algorithm {
namespace {

using testing::Each;
using testing::ElementsAre;

class EventHandlingTest : public ServiceFixture {
 protected:
  void expectUnfiltered(const PoseAnswer& answer, std::size_t k) const {
    const TrackedPoint& record = service_.result().records[k];
    EXPECT_THAT(answer.raw, ElementsAre(record.x, record.y, record.z));
    EXPECT_THAT(answer.filtered, ElementsAre(record.x, record.y, record.z));
    EXPECT_THAT(answer.rate, Each(0.0f));
    EXPECT_THAT(answer.rateCopy, Each(0.0f));
  }

  /// The raw position, and the filter's state moved on by `dt` seconds.
  void expectFiltered(const PoseAnswer& answer, std::size_t k, const KalmanFilter& filter,
                      double dt = 0) const {
    const TrackedPoint& record = service_.result().records[k];
    EXPECT_THAT(answer.raw, ElementsAre(record.x, record.y, record.z));
    const KalmanFilter::Vector& state = filter.state();
    ASSERT_EQ(state.size(), 6);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(answer.filtered[i], static_cast<float>(state(i) + state(i + 3) * dt));
      EXPECT_EQ(answer.rate[i], static_cast<float>(state(i + 3)));
      EXPECT_EQ(answer.rateCopy[i], answer.rate[i]);
    }
    // Otherwise the two kinds of answer could not be told apart.
    ASSERT_NE(answer.filtered[0], answer.raw[0]);
    ASSERT_NE(answer.rate[0], 0.0f);
  }

  /// Moves markers 0 to `count` - 1 for some frames, so that filters have rates of their own.
  void moveStamped(int count, double z = 1200, std::uint32_t lastStamp = 1000000) {
    for (int n = 0; n < 5; ++n) {
      std::vector<Marker> markers;
      for (int id = 0; id < count; ++id) {
        markers.push_back({id, 90.0 * id - 150 + (4.0 + id) * n, 5.0 * n, z + 3.0 * n});
      }
      stampedFrame(lastStamp - 4 + static_cast<std::uint32_t>(n), markers);
    }
  }
  void movePlain(int count) {
    for (int n = 0; n < 5; ++n) {
      std::vector<Marker> markers;
      for (int id = 0; id < count; ++id) {
        markers.push_back({id, 90.0 * id - 200 + (4.0 + id) * n, 5.0 * n, 1200 + 3.0 * n});
      }
      frame(markers);
    }
  }

  const KalmanFilter& headFilterOfRecord(std::size_t k) const {
    constexpr std::size_t kFilterOf[3] = {1, 2, 0};
    return service_.headFilters()[kFilterOf[k]];
  }
};

// ---------------------------------------------------------------------- markers, miss bridging

TEST_F(EventHandlingTest, MarkerEventsAnswerTheirRecordFromTheirFilter) {
  initialize(2);
  service_.setFilterMode(0, 1, nullptr);
  movePlain(6);
  for (int k = 0; k < 6; ++k) {
    const PoseAnswer answer = pose(k);
    EXPECT_EQ(answer.id, k);
    expectFiltered(answer, static_cast<std::size_t>(k),
                   service_.markerFilters()[static_cast<std::size_t>(k)]);
  }
}

TEST_F(EventHandlingTest, MissesAreCountedByQueriesNotByBlocks) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  for (int n = 0; n < 200; ++n) frame({});
  EXPECT_EQ(pose(1).id, 1);
  EXPECT_THAT(service_.missCounts(), ElementsAre(0, 1, 0, 0, 0, 0));
}

TEST_F(EventHandlingTest, BridgingDoesNotStartAFilterAgain) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  frame({{0, 10, 20, 1200}});
  frame({});
  pose(0);  // the current id is 0 again, what counts is the block before
  frame({{0, 10, 20, 1200}});
  EXPECT_DOUBLE_EQ(service_.markerFilters()[0].time(), 1.0 / 90);
}

TEST_F(EventHandlingTest, WithFilteringOffAQueryBridgesOnceAndForAll) {
  initialize(2);
  frame({{0, 10, 20, 1200}});
  const PoseAnswer first = pose(0);
  EXPECT_EQ(first.id, 0);
  EXPECT_EQ(service_.missCounts()[0], 1);
  expectUnfiltered(first, 0);
  // The stream never refreshes the ids, so the object stays reported, present or not.
  for (int n = 0; n < 200; ++n) {
    frame({{0, 10.0 + n, 20, 1200}});
    ASSERT_EQ(pose(0).id, 0);
  }
  expectUnfiltered(pose(0), 0);
  EXPECT_NEAR(pose(0).raw[0], 209, 0.5);
  frame({});
  EXPECT_EQ(pose(0).id, 0);
  EXPECT_EQ(service_.missCounts()[0], 0);
}

// -------------------------------------------------------------------------------------- heads

TEST_F(EventHandlingTest, HeadEventsAnswerTheirRecordFromTheCrossedFilter) {
  for (const int product : {0, 1}) {
    initialize(product);
    service_.setFilterMode(0, 1, nullptr);
    stampedFrame(1, {});
    moveStamped(3);
    for (const int k : {0, 1}) {
      const PoseAnswer answer = pose(k);
      EXPECT_EQ(answer.id, k);
      expectFiltered(answer, static_cast<std::size_t>(k),
                     headFilterOfRecord(static_cast<std::size_t>(k)));
    }
    const PoseAnswer answer = poseAt(1234);
    EXPECT_EQ(answer.id, 2);
    expectFiltered(answer, 2, headFilterOfRecord(2));
  }
}

TEST_F(EventHandlingTest, AHeadThatVanishesIsGoneAtOnce) {
  initialize(0);
  service_.setFilterMode(0, 0, nullptr);
  moveStamped(3);
  stampedFrame(1, {{1, 0, 0, 1200}});
  EXPECT_EQ(pose(0).id, -1);
  EXPECT_EQ(pose(1).id, 1);
  EXPECT_EQ(poseAt(1234).id, -1);
}

TEST_F(EventHandlingTest, HeadsAreUnknownWhileFilteringIsOff) {
  initialize(0);
  moveStamped(3);
  for (const int k : {0, 1}) EXPECT_EQ(pose(k).id, -1);
  EXPECT_EQ(poseAt(1234).id, -1);
}

TEST_F(EventHandlingTest, HeadsAreAnsweredUnfilteredOnceFilteringIsSwitchedOff) {
  initialize(0);
  service_.setFilterMode(0, 1, nullptr);
  moveStamped(3);
  service_.setFilterMode(0, -1, nullptr);
  for (const int k : {0, 1}) {
    const PoseAnswer answer = pose(k);
    EXPECT_EQ(answer.id, k);
    expectUnfiltered(answer, static_cast<std::size_t>(k));
  }
  for (const std::uint64_t stamp : {1234ull, 1050000ull}) expectUnfiltered(poseAt(stamp), 2);
}

TEST_F(EventHandlingTest, NearHeadsAreAnsweredUnfilteredUnlessTheModeIsOne) {
  for (const int product : {0, 1}) {
    for (const int mode : {0, 2}) {
      initialize(product);
      service_.setFilterMode(0, mode, nullptr);
      stampedFrame(1, {});
      moveStamped(2, 1200);
      for (const int k : {0, 1}) expectUnfiltered(pose(k), static_cast<std::size_t>(k));
      stampedFrame(1, {});
      moveStamped(2, 1600);
      for (const int k : {0, 1}) {
        expectFiltered(pose(k), static_cast<std::size_t>(k),
                       headFilterOfRecord(static_cast<std::size_t>(k)));
      }
    }
    service_.setFilterMode(0, 1, nullptr);
    stampedFrame(1, {});
    moveStamped(2, 1200);
    for (const int k : {0, 1}) {
      expectFiltered(pose(k), static_cast<std::size_t>(k),
                     headFilterOfRecord(static_cast<std::size_t>(k)));
    }
  }
}

TEST_F(EventHandlingTest, AHeadAtADepthOfExactly1500IsFiltered) {
  initialize(0);
  service_.setFilterMode(0, 0, nullptr);
  // On the right camera's axis with blobs so heavy that depths are told apart to 0.00001.
  const auto measure = [&](double z) {
    stampedFrame(1, {});
    stampedFrame(2, {{0, 0, 0, 1510, 6000000}});
    stampedFrame(3, {{0, 0, 0, z, 6000000}});
    return std::fabs(service_.result().records[0].z);
  };
  ASSERT_EQ(measure(1500.0), 1500.0f);
  // The filter lags behind the step from 1510.
  EXPECT_NE(pose(0).filtered[2], pose(0).raw[2]);
  ASSERT_EQ(measure(1499.99988), std::nextafter(1500.0f, 0.0f));
  expectUnfiltered(pose(0), 0);
}

TEST_F(EventHandlingTest, AMarkerNoLongerBridgedKeepsTheRestOfTheAnswerBefore) {
  initialize(2);
  service_.setFilterMode(0, 1, nullptr);
  frame({{0, -100, 20, 1200}});
  for (int n = 0; n < 90; ++n) {
    frame({{1, 50.0 + n, 20, 1200}});
    ASSERT_EQ(pose(0).id, 0);
  }
  frame({{1, 140, 20, 1200}});
  const PoseAnswer present = pose(1);
  const PoseAnswer absent = pose(0);
  EXPECT_EQ(present.id, 1);
  EXPECT_EQ(absent.id, -1);
  EXPECT_EQ(std::memcmp(&absent.raw, &present.raw, sizeof present - 4), 0);
}

// --------------------------------------------------------------------------- event 2, stamps

class StampedPoseTest : public EventHandlingTest {
 protected:
  void SetUp() override {
    EventHandlingTest::SetUp();
    initialize(0);
    service_.setFilterMode(0, 0, nullptr);
    moveStamped(3, 1200, kFrame);
    ASSERT_EQ(lastFrameStamp.load(), kFrame);
  }

  static constexpr std::uint32_t kFrame = 5000000;
};

TEST_F(StampedPoseTest, OnlyThatStampIsReserved) {
  // Both lie before the frame: the difference wraps to a time far away.
  for (const std::uint64_t stamp : {1233, 1235}) expectUnfiltered(poseAt(stamp), 2);
}

TEST_F(StampedPoseTest, AStampShortlyAfterTheFrameIsExtrapolatedTo) {
  for (const std::uint32_t microseconds : {1u, 50000u, 99999u}) {
    expectFiltered(poseAt(kFrame + microseconds), 2, headFilterOfRecord(2), microseconds / 1e6);
  }
  // Far enough to be told from the state itself: a twentieth of a second's worth of the rate.
  const PoseAnswer now = poseAt(1234);
  const PoseAnswer later = poseAt(kFrame + 50000);
  EXPECT_NEAR(later.filtered[0] - now.filtered[0], 0.05 * now.rate[0], 1e-4);
  EXPECT_GT(0.05 * std::fabs(now.rate[0]), 0.01);
}

TEST_F(StampedPoseTest, ThereIsNoDepthRule) {
  // Nearer than 1500 and not mode 1, where the other heads are answered unfiltered.
  expectUnfiltered(pose(0), 0);
  expectFiltered(poseAt(kFrame + 50000), 2, headFilterOfRecord(2), 0.05);
}

// ------------------------------------------------------------------------- event 16, heading

class HeadingEventTest : public EventHandlingTest {
 protected:
  HeadingAnswer heading(const OrientationSample& sample) {
    HeadingAnswer answer;
    answer.notWritten1 = answer.notWritten2 = 0xABCDEF;
    EXPECT_TRUE(service_.handleEvent(16, &sample, &answer));
    return answer;
  }

  /// x, y, z, w of a turn by `degrees` about z, which is the yaw with its sign turned.
  static OrientationSample turned(double degrees, std::uint64_t value = 0) {
    const double half = degrees * 3.14159265358979 / 360;
    OrientationSample sample;
    sample.orientation[2] = static_cast<float>(std::sin(half));
    sample.orientation[3] = static_cast<float>(std::cos(half));
    sample.value = value;
    return sample;
  }
};

TEST_F(HeadingEventTest, ComparesWithTheTwoPointObject) {
  initialize(1);
  heading(turned(30));  // yaw -30 is there when the pair comes
  frame({{2, -34, 10, 1000, 2000}, {2, 34, 10, 1000, 2000}});
  const HeadingAnswer answer = heading(turned(30));
  EXPECT_EQ(answer.status, 1);
  // Optical heading 0: the offset is the whole yaw, the corrected yaw 0.
  EXPECT_NEAR(answer.negatedCorrectedYaw, 0, 0.05);
  EXPECT_NEAR(answer.yaw, -30, 0.02);
  EXPECT_NEAR(answer.score, 1, 0.02);
  // The result is delivered once; offset and score stay. 50 turns the yaw by 20 more.
  const HeadingAnswer later = heading(turned(50));
  EXPECT_EQ(later.status, 0);
  EXPECT_NEAR(later.negatedCorrectedYaw, 20, 0.05);
  EXPECT_EQ(later.score, answer.score);
}

}  // namespace
}  // namespace algorithm
