#include <algorithm>
#include <optional>

#include <alg_factory/service/FrameStamp.h>
#include <tests/support/TextbookFilter.h>
#include <tests/support/WaitingThread.h>
#include <tests/unit/service/ServiceFixture.h>

namespace algorithm {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::TextbookFilter;

class StreamInputTest : public ServiceFixture {
 protected:
  static InertialRecord inertialRecord() {
    InertialRecord record;
    for (std::uint8_t& byte : record.unused1) byte = 0xEE;
    for (std::uint8_t& byte : record.unused2) byte = 0xEE;
    for (int i = 0; i < 4; ++i) record.q[i] = 0.25f * static_cast<float>(i + 1);
    for (int i = 0; i < 3; ++i) {
      record.p[i] = 10.0f * static_cast<float>(i + 1);
      record.accelerometer[i] = static_cast<std::int16_t>(2048 * (i + 1));
      record.gyroscope[i] = static_cast<std::int16_t>(-164 * (i + 1));
    }
    return record;
  }

  /// True when a call on another thread waits while this thread delivers, and no longer.
  template <typename Call>
  bool waitsForTheDelivery(Call call) {
    std::optional<testing_support::WaitingThread> other;
    bool waited = false;
    data_.whileDelivering = [&] {
      other.emplace(call);
      waited = other->waits();
    };
    frame({{0, 0, 0, 1200}});
    data_.whileDelivering = nullptr;
    other->join();
    return waited;
  }
};

// ----------------------------------------------------------------------------------- refusals

TEST_F(StreamInputTest, APayloadThatIsNoneIsRefusedSilentlyAndChangesNothing) {
  initialize(0);
  stampedFrame(4711, {{0, 0, 0, 1200}});
  log_.lines.clear();
  data_.blocks.clear();
  const sim::Bytes bytes(56, 0x11);
  for (const int type : {1, 2, 3, 4, 5}) {
    EXPECT_FALSE(service_.inputStream(type, nullptr, 0, 56)) << type;
    EXPECT_FALSE(service_.inputStream(type, nullptr, 0, 0)) << type;
  }
  EXPECT_FALSE(service_.inputStream(0, nullptr, 0, 56));
  for (const int type : {0, 1, 2, 3, 4, 5}) {
    EXPECT_FALSE(service_.inputStream(type, bytes.data(), 0, -1)) << type;
  }
  for (const int length : {0, 1, 3}) {
    EXPECT_FALSE(service_.inputStream(2, bytes.data(), 0, length)) << length;
  }
  EXPECT_THAT(log_.lines, IsEmpty());
  EXPECT_THAT(data_.blocks, IsEmpty());
  EXPECT_EQ(lastFrameStamp.load(), 4711u);
  EXPECT_EQ(service_.result().header, 4711u);
  EXPECT_THAT(service_.steady().auxVector(), Each(0.0f));
  EXPECT_THAT(service_.steady().gyroA(), Each(0.0f));
  EXPECT_THAT(service_.steady().gyroB(), Each(0.0f));
  EXPECT_EQ(service_.steady().sideHint(), 0);
  EXPECT_EQ(service_.result().records[0].hostPosition[0], 0.0f);
}

TEST_F(StreamInputTest, AnEmptyPacketIsTakenAndPublishesNothing) {
  initialize(0);
  const ResultBlock before = frame({{0, 10, 20, 1200}});
  EXPECT_TRUE(service_.inputStream(0, nullptr, 0, 0));
  const unsigned char byte = 0;
  EXPECT_TRUE(service_.inputStream(0, &byte, 0, 0));
  EXPECT_EQ(data_.blocks.size(), 1u);
  EXPECT_EQ(service_.result().records[0].id, 0);
  EXPECT_EQ(service_.result().records[0].x, before.records[0].x);
  EXPECT_THAT(log_.lines, IsEmpty());
  // No later stage ran either: the object was not missed.
  EXPECT_EQ(service_.steady().sightings().missCount[0], 0);
}

// ------------------------------------------------------------------------------------ packets

TEST_F(StreamInputTest, APacketBecomesABlockWithTheTruePositionsMirrored) {
  for (const int product : {0, 1, 2}) {
    initialize(product);
    frame({});
    log_.lines.clear();  // the frame without records is reported
    const ResultBlock& block = frame({{0, 100, 200, 1200}, {1, -50, -80, 1000}});
    EXPECT_EQ(block.header, 0u);
    EXPECT_EQ(block.records[0].id, 0);
    EXPECT_NEAR(block.records[0].x, 100, 0.05);
    EXPECT_NEAR(block.records[0].y, -200, 0.05);
    EXPECT_NEAR(block.records[0].z, -1200, 0.05);
    EXPECT_EQ(block.records[1].id, 1);
    EXPECT_NEAR(block.records[1].x, -50, 0.05);
    EXPECT_NEAR(block.records[1].y, 80, 0.05);
    EXPECT_NEAR(block.records[1].z, -1000, 0.05);
    EXPECT_THAT(log_.lines, IsEmpty());
  }
}

TEST_F(StreamInputTest, TheStagesTableIsNotMirrored) {
  initialize(0);
  const ResultBlock& block = frame({{0, 100, 200, 1200}});
  const TrackedPoint& kept = service_.steady().table()[0];
  EXPECT_EQ(block.records[0].x, kept.x);
  EXPECT_EQ(block.records[0].y, -kept.y);
  EXPECT_EQ(block.records[0].z, -kept.z);
  EXPECT_GT(kept.z, 0.0f);
  // Nor mirrored back and forth: a record that lost its object stays where it was.
  const float y = block.records[0].y;
  EXPECT_EQ(frame({}).records[0].y, y);
  EXPECT_EQ(frame({}).records[0].y, y);
  EXPECT_EQ(service_.result().records[0].y, y);
}

TEST_F(StreamInputTest, TheBearingReachesTheBlock) {
  initialize(1);
  frame({{2, 470, 0, 1000, 5000}, {2, 530, 0, 1000, 5000}});
  // atan(500 / 1000) = 26.565 degrees
  EXPECT_NEAR(service_.result().records[2].bearing, 26.565, 0.01);
  EXPECT_NEAR(service_.result().records[2].x, 500, 0.1);
}

// ------------------------------------------------------------------------------ stamped packets

TEST_F(StreamInputTest, TheStampIsLittleEndian) {
  initialize(0);
  sim::Bytes payload = packetOf({});
  payload.insert(payload.begin(), {0x04, 0x03, 0x02, 0x01});
  input(2, payload);
  EXPECT_EQ(lastFrameStamp.load(), 0x01020304u);
}

TEST_F(StreamInputTest, AStampedPacketIsFollowedByFourZeroBytes) {
  initialize(0);
  const sim::Bytes longPacket =
      packetOf({{0, 100, 200, 1200}, {1, 100, 2, 1200}, {2, -90, 2, 1200}});
  const sim::Bytes packet = packetOf({{0, 100, 200, 1200}});
  const std::size_t size = packet.size();
  input(0, longPacket);
  input(2, sim::frameType2(7, packet));
  const hid::Frame& frameBytes = service_.protocol().frame();
  EXPECT_TRUE(std::equal(packet.begin(), packet.end(), frameBytes.begin()));
  for (std::size_t i = size; i < size + 4; ++i) EXPECT_EQ(frameBytes[i], 0) << i;
  // Behind them lies what the longer packet left.
  EXPECT_TRUE(std::equal(longPacket.begin() + static_cast<std::ptrdiff_t>(size) + 4,
                         longPacket.end(),
                         frameBytes.begin() + static_cast<std::ptrdiff_t>(size) + 4));
  // The last zero is taken for the check byte. The bytes before it sum to twice the packet's own.
  ASSERT_NE(packet.back() & 0x7F, 0);
  EXPECT_THAT(log_.lines, ElementsAre(Pair(3, "alg: fpga: check byte error.\n")));
  EXPECT_EQ(data_.blocks.back().records[0].id, 0);
}

TEST_F(StreamInputTest, AStampAloneIsAPacketOfFourZeroBytes) {
  initialize(0);
  EXPECT_TRUE(input(2, {1, 0, 0, 0}));
  EXPECT_EQ(lastFrameStamp.load(), 1u);
  EXPECT_THAT(log_.lines, ElementsAre(Pair(3, "alg: fpga: start byte error.\n")));
  EXPECT_EQ(data_.blocks.size(), 1u);
}

// ------------------------------------------------------------------------------------ filters

TEST_F(StreamInputTest, WithoutAFilterModeNoFilterIsStarted) {
  initialize(2);
  frame({{0, 0, 0, 1200}});
  stampedFrame(1, {{0, 0, 0, 1200}});
  for (const KalmanFilter& filter : service_.markerFilters()) EXPECT_FALSE(filter.initialized());
  for (const KalmanFilter& filter : service_.headFilters()) EXPECT_FALSE(filter.initialized());
}

TEST_F(StreamInputTest, TheFirstBlockStartsTheFiltersOfThePresentObjects) {
  initialize(2);
  frame({{1, 0, 0, 1200}, {4, 50, 0, 1200}});
  service_.setFilterMode(0, 0, nullptr);
  const ResultBlock& block = frame({{1, 0, 0, 1200}, {4, 50, 0, 1200}});
  for (std::size_t k = 0; k < 6; ++k) {
    const KalmanFilter& filter = service_.markerFilters()[k];
    EXPECT_EQ(filter.initialized(), k == 1 || k == 4) << k;
    if (!filter.initialized()) continue;
    EXPECT_EQ(filter.startTime(), 0.0);
    EXPECT_EQ(filter.state()(0), block.records[k].x);
    EXPECT_EQ(filter.state()(1), block.records[k].y);
    EXPECT_EQ(filter.state()(2), block.records[k].z);
  }
}

TEST_F(StreamInputTest, PlainPacketsFeedTheMarkerFiltersOnly) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  std::vector<Marker> markers;
  for (int id = 0; id < 6; ++id) markers.push_back({id, 60.0 * id - 150, 0, 1200});
  frame(markers);
  for (const KalmanFilter& filter : service_.markerFilters()) EXPECT_TRUE(filter.initialized());
  for (const KalmanFilter& filter : service_.headFilters()) EXPECT_FALSE(filter.initialized());
}

