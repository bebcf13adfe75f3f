// Every place where a blob can end, each with a frame that sends one there, with the value and the
// limit worked out by hand; then the sums on noisy scenes.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/trace/FateText.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>
#include <tests/support/HandRig.h>
#include <tests/support/Host.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using analysis::BlobFunnel;
using ::testing::ElementsAre;
using testing_support::appendBlob;
using testing_support::Bytes;
using testing_support::kCentre;
using testing_support::kFocal;
using testing_support::kSmall;
using testing_support::Marker;
using trace::BlobFate;
using trace::describe;
using trace::PacketTrace;
using trace::PipelineTrace;
using trace::TracedBlob;

session::Call initCall(int productType, const algorithm::StereoCalibration& calibration) {
  session::Call call;
  call.kind = session::CallKind::kInit;
  call.type = productType;
  call.pointerGiven = true;
  call.payload.resize(sizeof calibration);
  std::memcpy(call.payload.data(), &calibration, sizeof calibration);
  return call;
}

session::Call inputCall(int streamType, const Bytes& payload) {
  session::Call call;
  call.kind = session::CallKind::kInputStream;
  call.type = streamType;
  call.length = static_cast<int>(payload.size());
  call.pointerGiven = true;
  call.payload = payload;
  return call;
}

/// A trace of the rig whose numbers can be worked out by hand.
class HandTrace {
 public:
  explicit HandTrace(int productType) {
    trace_.feed(initCall(productType, testing_support::handCalibration()));
  }

  const PacketTrace& feed(const Bytes& packet) {
    const PacketTrace* const traced = trace_.feed(inputCall(0, packet));
    EXPECT_NE(traced, nullptr);
    BlobFunnel funnel;
    funnel.add(*traced);
    EXPECT_TRUE(funnel.closes());
    return *traced;
  }
  const PacketTrace& see(const std::vector<Marker>& markers) {
    return feed(testing_support::packetOf(markers));
  }
  void hint(std::uint8_t side) { trace_.feed(inputCall(5, {side, 0, 0, 0})); }
  const algorithm::ResultBlock& block() const { return *trace_.block(); }

 private:
  PipelineTrace trace_;
};

std::vector<BlobFate> fates(const PacketTrace& packet) {
  std::vector<BlobFate> result;
  for (const TracedBlob& blob : packet.blobs) result.push_back(blob.fate);
  return result;
}

struct View {
  int camera;
  int id;
  double x, y;
  std::uint32_t weight = kSmall;  // diameter 10
};

Bytes packetOfViews(const std::vector<View>& views) {
  Bytes bytes = {0xAA, 0x55};
  for (const View& v : views) appendBlob(v.camera, v.id, v.weight, v.x, v.y, bytes);
  return testing_support::closed(bytes);
}

/// The pixel whose undistorted place is `offset` px to the side of the centre.
double pixelAt(double offset) {
  return kCentre + kFocal * std::atan(offset / kFocal);
}

constexpr int kLeft = 0, kRight = 1;

TEST(PipelineTrace, DeliversAPairWithItsPosition) {
  HandTrace trace(0);
  const PacketTrace& packet = trace.see({{0, 30, 40, 1000}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kDelivered, BlobFate::kDelivered));
  ASSERT_EQ(packet.points.size(), 1u);
  EXPECT_NEAR(packet.points[0].position[0], 30, 1e-3);
  EXPECT_NEAR(packet.points[0].position[1], 40, 1e-3);
  EXPECT_NEAR(packet.points[0].position[2], 1000, 1e-3);
  EXPECT_NEAR(packet.points[0].rayGap, 0, 1e-3);
  EXPECT_EQ(packet.blobs[0].other, 1);
  EXPECT_EQ(packet.blobs[1].other, 0);
  EXPECT_EQ(trace.block().records[0].id, 0);
}

TEST(PipelineTrace, BinsABlobWithoutWeight) {
  HandTrace trace(0);
  EXPECT_THAT(fates(trace.feed(packetOfViews({{kLeft, 0, 0, 0, 0}, {kRight, 0, 250, 256}}))),
              ElementsAre(BlobFate::kNoWeight, BlobFate::kNoPartner));
}

