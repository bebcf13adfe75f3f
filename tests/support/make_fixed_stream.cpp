// Writes the fixed stream that FixedStreamTest replays: run it only when the library's results are
// meant to change.  make_fixed_stream FILE [TIMES]
// TIMES makes every session that many times as long, for FixedStreamTest with
// ALG_FIXED_STREAM=FILE.
#include <sim/Simulator.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "FixedStream.h"

namespace {

using testing_support::Call;
using testing_support::Operation;

std::vector<std::uint8_t> bytesOf(const void* data, std::size_t size) {
  const auto* first = static_cast<const std::uint8_t*>(data);
  return {first, first + size};
}

void appendSession(int productType, sim::Framing framing, int filterMode, int frames,
                   std::uint64_t seed, std::vector<Call>& calls) {
  const rig::StereoRig rig = rig::builtInRig();
  sim::SimulatorOptions options;
  options.framing = framing;
  options.seed = seed;
  options.blobs.pixelNoise = 0.05;
  options.blobs.dropoutProbability = 0.03;
  options.blobs.splitProbability = 0.1;
  options.blobs.strayRate = 0.3;
  options.blobs.reflectionProbability = 0.05;
  options.faults.corruptProbability = 0.03;
  options.faults.wrongCheckProbability = 0.03;
  const sim::Simulator simulator(rig, sim::Scene::moving(productType, seed), options);

  calls.push_back(
      {Operation::kInit, productType, bytesOf(&rig.calibration, sizeof rig.calibration)});
  calls.push_back({Operation::kSetFilterMode, filterMode, {}});
  for (int n = 0; n < frames; ++n) {
    const sim::Frame frame = simulator.frame(n);
    if (n % 5 == 0) {
      calls.push_back({Operation::kInputStream, 3, simulator.inertialPayloadOf(0, n)});
      calls.push_back({Operation::kInputStream, 4, simulator.inertialPayloadOf(1, n)});
    }
    if (n % 20 == 7)
      calls.push_back({Operation::kInputStream, 5, sim::sideHintPayload(n / 20 % 3)});
    calls.push_back({Operation::kInputStream, simulator.streamType(), frame.payload});
    const std::uint64_t stamp = frame.stamp + 8000u * static_cast<unsigned>(n % 20);
    const int event = n % 6;
    calls.push_back({Operation::kHandleEvent, event, bytesOf(&stamp, sizeof stamp)});
    if (n % 15 == 3) {
      algorithm::OrientationSample sample;
      const float q[4] = {0.02f, 0.1f, 0.03f, 0.99f};
      std::memcpy(sample.orientation, q, sizeof q);
      sample.value = static_cast<std::uint64_t>(n);
      calls.push_back({Operation::kHandleEvent, 16, bytesOf(&sample, sizeof sample)});
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int times = argc == 3 ? std::atoi(argv[2]) : 1;
  if (argc < 2 || argc > 3 || times < 1) {
    std::fprintf(stderr, "usage: make_fixed_stream FILE [TIMES]\n");
    return 2;
  }
  try {
    testing_support::FixedStream stream;
    appendSession(2, sim::Framing::kPlain, 0, 80 * times, 1, stream.calls);
    appendSession(2, sim::Framing::kStamped, 1, 40 * times, 2, stream.calls);
    appendSession(1, sim::Framing::kStamped, 0, 80 * times, 3, stream.calls);
    appendSession(1, sim::Framing::kPlain, 1, 60 * times, 4, stream.calls);
    appendSession(0, sim::Framing::kPlain, 0, 40 * times, 5, stream.calls);
    appendSession(0, sim::Framing::kStamped, -1, 40 * times, 6, stream.calls);
    stream.outcomes = testing_support::run(stream.calls);
    writeFixedStream(argv[1], stream);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_fixed_stream: %s\n", error.what());
    return 1;
  }
  return 0;
}
