#include <alg_factory/api/AlgFactory.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/analysis/ReportData.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <sim/Simulator.h>
#include <tests/support/ScratchFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <optional>
#include <vector>

namespace {

using analysis::Presence;
using analysis::ReportData;

struct SilentHost : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

/// A recorded session of `frames` frames; after every frame the host asks what `ask` asks.
class ReportDataTest : public testing::Test {
 protected:
  using Ask = std::function<void(recording::RecordingAlg&, const sim::Frame&)>;

  ReportData gather(const sim::Simulator& simulator, int productType, int filterMode, int frames,
                    const Ask& ask) {
    const std::string path = folder_.path("r");
    {
      std::int64_t nowNs = 0;
      recording::RecordingAlgOptions options;
      options.waitWhenFull = true;
      options.clock = [&nowNs] { return nowNs; };
      recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), path, options);
      SilentHost host;
      alg.SetLogCallback(&host);
      alg.SetDataCallback(&host);
      alg.Init(productType, reinterpret_cast<const unsigned char*>(&simulator.rig().calibration),
               0);
      alg.SetFilterMode(0, filterMode, nullptr);
      for (int n = 0; n < frames; ++n) {
        nowNs = std::llround(simulator.timeOf(n) * 1e9);
        const sim::Frame frame = simulator.frame(n);
        std::vector<session::TruthRow> truth;
        for (const sim::MarkerTruth& marker : frame.truth.markers)
          truth.push_back({n,
                           alg.nextIndex(),
                           nowNs,
                           marker.objectId,
                           marker.markerIndex,
                           {marker.position.x(), marker.position.y(), marker.position.z()},
                           marker.inLeft,
                           marker.inRight});
        alg.InputStream(simulator.streamType(), frame.payload.data(), 0,
                        static_cast<int>(frame.payload.size()));
        alg.addTruth(truth);
        if (ask) ask(alg, frame);
      }
    }
    return analysis::gatherReport(recording::RecordingReader(path),
                                  *algorithm::AlgFactory::CreateALG(0));
  }

  ScratchFolder folder_;
};

TEST_F(ReportDataTest, AnswersForALaterMomentAreComparedWithTheTruthOfThatMoment) {
  constexpr double kAhead = 0.006;
  constexpr int kFrames = 270;
  const sim::Scene scene = sim::Scene::moving(0);
  sim::SimulatorOptions options;
  options.framing = sim::Framing::kStamped;
  std::vector<algorithm::PoseAnswer> answers;
  const ReportData data = gather(sim::Simulator(rig::builtInRig(), scene, options), 0, 1, kFrames,
                                 [&](recording::RecordingAlg& alg, const sim::Frame& frame) {
                                   const std::uint64_t stamp =
                                       frame.stamp + std::llround(kAhead * 1e6);
                                   alg.HandleEvent(2, &stamp, &answers.emplace_back());
                                 });
  ASSERT_EQ(data.times.size(), static_cast<std::size_t>(kFrames));
  const analysis::ObjectTrack& track = data.objects[2];
  EXPECT_EQ(track.answers, kFrames);
  double apart = 0;
  for (std::size_t n = 1; n + 1 < kFrames; ++n) {
    const double time = static_cast<double>(n) / 90 + kAhead;
    const Eigen::Vector3d p = scene.at(time).objects[2].position;
    const double expected = std::hypot(static_cast<double>(answers[n].filtered[0]) - p.x(),
                                       static_cast<double>(answers[n].filtered[1]) + p.y(),
                                       static_cast<double>(answers[n].filtered[2]) + p.z());
    // The truth between two frames is taken from a straight line.
    EXPECT_NEAR(static_cast<double>(track.filteredError[n]), expected, 0.15) << n;
    apart = std::max(apart, (p - scene.at(static_cast<double>(n) / 90).objects[2].position).norm());
  }
  EXPECT_GT(apart, 2);  // comparing with the frame's own truth would have shown
}

TEST_F(ReportDataTest, AnswersAboutAnObjectThatIsAwayAreCountedAndNotDrawn) {
  sim::SimulatorOptions options;
  options.blobs.occlusions.push_back({4, std::nullopt, std::nullopt, 1, 2});
  const ReportData data = gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(2), options),
                                 2, 0, 270, [](recording::RecordingAlg& alg, const sim::Frame&) {
                                   algorithm::PoseAnswer answer;
                                   alg.HandleEvent(4, nullptr, &answer);
                                 });
  const analysis::ObjectTrack& track = data.objects[4];
  EXPECT_EQ(track.answersBridged, 90);
  EXPECT_EQ(track.answers, 270);
  for (std::size_t n = 0; n < 270; ++n) {
    const bool away = n >= 90 && n < 180;
    EXPECT_EQ(track.presence[n], away ? Presence::kAbsent : Presence::kSeen) << n;
    EXPECT_EQ(isSomewhere(track.filtered[n]), !away) << n;
  }
  EXPECT_EQ(data.objects[3].answers, 0);
}

TEST_F(ReportDataTest, TheTwoPointObjectIsComparedWithTheMiddleOfItsMarkers) {
  const ReportData data =
      gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(1)), 1, -1, 60, nullptr);
  const analysis::ObjectTrack& track = data.objects[2];
  // Its mount in the scene, mirrored.
  EXPECT_NEAR(static_cast<double>(track.truth[30].x), 0, 1e-3);
  EXPECT_NEAR(static_cast<double>(track.truth[30].y), -150, 1e-3);
  EXPECT_NEAR(static_cast<double>(track.truth[30].z), -1450, 1e-3);
  EXPECT_LT(track.rawError[30], 1);
  EXPECT_EQ(data.blocksDiffering, 0);
}

TEST_F(ReportDataTest, TheDurationsOfTheRecordingAreTheTimesOfThePackets) {
  const ReportData data =
      gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(0)), 0, -1, 30, nullptr);
  EXPECT_FALSE(data.measuredAnew);
  const recording::RecordingReader reader(folder_.path("r"));
  for (std::size_t n = 0; n < 30; ++n) {
    const auto entry = reader.entry(*reader.packetCall(static_cast<std::int64_t>(n)));
    EXPECT_DOUBLE_EQ(data.packetTimes[n], static_cast<double>(*entry->call.durationNs) / 1000);
  }
}

}  // namespace
