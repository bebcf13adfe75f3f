#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <tests/support/Host.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::BlockCollector;
using testing_support::Bytes;
using testing_support::handCalibration;
using testing_support::Host;
using testing_support::kExact;
using testing_support::Marker;
using testing_support::RecordingLog;

std::vector<int> idsOf(const algorithm::ResultBlock& block) {
  std::vector<int> ids;
  for (const auto& record : block.records) ids.push_back(record.id);
  return ids;
}

std::vector<Marker> firstMarkers(int count) {
  std::vector<Marker> markers;
  for (int id = 0; id < count; ++id) markers.push_back({id, 100.0 * id - 200, 0, 1000});
  return markers;
}

/// Ids in the block after a frame with every id that has an object, and then after one with an id
/// from 3 to 5 alone. (In one packet, the decoder's slide over a refused record could find others.)
void expectThreeIds(Host& host) {
  host.see(firstMarkers(3));
  EXPECT_THAT(idsOf(host.data.last()), ElementsAre(0, 1, 2, -1, -1, -1, -1, -1, -1, -1));
  for (const int id : {3, 4, 5}) {
    host.see({{id, 0, 0, 1000}});
    EXPECT_EQ(host.data.last().records[id].id, -1) << id;
  }
}

void expectSixIds(Host& host) {
  host.see(firstMarkers(6));
  EXPECT_THAT(idsOf(host.data.last()), ElementsAre(0, 1, 2, 3, 4, 5, -1, -1, -1, -1));
}

TEST(Init, ProductTypesZeroAndOneTrackThreeIdsAndTwoTracksSix) {
  Host host;
  ASSERT_TRUE(host.init(0));
  expectThreeIds(host);
  ASSERT_TRUE(host.init(2));
  expectSixIds(host);
  ASSERT_TRUE(host.init(1));
  expectThreeIds(host);
  ASSERT_TRUE(host.init(2));
  expectSixIds(host);
}

TEST(Init, SaysNothingWhenItSucceeds) {
  Host host;
  for (const int productType : {0, 1, 2}) ASSERT_TRUE(host.init(productType));
  EXPECT_THAT(host.log.lines, IsEmpty());
}

// Depths of 4000 mm lie beyond the limit of product types 0 and 1 (3500) and within that of 2
// (4500).
TEST(Init, ChoosesTheDepthLimitOfTheProductType) {
  Host host(2);
  host.see({{0, 0, 0, 4000}});
  EXPECT_EQ(host.data.last().records[0].id, 0);
  for (const int productType : {0, 1}) {
    host.init(productType);
    host.see({{0, 0, 0, 4000}});
    EXPECT_EQ(host.data.last().records[0].id, -1) << productType;
  }
}

class InitAtOffset : public testing::TestWithParam<int> {};

// The calibration is found at config + offset, whatever its alignment. The marker packet belongs to
// a baseline of 60 mm, and only the calibration that says so gives the true depth.
TEST_P(InitAtOffset, ReadsTheCalibrationThere) {
  const auto calibration = handCalibration(60);
  const int offset = GetParam();
  constexpr int kStart = 2000;
  std::vector<unsigned char> bytes(4000, 0xEE);
  std::memcpy(bytes.data() + kStart, &calibration, sizeof calibration);
  Host host;
  ASSERT_TRUE(host.alg->Init(0, bytes.data() + kStart - offset, offset));
  host.input(0, testing_support::packetOf({{0, 120, 50, 900}}, 60));
  EXPECT_NEAR(host.data.last().records[0].x, 120, kExact);
  EXPECT_NEAR(host.data.last().records[0].y, -50, kExact);
  EXPECT_NEAR(host.data.last().records[0].z, -900, kExact);
}

INSTANTIATE_TEST_SUITE_P(, InitAtOffset, testing::Values(0, 8, 1024, 1, 3, 1999, -8, -7, -1001));

