#include <alg_factory/api/AlgBase.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/StereoService.h>
#include <alg_kit/analysis/ReportMaker.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <sim/Simulator.h>
#include <tests/support/ScratchFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

namespace {

using analysis::ObjectCurves;
using analysis::Report;

struct SilentHost : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

/// The library with a pipeline of its own. That of the process keeps, in records that a product
/// type does not use, what an earlier test's session left there; a replay knows nothing of it.
class OwnPipeline final : public algorithm::AlgBase {
 public:
  bool Init(int productType, const unsigned char* config, int configOffset) override {
    return service_.initialize(productType, config, configOffset);
  }
  bool InputStream(int type, const unsigned char* buffer, int offset, int length) override {
    return service_.inputStream(type, buffer, offset, length);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    return service_.setDataCallback(sink);
  }
  bool SetLogCallback(algorithm::LogSink* sink) override { return service_.setLogCallback(sink); }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    return service_.setFilterMode(parameter, mode, reserved);
  }
  int GetFixedCode() override { return 800; }
  bool HandleEvent(int type, const void* input, void* output) override {
    return service_.handleEvent(type, input, output);
  }

 private:
  algorithm::StereoService service_;
};

/// A recorded session of `frames` frames; after every frame the host asks what `ask` asks.
class ReportMakerTest : public testing::Test {
 protected:
  using Ask = std::function<void(recording::RecordingAlg&, const sim::Frame&)>;

  Report gather(const sim::Simulator& simulator, int productType, int filterMode, int frames,
                const Ask& ask) {
    const std::string path = folder_.path("r");
    {
      std::int64_t nowNs = 0;
      recording::RecordingAlgOptions options;
      options.waitWhenFull = true;
      options.clock = [&nowNs] { return nowNs; };
      recording::RecordingAlg alg(&library_, path, options);
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
    return analysis::makeReport(recording::RecordingReader(path), {}, range_, {}, library_);
  }

  ScratchFolder folder_;
  OwnPipeline library_;
  analysis::ReportRange range_;
};

TEST_F(ReportMakerTest, AnswersForALaterMomentAreComparedWithTheTruthOfThatMoment) {
  constexpr double kAhead = 0.006;
  constexpr int kFrames = 270;
  const sim::Scene scene = sim::Scene::moving(0);
  sim::SimulatorOptions options;
  options.framing = sim::Framing::kStamped;
  std::vector<algorithm::PoseAnswer> answers;
  const Report report = gather(sim::Simulator(rig::builtInRig(), scene, options), 0, 1, kFrames,
                               [&](recording::RecordingAlg& alg, const sim::Frame& frame) {
                                 const std::uint64_t stamp =
                                     frame.stamp + std::llround(kAhead * 1e6);
                                 alg.HandleEvent(2, &stamp, &answers.emplace_back());
                               });
  ASSERT_EQ(report.numbers.recording.packets, kFrames);
  const ObjectCurves& track = report.curves.objects[2];
  EXPECT_EQ(report.numbers.objects[2].answers.answered, kFrames);
  EXPECT_EQ(report.numbers.objects[2].answers.ahead, kFrames);
  double apart = 0;
  for (std::size_t n = 1; n + 1 < kFrames; ++n) {
    const double time = static_cast<double>(n) / 90 + kAhead;
    const Eigen::Vector3d p = scene.at(time).objects[2].position;
    const double expected = std::hypot(static_cast<double>(answers[n].filtered[0]) - p.x(),
                                       static_cast<double>(answers[n].filtered[1]) + p.y(),
                                       static_cast<double>(answers[n].filtered[2]) + p.z());
    // The truth between two frames is taken from a straight line.
    EXPECT_NEAR(static_cast<double>(track.filteredError.low[n]), expected, 0.15) << n;
    apart = std::max(apart, (p - scene.at(static_cast<double>(n) / 90).objects[2].position).norm());
  }
  EXPECT_GT(apart, 2);  // comparing with the frame's own truth would have shown
}

TEST_F(ReportMakerTest, AnswersAboutAnObjectThatIsAwayAreCountedAndNotDrawn) {
  sim::SimulatorOptions options;
  options.blobs.occlusions.push_back({4, std::nullopt, std::nullopt, 1, 2});
  const Report report = gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(2), options), 2,
                               0, 270, [](recording::RecordingAlg& alg, const sim::Frame&) {
                                 algorithm::PoseAnswer answer;
                                 alg.HandleEvent(4, nullptr, &answer);
                               });
  const ObjectCurves& track = report.curves.objects[4];
  EXPECT_EQ(report.numbers.objects[4].answers.asked, 270);
  EXPECT_EQ(report.numbers.objects[4].answers.answered, 270);
  EXPECT_EQ(report.numbers.objects[4].answers.bridged, 90);
  for (std::size_t n = 0; n < 270; ++n) {
    const bool away = n >= 90 && n < 180;
    EXPECT_EQ(track.absent[n], away ? 1 : 0) << n;
    EXPECT_EQ(track.seen[n], away ? 0 : 1) << n;
    EXPECT_EQ(std::isfinite(track.filtered[0].low[n]), !away) << n;
  }
  EXPECT_EQ(report.numbers.objects[3].answers.asked, 0);
}