TEST(PipelineTrace, BinsAMergedBlobWithWhatTookIt) {
  HandTrace trace(0);
  const PacketTrace& packet = trace.feed(
      packetOfViews({{kLeft, 0, 256, 256}, {kLeft, 0, 260, 256}, {kRight, 0, 248, 256}}));
  EXPECT_THAT(fates(packet),
              ElementsAre(BlobFate::kDelivered, BlobFate::kMerged, BlobFate::kDelivered));
  EXPECT_EQ(packet.blobs[1].other, 0);
  EXPECT_NEAR(packet.blobs[1].value, 4, 1e-3);
  EXPECT_EQ(packet.blobs[1].limit, 10);
  EXPECT_NEAR(packet.blobs[0].x, 258, 1e-3);
}

TEST(PipelineTrace, MeasuresALaterMergeFromTheMovedBlob) {
  // 10 wide at 0, 6 wide at 7 and at 12: the first absorbs the second and moves to 3.5; the third,
  // 8.5 away, stays.
  HandTrace trace(0);
  const PacketTrace& packet = trace.feed(packetOfViews(
      {{kLeft, 0, 200, 256, 6998}, {kLeft, 0, 207, 256, 2160}, {kLeft, 0, 212, 256, 2160}}));
  EXPECT_THAT(fates(packet),
              ElementsAre(BlobFate::kNoPartner, BlobFate::kMerged, BlobFate::kNoPartner));
  EXPECT_NEAR(packet.blobs[1].value, 7, 1e-2);
  EXPECT_EQ(packet.blobs[1].limit, 8);
}

TEST(PipelineTrace, BinsBlobsWhoseIdTheOtherCameraDidNotSee) {
  HandTrace trace(0);
  EXPECT_THAT(fates(trace.feed(packetOfViews({{kLeft, 0, 256, 256}, {kRight, 1, 250, 256}}))),
              ElementsAre(BlobFate::kNoPartner, BlobFate::kNoPartner));
  EXPECT_THAT(fates(trace.feed(packetOfViews({{kLeft, 0, 256, 256}, {kLeft, 1, 300, 256}}))),
              ElementsAre(BlobFate::kNoPartner, BlobFate::kNoPartner));
}

TEST(PipelineTrace, BinsTheSmallestWhereTheOtherCameraSawFewer) {
  HandTrace trace(0);
  const PacketTrace& packet = trace.feed(
      packetOfViews({{kLeft, 0, 300, 200, 2160}, {kLeft, 0, 256, 256}, {kRight, 0, 248, 256}}));
  EXPECT_THAT(fates(packet),
              ElementsAre(BlobFate::kSurplus, BlobFate::kDelivered, BlobFate::kDelivered));
  EXPECT_EQ(packet.blobs[0].value, 2);
  EXPECT_EQ(packet.blobs[0].limit, 1);
}

TEST(PipelineTrace, BinsBlobsThatAreNotEachOthersNearest) {
  // Relative to the means: left -40 -30 70, right -100 30 70. The middle ones do not choose each
  // other. Of the two points that remain an object may have one; without an earlier frame the
  // first.
  std::vector<View> views;
  for (const double x : {110.0, 120.0, 220.0}) views.push_back({kLeft, 0, pixelAt(x), 256, 778});
  for (const double x : {-50.0, 80.0, 120.0}) views.push_back({kRight, 0, pixelAt(x), 256, 778});
  HandTrace trace(0);
  const PacketTrace& packet = trace.feed(packetOfViews(views));
  EXPECT_THAT(fates(packet),
              ElementsAre(BlobFate::kDelivered, BlobFate::kNotMutual, BlobFate::kTooMany,
                          BlobFate::kDelivered, BlobFate::kNotMutual, BlobFate::kTooMany));
  EXPECT_EQ(packet.blobs[1].nearest, 4);
  EXPECT_EQ(packet.blobs[1].nearestsNearest, 2);
  EXPECT_THAT(reasonOf(packet, packet.blobs[2]), testing::HasSubstr("no earlier frame"));
}

