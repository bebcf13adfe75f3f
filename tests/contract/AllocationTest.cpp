// After Init, packets and queries allocate nothing, whatever the product type, the framing, the
// filter mode and the cameras' view. The count covers the whole library and everything it calls.
#include <gtest/gtest.h>

#include <alg_factory/api/AlgFactory.h>
#include <sim/Simulator.h>
#include <tests/support/AllocationCounter.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace {

using testing_support::allocations;

struct SilentHost : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void* buffer, int, int) override {
    const auto& block = *static_cast<const algorithm::ResultBlock*>(buffer);
    for (std::size_t k = 0; k < 6; ++k) {
      const bool sees = block.records[k].id != -1;
      if (sees && !seen[k]) ++arrivals[k];
      seen[k] = sees;
    }
    return true;
  }
  bool Log(int, const char*) override {
    ++messages;
    return true;
  }
  bool seen[6] = {};
  int arrivals[6] = {};  ///< how often an object that was not there came
  int messages = 0;
};

/// Markers stand so far apart that blobs of one id are not merged.
sim::Scene crowdedScene(int productType, int markers) {
  std::vector<sim::SceneObject> objects = sim::Scene::moving(productType).objects();
  for (sim::SceneObject& object : objects) object.markers.clear();
  for (int n = 0; n < markers; ++n) {
    const int ids = static_cast<int>(objects.size());
    const int k = n / ids;
    objects[static_cast<std::size_t>(n % ids)].markers.emplace_back(60 * (k % 3), 60 * (k / 3), 0);
  }
  return sim::Scene(productType, std::move(objects));
}

/// As many records as a device packet holds.
sim::Frame fullFrame(int productType, sim::Framing framing) {
  sim::SimulatorOptions options;
  options.framing = framing;
  constexpr int kMarkers = static_cast<int>(sim::kMaxPacketRecords) / 2;
  return sim::Simulator(rig::builtInRig(), crowdedScene(productType, kMarkers), options).frame(0);
}

/// All that a real view has: noise, split and stray blobs, reflections, damaged packets, and
/// objects that are hidden for a while, one after the other, in one camera or in both.
sim::SimulatorOptions troubledView(int productType, sim::Framing framing) {
  sim::SimulatorOptions options;
  options.framing = framing;
  options.seed = 7;
  options.blobs.pixelNoise = 0.05;
  options.blobs.dropoutProbability = 0.02;
  options.blobs.splitProbability = 0.1;
  options.blobs.strayRate = 0.5;
  options.blobs.reflectionProbability = 0.1;
  options.faults.lossProbability = 0.01;
  options.faults.corruptProbability = 0.02;
  options.faults.wrongCheckProbability = 0.02;
  for (int id = 0; id < sim::objectCount(productType); ++id) {
    options.blobs.occlusions.push_back({id, std::nullopt, std::nullopt, 1.0 + id, 1.7 + id});
    options.blobs.occlusions.push_back(
        {id, std::nullopt, rig::Camera::kLeft, 8.0 + 0.5 * id, 8.3 + 0.5 * id});
  }
  options.blobs.occlusions.push_back({2, 1, std::nullopt, 6.0, 7.0});  // one of a pair
  return options;
}

template <typename Operation>
long allocationsOf(Operation operation) {
  const long before = allocations();
  operation();
  return allocations() - before;
}

class Allocation : public testing::TestWithParam<std::tuple<int, sim::Framing, int>> {
 protected:
  int productType() const { return std::get<0>(GetParam()); }
  sim::Framing framing() const { return std::get<1>(GetParam()); }
  int filterMode() const { return std::get<2>(GetParam()); }

  void SetUp() override {
#if !ALG_COUNTS_ALLOCATIONS
    GTEST_SKIP() << "malloc cannot be replaced here";
#endif
    const rig::StereoRig rig = rig::builtInRig();
    alg_->SetLogCallback(&host_);
    alg_->SetDataCallback(&host_);
    const auto* config = reinterpret_cast<const unsigned char*>(&rig.calibration);
    ASSERT_GT(allocationsOf([&] { alg_->Init(productType(), config, 0); }), 0)
        << "the counter does not see what the library allocates";
    alg_->SetFilterMode(0, filterMode(), nullptr);
  }