TEST_F(ReportMakerTest, TheTwoPointObjectIsComparedWithTheMiddleOfItsMarkers) {
  const Report report =
      gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(1)), 1, -1, 60, nullptr);
  const ObjectCurves& track = report.curves.objects[2];
  // Its mount in the scene, mirrored.
  EXPECT_NEAR(static_cast<double>(track.truth[0].low[30]), 0, 1e-3);
  EXPECT_NEAR(static_cast<double>(track.truth[1].low[30]), -150, 1e-3);
  EXPECT_NEAR(static_cast<double>(track.truth[2].low[30]), -1450, 1e-3);
  EXPECT_LT(track.rawError.low[30], 1);
  EXPECT_THAT(report.numbers.notices,
              testing::Not(testing::Contains(testing::HasSubstr("otherwise than recorded"))));
}

TEST_F(ReportMakerTest, TheDurationsOfTheRecordingAreTheTimesOfThePackets) {
  const Report report =
      gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(0)), 0, -1, 30, nullptr);
  EXPECT_FALSE(report.numbers.packetTimes.measuredAnew);
  const recording::RecordingReader reader(folder_.path("r"));
  double sum = 0, largest = 0;
  for (std::int64_t n = 0; n < 30; ++n) {
    const auto entry = reader.entry(*reader.packetCall(n));
    const double us = static_cast<double>(*entry->call.durationNs) / 1000;
    sum += us;
    largest = std::max(largest, us);
  }
  EXPECT_EQ(report.numbers.packetTimes.us.count, 30);
  EXPECT_DOUBLE_EQ(report.numbers.packetTimes.us.largest, largest);
  EXPECT_NEAR(report.numbers.packetTimes.us.mean, sum / 30, 1e-9);
}

TEST_F(ReportMakerTest, QueriesWithoutAnObjectAreAskedAndNotAnswered) {
  sim::SimulatorOptions options;
  options.framing = sim::Framing::kStamped;
  options.blobs.occlusions.push_back({1, std::nullopt, std::nullopt, 0, 99});
  const Report report = gather(sim::Simulator(rig::builtInRig(), sim::Scene::still(0), options), 0,
                               0, 60, [](recording::RecordingAlg& alg, const sim::Frame&) {
                                 algorithm::PoseAnswer answer;
                                 alg.HandleEvent(1, nullptr, &answer);
                               });
  EXPECT_EQ(report.numbers.objects[1].answers.asked, 60);
  EXPECT_EQ(report.numbers.objects[1].answers.answered, 0);
  // It never came: one gap as long as the recording.
  EXPECT_EQ(report.numbers.objects[1].presence.gaps, 1);
  EXPECT_NEAR(report.numbers.objects[1].presence.longestGap->seconds, 59.0 / 90, 1e-6);
}

TEST_F(ReportMakerTest, APartOfARecordingHoldsItsPacketsUnderTheirOwnNames) {
  range_.object = 2;
  range_.time = {0.5, 1.0};
  const Report report =
      gather(sim::Simulator(rig::builtInRig(), sim::Scene::moving(0)), 0, -1, 180, nullptr);
  // Frames 45 to 89 begin in [0.5 s, 1 s).
  EXPECT_EQ(report.numbers.recording.packets, 45);
  ASSERT_EQ(report.numbers.objects.size(), 1u);
  EXPECT_EQ(report.numbers.objects[0].object, 2);
  EXPECT_EQ(report.curves.packets.front(), 45);
  EXPECT_EQ(report.curves.packets.back(), 89);
  EXPECT_NEAR(report.curves.times.front(), 0.5, 1e-9);
  EXPECT_EQ(report.numbers.packetTimes.us.count, 45);
  EXPECT_NEAR(*report.numbers.recording.packetsPerSecond, 90, 1e-3);
}

TEST_F(ReportMakerTest, ARangeWithoutPacketsAndAnUnknownObjectAreRefused) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::still(0));
  range_.time = {50.0, 60.0};
  EXPECT_THROW(gather(simulator, 0, -1, 10, nullptr), std::runtime_error);
  range_ = {};
  range_.object = 3;
  EXPECT_THROW(gather(simulator, 0, -1, 10, nullptr), std::runtime_error);
}

}  // namespace