TEST(PipelineTrace, BinsAPairThatTheEpipolarTestRefuses) {
  // The lines are the rows. 24 px off the centre is tan(24 / f) f undistorted.
  HandTrace trace(0);
  const PacketTrace& packet =
      trace.feed(packetOfViews({{kLeft, 0, 256, 256}, {kRight, 0, 256, 280}}));
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kEpipolar, BlobFate::kEpipolar));
  EXPECT_NEAR(packet.blobs[0].value, kFocal * std::tan(24 / kFocal), 0.01);
  EXPECT_EQ(packet.blobs[0].limit, 10);
  EXPECT_EQ(packet.blobs[0].other, 1);
}

TEST(PipelineTrace, BinsAPointBehindTheCamera) {
  HandTrace trace(0);
  const PacketTrace& packet =
      trace.feed(packetOfViews({{kLeft, 0, 246, 256}, {kRight, 0, 256, 256}}));
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kTooNear, BlobFate::kTooNear));
  EXPECT_NEAR(packet.blobs[0].value, -100 / std::tan(10 / kFocal), 2);
  EXPECT_EQ(packet.blobs[0].limit, 10);
}

TEST(PipelineTrace, BinsAPointBeyondTheDepthLimit) {
  HandTrace trace(0);
  const PacketTrace& packet = trace.see({{0, 0, 0, 3600}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kTooDeep, BlobFate::kTooDeep));
  EXPECT_NEAR(packet.blobs[0].value, 3600, 0.1);
  EXPECT_EQ(packet.blobs[0].limit, 3500);
}

TEST(PipelineTrace, BinsAPointThatJumped) {
  HandTrace trace(0);
  trace.see({{0, 0, 0, 1000}});
  const PacketTrace& packet = trace.see({{0, 0, 0, 1160}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kJumped, BlobFate::kJumped));
  EXPECT_NEAR(packet.blobs[0].value, 160, 0.01);
  EXPECT_EQ(packet.blobs[0].limit, 150);
}

TEST(PipelineTrace, BinsAPointFarFromTheReference) {
  const std::vector<Marker> markers = {{0, 0, 0, 2300}, {2, 0, 0, 1000}};
  HandTrace trace(0);
  const PacketTrace& packet = trace.see(markers);
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kFarFromReference, BlobFate::kFarFromReference,
                                         BlobFate::kDelivered, BlobFate::kDelivered));
  EXPECT_NEAR(packet.blobs[0].value, 1300, 0.1);
  EXPECT_EQ(packet.blobs[0].limit, 1200);
  HandTrace sixIds(2);
  EXPECT_THAT(fates(sixIds.see(markers)), testing::Each(BlobFate::kDelivered));
}

TEST(PipelineTrace, BinsThePointThatIsFartherFromWhereTheIdWas) {
  HandTrace trace(0);
  trace.see({{0, 0, 0, 1000, kSmall}});
  const PacketTrace& packet = trace.see({{0, 100, 0, 1000, kSmall}, {0, 0, 0, 1010, kSmall}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kTooMany, BlobFate::kTooMany,
                                         BlobFate::kDelivered, BlobFate::kDelivered));
  EXPECT_NEAR(packet.blobs[0].value, 100, 0.5);
  EXPECT_EQ(packet.blobs[0].limit, 1);
}

TEST(PipelineTrace, BinsASingleObjectsRejectedJump) {
  HandTrace trace(1);
  trace.see({{0, 0, 0, 1000}});
  const PacketTrace& packet = trace.see({{0, 0, 0, 1100}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kHeldByJump, BlobFate::kHeldByJump));
  EXPECT_NEAR(packet.blobs[0].value, 100, 0.01);
  EXPECT_EQ(packet.blobs[0].limit, 80);
  EXPECT_NEAR(trace.block().records[0].z, -1000, 0.01);
  // 80 from what is held: accepted.
  EXPECT_THAT(fates(trace.see({{0, 0, 0, 1079}})), testing::Each(BlobFate::kDelivered));
}

