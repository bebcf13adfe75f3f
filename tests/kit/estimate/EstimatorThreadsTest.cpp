// Under the thread sanitizer too.
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/rig/StereoRig.h>
#include <gtest/gtest.h>
#include <sim/Simulator.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace estimate {
namespace {

TEST(EstimatorThreads, AnyMayAskWhileOneFeeds) {
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = 0.05;
  options.framing = sim::Framing::kStamped;
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(1), options);
  Estimator estimator(1, rig::builtInRig().calibration);
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0}, answers{0};
  std::vector<std::thread> threads;
  for (const int object : {0, 2})
    threads.emplace_back([&, object] {
      double last = 0, lastNow = 0;
      while (!stop) {
        const double now = estimator.now();
        if (now < lastNow || !(estimator.noise() > 0 || now == 0)) ++wrong;
        lastNow = now;
        const Verdict verdict = estimator.verdict(object);
        if (verdict.counts[static_cast<int>(Refusal::kBadPacket)] != 0) ++wrong;
        const Estimate estimate = estimator.ahead(object, 0.02);
        if (estimate.source == Source::kNone) continue;
        ++answers;
        if (estimate.time < last || !(std::abs(estimate.position[2] + 1500) < 500)) ++wrong;
        last = estimate.time;
      }
    });
  for (int i = 0; i < 500 || answers < 10; ++i) {
    const sim::Frame frame = simulator.frame(i);
    estimator.feed(simulator.streamType(), frame.payload.data(),
                   static_cast<int>(frame.payload.size()));
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace estimate