  void TearDown() override {
    alg_->SetFilterMode(0, -1, nullptr);  // the mode is the process's
  }

  void input(int streamType, const sim::Bytes& payload) {
    alg_->InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
  }

  void input(const sim::Bytes& packet) {
    input(static_cast<int>(framing()), packet);
  }

  void query(int event, std::uint64_t stamp) {
    algorithm::PoseAnswer answer;
    alg_->HandleEvent(event, &stamp, &answer);
  }

  void queryHeading() {
    algorithm::OrientationSample sample;
    sample.orientation[3] = 1;
    algorithm::HeadingAnswer answer;
    alg_->HandleEvent(16, &sample, &answer);
  }

  // As in a host: one object and its sinks, for the life of the process.
  static algorithm::AlgBase* const alg_;
  static SilentHost host_;
};

algorithm::AlgBase* const Allocation::alg_ = algorithm::AlgFactory::CreateALG(0);
SilentHost Allocation::host_;

TEST_P(Allocation, DoesNotHappenAfterInit) {
  const sim::Simulator view(rig::builtInRig(), sim::Scene::moving(productType()),
                            troubledView(productType(), framing()));
  const sim::Frame full = fullFrame(productType(), framing());
  ASSERT_EQ(full.blobs.size(), sim::kMaxPacketRecords);
  const sim::Bytes endless(1'000'000, 0xAA);  // far longer than a packet can be
  host_ = SilentHost();

  for (int n = 0; n < 1200; ++n) {
    const sim::Frame frame = view.frame(n);
    ASSERT_EQ(allocationsOf([&] { input(frame.payload); }), 0) << "a packet, frame " << n;
    if (n % 100 == 50) {
      ASSERT_EQ(allocationsOf([&] { input(full.payload); }), 0) << "a full packet, frame " << n;
      ASSERT_EQ(allocationsOf([&] { input(endless); }), 0) << "an endless packet, frame " << n;
    }
    for (int event = 0; event < 6; ++event) {
      ASSERT_EQ(allocationsOf([&] { query(event, frame.stamp + 8000u); }), 0)
          << "pose query " << event << ", frame " << n;
    }
    ASSERT_EQ(allocationsOf([&] { queryHeading(); }), 0) << "a heading query, frame " << n;

    const sim::Bytes sampleA = view.inertialPayloadOf(0, n), sampleB = view.inertialPayloadOf(1, n);
    const sim::Bytes hint = sim::sideHintPayload(n % 3);
    ASSERT_EQ(allocationsOf([&] {
                input(1, sampleA);
                input(3, sampleA);
                input(4, sampleB);
                input(5, hint);
              }),
              0)
        << "samples and hints, frame " << n;
  }

  // The view did what it is for.
  for (int id = 0; id < sim::objectCount(productType()); ++id) {
    EXPECT_GE(host_.arrivals[id], 2) << "object " << id << " never came back";
  }
  EXPECT_GT(host_.messages, 10);
}

std::string nameOf(const testing::TestParamInfo<Allocation::ParamType>& info) {
  const auto [productType, framing, mode] = info.param;
  return "ProductType" + std::to_string(productType) + "StreamType" +
         std::to_string(static_cast<int>(framing)) +
         (mode == -1 ? "FiltersOff" : "Mode" + std::to_string(mode));
}

INSTANTIATE_TEST_SUITE_P(EveryConfiguration, Allocation,
                         testing::Combine(testing::Values(0, 1, 2),
                                          testing::Values(sim::Framing::kPlain,
                                                          sim::Framing::kStamped),
                                          testing::Values(-1, 0, 1)),
                         nameOf);

}  // namespace