TEST(Init, ReadsAnUnalignedCalibration) {
  const auto calibration = handCalibration();
  alignas(8) unsigned char bytes[sizeof calibration + 8];
  for (int shift = 1; shift < 8; ++shift) {
    std::memcpy(bytes + shift, &calibration, sizeof calibration);
    Host host;
    ASSERT_TRUE(host.alg->Init(2, bytes + shift, 0));
    host.see({{0, 0, 0, 1000}});
    EXPECT_NEAR(host.data.last().records[0].z, -1000, kExact);
  }
}

TEST(Init, KeepsACopyOfTheCalibration) {
  auto calibration = handCalibration();
  Host host;
  ASSERT_TRUE(host.alg->Init(0, reinterpret_cast<const unsigned char*>(&calibration), 0));
  std::memset(static_cast<void*>(&calibration), 0xFF, sizeof calibration);
  host.see({{0, 0, 0, 1000}});
  EXPECT_NEAR(host.data.last().records[0].z, -1000, kExact);
}

TEST(Init, WithoutConfigurationFailsAndSaysSoOnce) {
  Host host(0);
  EXPECT_FALSE(host.alg->Init(0, nullptr, 0));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, "alg: configure failed!\n")));
  EXPECT_FALSE(host.alg->Init(0, nullptr, 16));
  EXPECT_EQ(host.log.lines.size(), 2u);
}

// The product type is stored before anything can fail ...
TEST(Init, WithoutConfigurationStoresTheProductType) {
  Host host(0);
  EXPECT_FALSE(host.alg->Init(3, nullptr, 0));
  // (no stage was asked: none of them reports the unknown product type)
  EXPECT_THAT(host.log.texts(), ElementsAre("alg: configure failed!\n"));
  EXPECT_FALSE(host.see({{0, 0, 0, 1000}}));
  EXPECT_EQ(host.log.texts().back(), "alg: unknown project type!\n");

  EXPECT_FALSE(host.alg->Init(2, nullptr, 0));
  EXPECT_TRUE(host.see({{0, 0, 0, 1000}}));
  // Product type 2 answers event 1 from a marker record, which bridges its absence.
  EXPECT_EQ(host.pose(1).id, 1);
}

// ... and no stage is touched, so that all of them keep the same number of ids.
TEST(Init, WithoutConfigurationLeavesTheStagesAsTheyWere) {
  Host host(0);
  EXPECT_FALSE(host.alg->Init(2, nullptr, 0));
  expectThreeIds(host);
}

// A record of id 3 that breaks off after two bytes of its moments. To a decoder of six ids it is a
// record cut short. One of three ids slides over it (F4, F0 and the check byte F6 name no camera)
// and finds nothing to report.
TEST(Init, WithoutConfigurationLeavesTheDecoderItsNumberOfIds) {
  const Bytes packet = testing_support::closed({0xAA, 0x55, 0x10, 0, 0, 0x03, 0xF4, 0xF0});
  ASSERT_EQ(packet.back(), 0xF6);
  Host host(0);
  EXPECT_FALSE(host.alg->Init(2, nullptr, 0));
  host.log.lines.clear();
  host.input(0, packet);
  EXPECT_THAT(host.log.lines, IsEmpty());

  ASSERT_TRUE(host.init(2));
  EXPECT_FALSE(host.alg->Init(0, nullptr, 0));
  host.log.lines.clear();
  host.input(0, packet);
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(3, "alg: fpga: buffer data format error.\n")));
}

// Both 2D stages and the stabilisation stage report an unknown product type; it is no failure.
TEST(Init, AcceptsAnUnknownProductTypeThatEveryStreamThenRefuses) {
  Host host(0);
  ASSERT_TRUE(host.init(3));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, "alg: unknown product type!"),
                                          Pair(4, "alg: unknown product type!"),
                                          Pair(4, "alg: unknown product type!")));
  const Bytes payload(600, 0);
  for (int streamType = 0; streamType <= 5; ++streamType) {
    host.log.lines.clear();
    EXPECT_FALSE(host.input(streamType, payload));
    EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, "alg: unknown project type!\n")));
  }
  EXPECT_THAT(host.data.blocks, IsEmpty());
}

