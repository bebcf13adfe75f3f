#include <alg_kit/analysis/EstimatedPlaces.h>
#include <sim/Simulator.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <future>
#include <optional>
#include <utility>
#include <vector>

namespace {

using analysis::Estimation;
using analysis::LivePlaces;
using analysis::Place;
using analysis::SideThread;
using session::Call;
using session::CallKind;

constexpr int kProductType = 0;

Call initOf(std::int64_t index) {
  Call call;
  call.index = index;
  call.kind = CallKind::kInit;
  call.type = kProductType;
  const auto calibration = rig::builtInRig().calibration;
  call.payload.resize(sizeof calibration);
  std::memcpy(call.payload.data(), &calibration, sizeof calibration);
  return call;
}

Call packetOf(std::int64_t index, double seconds) {
  Call call;
  call.index = index;
  call.kind = CallKind::kInputStream;
  call.startNs = std::llround(seconds * 1e9);
  return call;
}

/// Init, then packets of moving objects.
std::vector<Call> session(int packets) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(kProductType), {});
  std::vector<Call> calls = {initOf(0)};
  for (int n = 0; n < packets; ++n) {
    Call& call = calls.emplace_back(packetOf(n + 1, simulator.timeOf(n)));
    const auto payload = simulator.frame(n).payload;
    call.payload.assign(payload.begin(), payload.end());
    call.length = static_cast<int>(call.payload.size());
  }
  return calls;
}

/// Packets that say nothing: they show which of them are estimated, in no time.
std::vector<Call> emptySession(int packets) {
  std::vector<Call> calls = {initOf(0)};
  for (int n = 0; n < packets; ++n) calls.push_back(packetOf(n + 1, n / 90.0));
  return calls;
}

/// What every packet of the calls is told, all of them wanted.
std::vector<std::optional<Estimation::Packet>> wanted(const std::vector<Call>& calls,
                                                      SideThread& thread) {
  Estimation estimation(static_cast<std::int64_t>(calls.size()), 90, thread);
  std::vector<std::optional<Estimation::Packet>> packets;
  for (const Call& call : calls) {
    estimation.add(call);
    if (call.kind == CallKind::kInputStream) packets.push_back(estimation.want());
  }
  estimation.finish();
  return packets;
}

bool isSame(const Place& a, const Place& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(EstimationTest, OfAShortRecordingEveryPacketIsEstimatedAsItWouldHaveBeenLive) {
  const std::vector<Call> calls = session(3000);  // more than one piece
  SideThread thread;
  const auto packets = wanted(calls, thread);
  LivePlaces live(90);
  live.add(calls[0]);
  for (std::size_t n = 0; n < packets.size(); ++n) {
    live.add(calls[n + 1]);
    ASSERT_TRUE(packets[n]) << n;
    for (int object = 0; object < 3; ++object)
      ASSERT_TRUE(isSame(packets[n]->get().live[static_cast<std::size_t>(object)], live.at(object)))
          << n;
  }
}

TEST(EstimationTest, SmoothedPlacesLieNearerToTheMotionThanLiveOnes) {
  SideThread thread;
  const auto packets = wanted(session(400), thread);
  const sim::Scene scene = sim::Scene::moving(kProductType);
  double live = 0, smoothed = 0;
  for (std::size_t n = 100; n < 300; ++n) {
    const Eigen::Vector3d p = scene.at(static_cast<double>(n) / 90).objects[1].position;
    const auto squareOf = [&](const Place& place) {
      return (Eigen::Vector3d(axisOf(place, 0), -axisOf(place, 1), -axisOf(place, 2)) - p)
          .squaredNorm();
    };
    live += squareOf(packets[n]->get().live[1]);
    smoothed += squareOf(packets[n]->get().smoothed[1]);
  }
  EXPECT_LT(smoothed, 0.5 * live);
}

TEST(EstimationTest, OfALongRecordingFourHalfMinutesAreEstimatedEvenlySpread) {
  SideThread thread;
  const auto packets = wanted(emptySession(40000), thread);
  std::vector<std::pair<std::size_t, std::size_t>> pieces;  // first packet, packets
  for (std::size_t n = 0; n < packets.size(); ++n) {
    if (!packets[n]) continue;
    if (n == 0 || !packets[n - 1]) pieces.push_back({n, 0});
    EXPECT_EQ(packets[n]->number, pieces.back().second++);
  }
  // A packet's call is one behind its number: the Init comes first.
  EXPECT_THAT(pieces, testing::ElementsAre(testing::Pair(0, 2700), testing::Pair(10000, 2700),
                                           testing::Pair(20000, 2700), testing::Pair(30000, 2700)));
}

TEST(EstimationTest, APieceIsThereSoonAfterItsLastPacketWithoutTheEnd) {
  SideThread thread;
  const std::vector<Call> calls = emptySession(40000);
  Estimation estimation(static_cast<std::int64_t>(calls.size()), 90, thread);
  std::optional<Estimation::Packet> first;
  for (std::size_t i = 0; i <= Estimation::kDelay; ++i) {
    estimation.add(calls[i]);
    if (i == 1) first = estimation.want();
  }
  ASSERT_TRUE(first);
  EXPECT_EQ(first->piece.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(EstimationTest, AnotherInitBeginsAnewAndOneThatNobodyCanWorkWithGivesNoPlaces) {
  std::vector<Call> calls = session(200);
  const std::vector<Call> again = session(100);
  Call unusable = initOf(201);
  unusable.payload.assign(unusable.payload.size(), 0);
  calls.push_back(unusable);
  calls.push_back(packetOf(202, 2.5));
  for (Call call : again) {
    call.index += 203;
    call.startNs += 3'000'000'000;
    calls.push_back(call);
  }
  SideThread thread;
  const auto packets = wanted(calls, thread);
  ASSERT_EQ(packets.size(), 301u);
  EXPECT_TRUE(isSomewhere(packets[199]->get().live[0]));
  for (const Place& place : packets[200]->get().live) EXPECT_FALSE(isSomewhere(place));
  EXPECT_TRUE(packets[200]->get().smoothed.empty());

  LivePlaces live(90);
  const std::size_t first = calls.size() - again.size();
  for (std::size_t i = first; i < calls.size(); ++i) live.add(calls[i]);
  EXPECT_TRUE(isSame(packets[300]->get().live[0], live.at(0)));
}

TEST(EstimationTest, APacketBeforeAnInitHasNoPlaces) {
  SideThread thread;
  Estimation estimation(10, 90, thread);
  EXPECT_FALSE(estimation.want());
  estimation.add(packetOf(0, 0));
  EXPECT_FALSE(estimation.want());
}

}  // namespace