TEST_F(StreamInputTest, StampedPacketsFeedTheHeadFiltersOnlyAndCrossed) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  std::vector<Marker> markers;
  for (int id = 0; id < 6; ++id) markers.push_back({id, 60.0 * id - 150, 0, 1200});
  const ResultBlock& block = stampedFrame(1, markers);
  for (const KalmanFilter& filter : service_.markerFilters()) EXPECT_FALSE(filter.initialized());
  // Record 0 uses the second head filter, record 1 the third, record 2 the first.
  EXPECT_EQ(service_.headFilters()[1].state()(0), block.records[0].x);
  EXPECT_EQ(service_.headFilters()[2].state()(0), block.records[1].x);
  EXPECT_EQ(service_.headFilters()[0].state()(0), block.records[2].x);
}

TEST_F(StreamInputTest, FiltersFollowTheMirroredPositionsAsTheModelSays) {
  for (const int mode : {0, 1}) {
    initialize(2);
    frame({});
    service_.setFilterMode(0, mode, nullptr);
    TextbookFilter axes[3] = {TextbookFilter(mode == 1 ? 1e-4 : 1e-6),
                              TextbookFilter(mode == 1 ? 1e-4 : 1e-6),
                              TextbookFilter(mode == 1 ? 1e-4 : 1e-6)};
    for (int n = 0; n < 20; ++n) {
      const TrackedPoint record = frame({{3, 4.0 * n, -50 + 3.0 * n, 1200 - 5.0 * n}}).records[3];
      ASSERT_EQ(record.id, 3);
      const float position[3] = {record.x, record.y, record.z};
      const KalmanFilter::Vector& state = service_.markerFilters()[3].state();
      for (int i = 0; i < 3; ++i) {
        if (n == 0) axes[i].start(position[i]);
        axes[i].update(position[i]);
        ASSERT_NEAR(state(i), axes[i].position, 1e-9) << "frame " << n;
        ASSERT_NEAR(state(i + 3), axes[i].rate, 1e-9) << "frame " << n;
      }
    }
  }
}