std::vector<Marker> pairAround(double x, std::uint32_t firstWeight = kSmall) {
  return {{2, x - 34, 0, 1000, firstWeight}, {2, x + 34, 0, 1000, kSmall}};
}

TEST(PipelineTrace, BinsBothPointsOfAPairWhoseSizeRatioChanged) {
  HandTrace trace(1);
  EXPECT_THAT(fates(trace.see(pairAround(0))), testing::Each(BlobFate::kDelivered));
  // The first test of a ratio has nothing to compare with, and fails.
  const PacketTrace& first = trace.see(pairAround(0));
  EXPECT_THAT(fates(first), testing::Each(BlobFate::kHeldByRatio));
  EXPECT_TRUE(std::isinf(first.blobs[0].value));
  EXPECT_THAT(fates(trace.see(pairAround(0))), testing::Each(BlobFate::kDelivered));
  // 20 px wide instead of 10: twice the ratio.
  const PacketTrace& changed = trace.see(pairAround(0, 34000));
  EXPECT_THAT(fates(changed), testing::Each(BlobFate::kHeldByRatio));
  EXPECT_NEAR(changed.blobs[0].value, 2, 1e-6);
  EXPECT_NEAR(changed.blobs[0].limit, 1.2, 1e-6);
}

TEST(PipelineTrace, BinsAPairsRejectedJump) {
  HandTrace trace(1);
  for (int frame = 0; frame < 3; ++frame) trace.see(pairAround(0));
  // One point, 145 to the right, and said to be the left one: the middle would be at 179.
  trace.hint(1);
  const PacketTrace& packet = trace.see({{2, 145, 0, 1000, kSmall}});
  EXPECT_THAT(fates(packet), ElementsAre(BlobFate::kHeldByJump, BlobFate::kHeldByJump));
  EXPECT_NEAR(packet.blobs[0].value, 179, 0.5);
  EXPECT_EQ(packet.blobs[0].limit, 150);
}

TEST(PipelineTrace, FollowsTheSideThatDistanceDecided) {
  HandTrace trace(1);
  for (int frame = 0; frame < 3; ++frame) trace.see(pairAround(0));
  // Nearer to the right one: the middle is 34 to its left, 111, and accepted.
  EXPECT_THAT(fates(trace.see({{2, 145, 0, 1000, kSmall}})), testing::Each(BlobFate::kDelivered));
  EXPECT_NEAR(trace.block().records[2].x, 111, 0.5);
}

TEST(PipelineTrace, TracesNothingThatTheLibraryDoesNotDecode) {
  PipelineTrace trace;
  const Bytes packet = testing_support::packetOf({{0, 0, 0, 1000}});
  EXPECT_EQ(trace.feed(inputCall(0, packet)), nullptr) << "before Init";
  trace.feed(initCall(0, testing_support::handCalibration()));
  EXPECT_EQ(trace.feed(inputCall(0, {})), nullptr) << "empty";
  EXPECT_EQ(trace.feed(inputCall(2, {1, 2})), nullptr) << "no room for the stamp";
  EXPECT_EQ(trace.feed(inputCall(6, packet)), nullptr) << "unknown stream";
  session::Call null = inputCall(0, packet);
  null.pointerGiven = false;
  null.payload.clear();
  EXPECT_EQ(trace.feed(null), nullptr) << "no buffer";
  trace.feed(initCall(3, testing_support::handCalibration()));
  EXPECT_EQ(trace.feed(inputCall(0, packet)), nullptr) << "unknown product";
  trace.feed(initCall(0, testing_support::handCalibration()));
  EXPECT_NE(trace.feed(inputCall(0, packet)), nullptr);
}

struct NoisyScene {
  std::string name;
  int productType;
  sim::Framing framing;
  std::uint64_t seed;
};

class NoisyScenes : public testing::TestWithParam<NoisyScene> {};

