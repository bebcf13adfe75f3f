// Whole packets and queries, through the shared library and the host's callback.
#include <bench/Contestant.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <map>

namespace {

using bench::Contestant;
using bench::Workload;

constexpr int kWarmUps = 2;

/// Contestants and workloads are built when first asked for and kept.
Contestant& contestant(std::size_t index) {
  static const auto contestants = bench::makeContestants();
  return *contestants.at(index);
}

const Workload& workload(const std::string& key, const std::function<Workload()>& make) {
  static std::map<std::string, Workload> workloads;
  const auto found = workloads.find(key);
  return found != workloads.end() ? found->second : workloads.emplace(key, make()).first->second;
}

void feed(benchmark::State& state, Contestant& contestant, const Workload& load, int filterMode) {
  contestant.prepare(load, filterMode);
  for (int i = 0; i < kWarmUps; ++i) contestant.play(load);
  std::size_t n = 0;
  for (auto _ : state) {
    contestant.input(load.payloads[n]);
    if (++n == load.payloads.size()) n = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

void registerPackets() {
  for (const int productType : {0, 1, 2}) {
    for (const int streamType : {0, 2}) {
      for (const int mode : {-1, 0, 1}) {
        const std::string name = "InputStream/product:" + std::to_string(productType) +
                                 "/stream:" + std::to_string(streamType) +
                                 "/mode:" + std::to_string(mode);
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
          const Workload& load =
              workload(std::to_string(productType) + std::to_string(streamType), [=] {
                return bench::movingScene(productType, static_cast<sim::Framing>(streamType));
              });
          feed(state, contestant(0), load, mode);
        });
      }
    }
  }
}

void registerBlobCounts(std::size_t contestants) {
  constexpr int kFull = sim::kMaxPacketRecords;
  benchmark::RegisterBenchmark("InputStream/full_packet_of_one_id", [](benchmark::State& state) {
    feed(state, contestant(0), workload("one", [] { return bench::blobsOfOneId(kFull); }), 0);
  });
  for (std::size_t i = 0; i < contestants; ++i) {
    for (const int records : {12, kFull}) {
      const std::string name = contestant(i).name() + "/blobs:" + std::to_string(records);
      benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        const Workload& load = workload("spread" + std::to_string(records),
                                        [=] { return bench::spreadBlobs(records); });
        feed(state, contestant(i), load, 0);
      });
    }
  }
}

/// A host of its own for what is no packet.
struct QueryHost {
  explicit QueryHost(int productType) {
    // Stream type 2 feeds the head filters that queries of product types 0 and 1 read.
    const auto framing = productType == 2 ? sim::Framing::kPlain : sim::Framing::kStamped;
    const Workload& load = workload("query" + std::to_string(productType),
                                    [=] { return bench::movingScene(productType, framing); });
    contestant(0).prepare(load, 1);
    contestant(0).play(load);
    std::uint32_t lastStamp = 0;
    if (load.streamType == 2) std::memcpy(&lastStamp, load.payloads.back().data(), 4);
    stamp = lastStamp + 5000;  // 5 ms after the frame: extrapolated
  }
  algorithm::AlgBase* const alg = algorithm::AlgFactory::CreateALG(0);
  std::uint64_t stamp = 0;
};

void poseQuery(benchmark::State& state, int productType, int event) {
  QueryHost host(productType);
  algorithm::PoseAnswer answer;
  for (auto _ : state) {
    host.alg->HandleEvent(event, &host.stamp, &answer);
    benchmark::DoNotOptimize(answer);
  }
  if (answer.id != event) state.SkipWithError("the object is not there");
}
BENCHMARK_CAPTURE(poseQuery, marker_of_product_2, 2, 0);
BENCHMARK_CAPTURE(poseQuery, head_of_product_0, 0, 0);
BENCHMARK_CAPTURE(poseQuery, head_at_stamp_of_product_0, 0, 2);
BENCHMARK_CAPTURE(poseQuery, marker_of_product_0, 0, 3);

void headingQuery(benchmark::State& state) {
  QueryHost host(1);
  algorithm::OrientationSample sample;
  sample.orientation[3] = 1;
  algorithm::HeadingAnswer answer;
  for (auto _ : state) {
    host.alg->HandleEvent(16, &sample, &answer);
    benchmark::DoNotOptimize(answer);
  }
}
BENCHMARK(headingQuery);

void auxiliaryInput(benchmark::State& state, int streamType) {
  QueryHost host(1);
  const sim::Bytes payload =
      streamType == 5 ? sim::sideHintPayload(1) : sim::inertialPayload(algorithm::InertialRecord());
  for (auto _ : state) {
    host.alg->InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
  }
}
BENCHMARK_CAPTURE(auxiliaryInput, aux_vector, 1);
BENCHMARK_CAPTURE(auxiliaryInput, inertial, 3);
BENCHMARK_CAPTURE(auxiliaryInput, side_hint, 5);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerPackets();
  registerBlobCounts(bench::makeContestants().size());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