TEST_F(StreamInputTest, AnObjectThatComesBackStartsItsFilterAgain) {
  for (const int streamType : {0, 2}) {
    initialize(0);
    service_.setFilterMode(0, 0, nullptr);
    const KalmanFilter& filter =
        streamType == 0 ? service_.markerFilters()[0] : service_.headFilters()[1];
    const auto step = [&](const std::vector<Marker>& markers) {
      if (streamType == 0) {
        frame(markers);
      } else {
        stampedFrame(1, markers);
      }
    };
    step({{0, 0, 0, 1200}});
    step({{0, 10, 0, 1200}});
    step({{0, 20, 0, 1200}});
    EXPECT_DOUBLE_EQ(filter.time(), 3.0 / 90);
    EXPECT_GT(filter.state()(3), 0.0);
    step({});
    EXPECT_DOUBLE_EQ(filter.time(), 3.0 / 90);  // absent: not fed
    step({{0, 40, 0, 1200}});
    EXPECT_DOUBLE_EQ(filter.time(), 1.0 / 90);
    EXPECT_EQ(filter.state()(0), service_.result().records[0].x);
    EXPECT_EQ(filter.state()(3), 0.0);
  }
}

TEST_F(StreamInputTest, TheTwoKindsOfFiltersRememberTheirOwnIds) {
  initialize(0);
  service_.setFilterMode(0, 0, nullptr);
  frame({{0, 0, 0, 1200}});
  stampedFrame(1, {});  // gone for the heads, not for the markers
  frame({{0, 0, 0, 1200}});
  EXPECT_DOUBLE_EQ(service_.markerFilters()[0].time(), 2.0 / 90);
}