sim::SimulatorOptions everythingWrong(const NoisyScene& scene) {
  sim::SimulatorOptions options;
  options.framing = scene.framing;
  options.seed = scene.seed;
  options.blobs.pixelNoise = 0.5;
  options.blobs.dropoutProbability = 0.05;
  options.blobs.splitProbability = 0.1;
  options.blobs.strayRate = 1;
  options.blobs.reflectionProbability = 0.1;
  options.faults.corruptProbability = 0.1;
  options.faults.wrongCheckProbability = 0.02;
  options.faults.lossProbability = 0.02;
  return options;
}

/// The sums close in every packet and in all, for bytes and blobs; the blocks are the library's.
TEST_P(NoisyScenes, CloseTheirSumsAndArriveAtTheLibrarysBlocks) {
  const NoisyScene& scene = GetParam();
  SCOPED_TRACE("seed " + std::to_string(scene.seed));
  const rig::StereoRig rig = rig::builtInRig();
  const sim::Simulator simulator(rig, sim::Scene::moving(scene.productType, scene.seed),
                                 everythingWrong(scene));
  sim::Random random(scene.seed, 1u << 20);
  const testing_support::Host host;
  ASSERT_TRUE(host.init(scene.productType, rig.calibration));
  PipelineTrace trace;
  trace.feed(initCall(scene.productType, rig.calibration));

  BlobFunnel all;
  std::int64_t blobs = 0;
  for (int n = 0; n < 3000; ++n) {
    sim::Frame frame = simulator.frame(n);
    if (frame.lost) continue;
    // Now and then a packet of nonsense, or two packets run into one.
    if (random.chance(0.01))
      for (auto& byte : frame.payload) byte = static_cast<std::uint8_t>(random.index(256));
    if (random.chance(0.01))
      frame.payload.insert(frame.payload.end(), frame.payload.begin(), frame.payload.end());
    const std::size_t delivered = host.data.blocks.size();
    host.input(simulator.streamType(), frame.payload);
    const PacketTrace* const packet = trace.feed(inputCall(simulator.streamType(), frame.payload));
    ASSERT_NE(packet, nullptr);
    ASSERT_EQ(host.data.blocks.size(), delivered + 1);
    ASSERT_EQ(std::memcmp(&host.data.blocks.back(), &*trace.block(), sizeof *trace.block()), 0)
        << "frame " << n;

    int bytes = 0;
    for (const auto& piece : packet->pieces) bytes += piece.size;
    ASSERT_EQ(bytes, packet->length);
    BlobFunnel one;
    one.add(*packet);
    ASSERT_TRUE(one.closes()) << "frame " << n;
    all.add(*packet);
    blobs += static_cast<std::int64_t>(packet->blobs.size());
    // Every object of the block comes from points that ended as delivered or held, and only they.
    std::vector<int> fromPoints, fromBlock;
    for (const auto& point : packet->points)
      if (point.fate >= BlobFate::kHeldByJump &&
          (fromPoints.empty() || fromPoints.back() != point.id))
        fromPoints.push_back(point.id);
    for (const auto& record : trace.block()->records)
      if (record.id != -1) fromBlock.push_back(record.id);
    ASSERT_EQ(fromPoints, fromBlock) << "frame " << n;
  }
  EXPECT_TRUE(all.closes());
  EXPECT_EQ(all.records(0) + all.records(1), blobs);
  EXPECT_GT(blobs, 20000);
  // The scene is noisy enough to mean something.
  for (const BlobFate fate :
       {BlobFate::kMerged, BlobFate::kNoPartner, BlobFate::kSurplus, BlobFate::kNotMutual,
        BlobFate::kEpipolar, BlobFate::kTooNear, BlobFate::kJumped, BlobFate::kDelivered})
    EXPECT_GT(all.ended(fate), 0) << trace::describe(fate);
  // Pairs end together.
  for (int fate = static_cast<int>(BlobFate::kEpipolar); fate < trace::kBlobFates; ++fate)
    EXPECT_EQ(all.ended(static_cast<BlobFate>(fate), 0), all.ended(static_cast<BlobFate>(fate), 1))
        << trace::describe(static_cast<BlobFate>(fate));
}