TEST(Init, TakesANegativeProductTypeForAnUnknownOne) {
  Host host(0);
  ASSERT_TRUE(host.init(-1));
  host.log.lines.clear();
  EXPECT_FALSE(host.see({{0, 0, 0, 1000}}));
  EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, "alg: unknown project type!\n")));
}

TEST(Init, OfAKnownProductTypeAfterAnUnknownOneTracksAgain) {
  Host host(3);
  ASSERT_TRUE(host.init(2));
  expectSixIds(host);
}

TEST(Init, RepeatedUsesTheNewCalibration) {
  Host host(0);
  host.see({{0, 0, 0, 1000}});
  host.init(0, handCalibration(90));
  // Seen as if the cameras stood 100 mm apart: depth 90 / 100 of the true one. Within 150 mm of the
  // point before, so that the jump test lets it pass.
  host.see({{0, 0, 0, 1000}});
  EXPECT_NEAR(host.data.last().records[0].z, -900, kExact);
}

TEST(Init, RepeatedKeepsFiltersIdsAndTheResultBlock) {
  Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  algorithm::InertialRecord record;
  record.p[0] = 7;
  host.inertial(3, record);
  for (int n = 0; n < 5; ++n) host.see({{2, 10.0 * n, 0, 1000}});
  const algorithm::PoseAnswer before = host.pose(2);
  ASSERT_GT(before.rate[0], 0) << "a filter that has been running";

  ASSERT_TRUE(host.init(2));
  const algorithm::PoseAnswer after = host.pose(2);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);

  // The filter goes on where it was, and the values of record 0 still travel.
  host.see({{2, 50, 0, 1000}});
  EXPECT_GT(host.pose(2).rate[0], before.rate[0]);
  EXPECT_EQ(host.data.last().records[0].hostPosition[0], 7.0f);
}

// The jump test of the 3D stage compares with the frame before the second Init: 200 mm are too far.
TEST(Init, RepeatedKeepsTheHistoryOfTheStages) {
  Host host(0);
  host.see({{0, 0, 0, 1000}});
  host.init(0);
  host.see({{0, 200, 0, 1000}});
  EXPECT_EQ(host.data.last().records[0].id, -1);
}

TEST(Init, SecondLogSinkReplacesTheFirstEverywhere) {
  Host host(0);
  RecordingLog second;
  ASSERT_TRUE(host.alg->SetLogCallback(&second));

  host.alg->HandleEvent(7, nullptr, nullptr);  // the service
  host.input(0, {0x01, 0x01});                 // the decoder: no start word, check byte right
  host.init(3);                                // the 2D stages and the stabilisation stage

  EXPECT_THAT(host.log.lines, IsEmpty());
  EXPECT_THAT(
      second.lines,
      ElementsAre(Pair(4, "alg: unknown event type!\n"), Pair(3, "alg: fpga: start byte error.\n"),
                  Pair(4, "alg: unknown product type!"), Pair(4, "alg: unknown product type!"),
                  Pair(4, "alg: unknown product type!")));
}

TEST(Init, DataSinkMayBeReplacedInTheMiddle) {
  Host host(0);
  BlockCollector second;
  host.see({{0, 0, 0, 1000}});
  ASSERT_TRUE(host.alg->SetDataCallback(&second));
  host.see({{0, 0, 0, 1001}});
  ASSERT_TRUE(host.alg->SetDataCallback(&host.data));
  host.see({{0, 0, 0, 1002}});
  EXPECT_EQ(host.data.blocks.size(), 2u);
  EXPECT_EQ(second.blocks.size(), 1u);
}

}  // namespace