TEST_F(StreamInputTest, TheFiltersAreFedBeforeTheDelivery) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  bool started = false;
  PoseAnswer inside;
  data_.whileDelivering = [&] {
    started = service_.markerFilters()[0].initialized();
    inside = pose(0);  // the lock may be taken again by the thread that holds it
  };
  frame({{0, 10, 20, 1200}});
  EXPECT_TRUE(started);
  EXPECT_EQ(inside.id, 0);
  EXPECT_EQ(inside.filtered[2], service_.result().records[0].z);
}

// --------------------------------------------------------------------------- inertial samples

TEST_F(StreamInputTest, InertialSamplesReachTheStageWithTheRatesFirst) {
  initialize(0);
  EXPECT_TRUE(input(3, sim::inertialPayload(inertialRecord())));
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(service_.steady().gyroA()[i], -10.0 * (i + 1), 1e-5);
    EXPECT_NEAR(service_.steady().accelA()[i], 9.81 * (i + 1), 1e-5);
  }
  EXPECT_THAT(service_.steady().gyroB(), Each(0.0f));
  EXPECT_THAT(service_.steady().accelB(), Each(0.0f));
  InertialRecord other = inertialRecord();
  other.gyroscope[0] = 328;
  EXPECT_TRUE(input(4, sim::inertialPayload(other)));
  EXPECT_NEAR(service_.steady().gyroB()[0], 20.0, 1e-5);
  EXPECT_NEAR(service_.steady().accelB()[2], 29.43, 1e-5);
  EXPECT_NEAR(service_.steady().gyroA()[0], -10.0, 1e-5);
}

