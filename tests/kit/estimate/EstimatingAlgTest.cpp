#include <alg_factory/api/AlgFactory.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/estimate/EstimatingAlg.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace estimate {
namespace {

struct Sink : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void* buffer, int, int length) override {
    const auto* const bytes = static_cast<const unsigned char*>(buffer);
    out.insert(out.end(), bytes, bytes + length);
    return true;
  }
  bool Log(int, const char* message) override {
    out.insert(out.end(), message, message + std::strlen(message));
    return true;
  }
  std::vector<unsigned char> out;
};

/// A short session; everything that the interface gave back.
std::vector<unsigned char> session(algorithm::AlgBase& alg, const sim::Simulator& simulator) {
  static Sink sink;  // the library keeps it
  sink.out.clear();
  alg.SetLogCallback(&sink);
  alg.SetDataCallback(&sink);
  alg.Init(0, reinterpret_cast<const unsigned char*>(&simulator.rig().calibration), 0);
  alg.SetFilterMode(0, 0, nullptr);
  for (int n = 0; n < 120; ++n) {
    const auto payload = simulator.frame(n).payload;
    alg.InputStream(2, payload.data(), 0, static_cast<int>(payload.size()));
    for (int object = 0; object < 3; ++object) {
      const std::uint64_t stamp = 1234;
      unsigned char answer[sizeof(algorithm::PoseAnswer)] = {};
      alg.HandleEvent(object, &stamp, answer);
      sink.out.insert(sink.out.end(), answer, answer + sizeof answer);
    }
  }
  // Objects that vanish begin anew: nothing of this session reaches into the next.
  const auto dark = sim::frameType2(simulator.frame(120).stamp, sim::devicePacket({}));
  const auto out = sink.out;
  alg.InputStream(2, dark.data(), 0, static_cast<int>(dark.size()));
  return out;
}

sim::Simulator simulator() {
  sim::SimulatorOptions options;
  options.framing = sim::Framing::kStamped;
  return {rig::builtInRig(), sim::Scene::moving(0), options};
}

TEST(EstimatingAlg, KnowsMoreWhileTheInterfaceStaysTheLibrarys) {
  algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  const auto device = simulator();
  // The library's pipeline is one per process and remembers: one session sets it for both.
  session(*library, device);
  const auto plain = session(*library, device);
  EstimatingAlg alg(library);
  EXPECT_EQ(alg.at(0).source, Source::kNone);
  const auto through = session(alg, device);
  ASSERT_EQ(plain.size(), through.size());
  const auto differs = std::mismatch(plain.begin(), plain.end(), through.begin()).first;
  EXPECT_EQ(differs - plain.begin(), static_cast<std::ptrdiff_t>(plain.size()));
  for (int object = 0; object < 3; ++object) {
    const Estimate now = alg.at(object);
    ASSERT_EQ(now.source, Source::kBridged);  // it is dark
    const auto truth =
        rig::mirrored(device.frame(120).truth.objects[static_cast<std::size_t>(object)].position);
    EXPECT_LT((Eigen::Vector3d(now.position) - truth).norm(), 1000);
    EXPECT_EQ(alg.verdict(object).counts[static_cast<int>(Refusal::kNone)], 120);
  }
  EXPECT_EQ(alg.ahead(0, 0.02).source, Source::kPredicted);
}

TEST(EstimatingAlg, HasNothingToSayOfACalibrationThatIsNone) {
  EstimatingAlg alg(algorithm::AlgFactory::CreateALG(0));
  const algorithm::StereoCalibration none;
  static Sink sink;
  alg.SetLogCallback(&sink);
  alg.SetDataCallback(&sink);
  alg.Init(0, reinterpret_cast<const unsigned char*>(&none), 0);
  const auto payload = simulator().frame(0).payload;
  alg.InputStream(2, payload.data(), 0, static_cast<int>(payload.size()));
  EXPECT_EQ(alg.at(0).source, Source::kNone);
}

}  // namespace
}  // namespace estimate
