// paced_host FILE SECONDS [COMMIT_MS]
// A host as it lives: a simulated device sends a packet 90 times a second, every call is recorded.
// Prints for every packet its number and when InputStream was called, in microseconds of the wall
// clock, and at the end how long these calls took.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <sim/Simulator.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>
#include <vector>

namespace {

constexpr int kProduct = 2;

struct Host : algorithm::DataSink {
  bool Deliver(const void*, int, int) override { return true; }
};

int run(const char* file, double seconds, int commitMs) {
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = 0.05;
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(kProduct), options);
  recording::RecordingAlgOptions recording;
  recording.commitInterval = std::chrono::milliseconds(commitMs);
  recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), file, recording);
  static Host host;  // the library keeps the sink
  alg.SetDataCallback(&host);
  if (!alg.Init(kProduct, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0))
    return 1;

  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  std::vector<double> took;  // microseconds
  for (int n = 0; n < seconds * device.frameRate(); ++n) {
    const sim::Frame frame = device.frame(n);
    std::this_thread::sleep_until(begin + std::chrono::duration<double>(device.timeOf(n)));
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    const auto before = Clock::now();
    alg.InputStream(device.streamType(), frame.payload.data(), 0,
                    static_cast<int>(frame.payload.size()));
    took.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
    std::printf("%d %lld\n", n,
                static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::microseconds>(wall).count()));
    for (int k = 0; k < algorithm::objectCount(kProduct); ++k) {
      algorithm::PoseAnswer answer;
      alg.HandleEvent(k, nullptr, &answer);
    }
  }
  alg.SetDataCallback(nullptr);
  const recording::RecorderStatus status = alg.close();
  std::sort(took.begin(), took.end());
  if (!took.empty())
    std::fprintf(stderr, "InputStream, us: median %.1f, 99 %% %.1f, largest %.1f; %s\n",
                 took[took.size() / 2], took[took.size() * 99 / 100], took.back(),
                 status.error.empty() ? "recorded" : status.error.c_str());
  return status.closed && status.dropped == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: paced_host FILE SECONDS [COMMIT_MS]\n");
    return 2;
  }
  try {
    return run(argv[1], std::atof(argv[2]), argc > 3 ? std::atoi(argv[3]) : 250);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