TEST_F(StreamInputTest, InertialSamplesWriteTheirPoseIntoTheDevicesRecord) {
  for (const int device : {0, 1}) {
    initialize(0);
    frame({{0, 10, 20, 1200}, {1, 60, 20, 1200}});
    data_.blocks.clear();
    InertialRecord sample = inertialRecord();
    sample.p[0] = 10.0f + static_cast<float>(device);
    EXPECT_TRUE(input(3 + device, sim::inertialPayload(sample)));
    EXPECT_THAT(data_.blocks, IsEmpty());
    const TrackedPoint& record = service_.result().records[device];
    EXPECT_THAT(record.hostPosition, ElementsAre(sample.p[0], 20.0f, 30.0f));
    EXPECT_THAT(record.hostOrientation, ElementsAre(0.25f, 0.5f, 0.75f, 1.0f));
    EXPECT_EQ(record.id, device);
    EXPECT_NEAR(record.z, -1200, 0.05);
    EXPECT_EQ(record.reserved, 0.0f);
    EXPECT_EQ(record.bearing, 0.0f);
  }
  EXPECT_EQ(service_.result().records[0].hostPosition[0], 10.0f);
  EXPECT_EQ(service_.result().records[1].hostPosition[0], 11.0f);
  EXPECT_THAT(service_.result().records[2].hostPosition, Each(0.0f));
}

TEST_F(StreamInputTest, InertialPosesTravelWithEveryLaterBlock) {
  initialize(0);
  input(3, sim::inertialPayload(inertialRecord()));
  input(4, sim::inertialPayload(inertialRecord()));
  for (int n = 0; n < 3; ++n) {
    const ResultBlock& block = n == 1 ? stampedFrame(5, {}) : frame({{0, 10, 20, 1200}});
    for (const int device : {0, 1}) {
      // Not mirrored.
      EXPECT_THAT(block.records[device].hostPosition, ElementsAre(10.0f, 20.0f, 30.0f));
      EXPECT_THAT(block.records[device].hostOrientation, ElementsAre(0.25f, 0.5f, 0.75f, 1.0f));
    }
    EXPECT_THAT(block.records[2].hostPosition, Each(0.0f));
  }
}

TEST_F(StreamInputTest, TheAuxiliaryVectorIsThePositionOfTheRecord) {
  initialize(0);
  EXPECT_TRUE(input(1, sim::inertialPayload(inertialRecord())));
  EXPECT_THAT(service_.steady().auxVector(), ElementsAre(10.0f, 20.0f, 30.0f));
  EXPECT_THAT(service_.steady().gyroA(), Each(0.0f));
  EXPECT_THAT(service_.result().records[0].hostPosition, Each(0.0f));
  EXPECT_THAT(data_.blocks, IsEmpty());
}

TEST_F(StreamInputTest, TheSideHintIsASignedValueAtItsOffset) {
  initialize(1);
  EXPECT_TRUE(input(5, sim::sideHintPayload(-5)));
  EXPECT_EQ(service_.steady().sideHint(), -5);
  const sim::Bytes buffer = {0xFF, 0xFF, 0x02, 0x00, 0x00, 0x00};
  EXPECT_TRUE(service_.inputStream(5, buffer.data(), 2, 4));
  EXPECT_EQ(service_.steady().sideHint(), 2);
}

// --------------------------------------------------------------------------------------- lock

TEST_F(StreamInputTest, QueriesOfOtherThreadsWaitForTheDelivery) {
  initialize(2);
  EXPECT_TRUE(waitsForTheDelivery([this] {
    PoseAnswer answer;
    service_.handleEvent(0, nullptr, &answer);
  }));
}

TEST_F(StreamInputTest, InertialPosesAreWrittenUnderTheLock) {
  initialize(2);
  const sim::Bytes payload = sim::inertialPayload(inertialRecord());
  EXPECT_TRUE(waitsForTheDelivery([&] { input(3, payload); }));
}

}  // namespace
}  // namespace algorithm
