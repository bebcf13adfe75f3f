// What recording adds to a call. The library is replaced by one that only delivers a block, so that
// nothing else takes time; a call through the recorder is compared with the same call without it.
//   alg_recorder_overhead [SECONDS [spin]]
// The host sleeps between its frames, as hosts do, or spins: the processor does not go idle then.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

class EmptyAlg final : public algorithm::AlgBase {
 public:
  bool Init(int, const unsigned char*, int) override { return true; }
  bool InputStream(int, const unsigned char*, int, int) override {
    return sink_->Deliver(&block_, 0, sizeof block_);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    sink_ = sink;
    return true;
  }
  bool SetLogCallback(algorithm::LogSink*) override { return true; }
  bool SetFilterMode(int, int, void*) override { return true; }
  int GetFixedCode() override { return 800; }
  bool HandleEvent(int, const void*, void* output) override {
    *static_cast<algorithm::PoseAnswer*>(output) = {};
    return true;
  }

 private:
  algorithm::DataSink* sink_ = nullptr;
  algorithm::ResultBlock block_;
};

struct Host : algorithm::DataSink {
  bool Deliver(const void*, int, int) override { return true; }
};

struct Times {
  std::vector<double> packets, queries;  // nanoseconds
};

template <typename Call>
double nanoseconds(Call call) {
  const auto begin = Clock::now();
  call();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

// A packet of six blobs in both cameras, then six queries, at 90 Hz: what a host does.
Times drive(algorithm::AlgBase& alg, int frames, bool spin) {
  static Host host;
  alg.SetDataCallback(&host);
  const std::vector<unsigned char> packet(2 + 12 * 12 + 1, 0);
  Times times;
  auto due = Clock::now();
  for (int n = 0; n < frames; ++n) {
    times.packets.push_back(nanoseconds(
        [&] { alg.InputStream(0, packet.data(), 0, static_cast<int>(packet.size())); }));
    algorithm::PoseAnswer answer;
    for (int event = 0; event < 6; ++event)
      times.queries.push_back(nanoseconds([&] { alg.HandleEvent(event, nullptr, &answer); }));
    due += std::chrono::microseconds(11111);
    if (!spin) std::this_thread::sleep_until(due);
    while (Clock::now() < due) continue;
  }
  return times;
}

double percentile(std::vector<double> values, double share) {
  const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

void print(const char* name, const std::vector<double>& with, const std::vector<double>& without) {
  std::printf("%-8s  %7zu  %9.0f  %9.0f  %9.0f  %9.0f  %9.0f  %9.0f\n", name, with.size(),
              percentile(without, 0.5), percentile(without, 0.99), percentile(with, 0.5),
              percentile(with, 0.99), percentile(with, 0.5) - percentile(without, 0.5),
              percentile(with, 0.99) - percentile(without, 0.99));
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 20;
  const bool spin = argc > 2 && std::string_view(argv[2]) == "spin";
  if (seconds < 1 || (argc > 2 && !spin)) {
    std::fprintf(stderr, "usage: alg_recorder_overhead [SECONDS [spin]]\n");
    return 2;
  }
  const auto file = std::filesystem::temp_directory_path() / "alg_recorder_overhead.algrec";
  EmptyAlg empty;
  const Times without = drive(empty, 90 * seconds, spin);
  recording::RecordingAlgOptions recorder;
  recorder.overwrite = true;
  recording::RecordingAlg alg(&empty, file.string(), recorder);
  const Times with = drive(alg, 90 * seconds, spin);
  const recording::RecorderStatus status = alg.close();
  std::filesystem::remove(file);

  std::printf("nanoseconds per call at 90 packets and 540 queries a second\n");
  std::printf(
      "call        count  plain p50  plain p99   rec. p50   rec. p99  added p50  added p99\n");
  print("packet", with.packets, without.packets);
  print("query", with.queries, without.queries);
  std::printf("%lld calls written, %lld dropped\n", static_cast<long long>(status.written),
              static_cast<long long>(status.dropped));
}