INSTANTIATE_TEST_SUITE_P(All, NoisyScenes,
                         testing::Values(NoisyScene{"Type0Plain", 0, sim::Framing::kPlain, 11},
                                         NoisyScene{"Type0Stamped", 0, sim::Framing::kStamped, 12},
                                         NoisyScene{"Type1Plain", 1, sim::Framing::kPlain, 13},
                                         NoisyScene{"Type1Stamped", 1, sim::Framing::kStamped, 14},
                                         NoisyScene{"Type2Plain", 2, sim::Framing::kPlain, 15},
                                         NoisyScene{"Type2Stamped", 2, sim::Framing::kStamped, 16}),
                         [](const auto& instance) { return instance.param.name; });

/// What the simulator knows is what the funnel finds, where only one thing goes wrong at a time.
BlobFunnel funnelOf(const sim::BlobOptions& blobs, std::vector<sim::Frame>& frames) {
  sim::SimulatorOptions options;
  options.blobs = blobs;
  options.seed = 21;
  const rig::StereoRig rig = rig::builtInRig();
  const sim::Simulator simulator(rig, sim::Scene::still(2), options);
  PipelineTrace trace;
  trace.feed(initCall(2, rig.calibration));
  BlobFunnel funnel;
  for (int n = 0; n < 500; ++n) {
    frames.push_back(simulator.frame(n));
    funnel.add(*trace.feed(inputCall(0, frames.back().payload)));
  }
  return funnel;
}

TEST(PipelineTrace, LosesNothingInAPerfectScene) {
  std::vector<sim::Frame> frames;
  const BlobFunnel funnel = funnelOf({}, frames);
  EXPECT_EQ(funnel.ended(BlobFate::kDelivered), 500 * 6 * 2);
  EXPECT_EQ(funnel.records(0), 500 * 6);
}

TEST(PipelineTrace, CountsAsManyLostPartnersAsTheSimulatorDroppedOnOneSide) {
  sim::BlobOptions options;
  options.dropoutProbability = 0.2;
  std::vector<sim::Frame> frames;
  const BlobFunnel funnel = funnelOf(options, frames);
  std::int64_t oneSided = 0, bothSided = 0;
  for (const sim::Frame& frame : frames)
    for (const sim::MarkerTruth& marker : frame.truth.markers) {
      oneSided += marker.inLeft != marker.inRight;
      bothSided += marker.inLeft && marker.inRight;
    }
  EXPECT_GT(oneSided, 500);
  EXPECT_EQ(funnel.ended(BlobFate::kNoPartner), oneSided);
  EXPECT_EQ(funnel.ended(BlobFate::kDelivered), 2 * bothSided);
}

TEST(PipelineTrace, CountsAsManyMergedBlobsAsTheSimulatorSplit) {
  sim::BlobOptions options;
  options.splitProbability = 0.3;
  std::vector<sim::Frame> frames;
  const BlobFunnel funnel = funnelOf(options, frames);
  std::int64_t records = 0, views = 0;
  for (const sim::Frame& frame : frames) {
    records += static_cast<std::int64_t>(frame.blobs.size());
    for (const sim::MarkerTruth& marker : frame.truth.markers)
      views += int{marker.inLeft} + int{marker.inRight};
  }
  EXPECT_GT(records - views, 500);
  EXPECT_EQ(funnel.ended(BlobFate::kMerged), records - views);
}

// A recording made by other hands may say anything; the address sanitizer sees the rest.
TEST(PipelineTrace, ReadsNoMoreBytesThanACallBrings) {
  PipelineTrace trace;
  trace.feed(initCall(2, testing_support::handCalibration()));
  session::Call call = inputCall(0, Bytes());
  call.length = 60000000;
  EXPECT_EQ(trace.feed(call), nullptr);
  call.type = 3;  // an inertial record of 56 bytes, whatever the length
  EXPECT_EQ(trace.feed(call), nullptr);
  call.kind = session::CallKind::kInit;
  EXPECT_EQ(trace.feed(call), nullptr);
}

}  // namespace
