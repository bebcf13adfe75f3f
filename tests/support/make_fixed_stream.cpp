// Writes the fixed stream that FixedStreamTest replays: run it only when the library's results are
// meant to change.  make_fixed_stream FILE [TIMES]
// TIMES makes every session that many times as long, for FixedStreamTest with
// ALG_FIXED_STREAM=FILE.
#include <alg_factory/api/AlgFactory.h>
#include <sim/Simulator.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <tests/support/FixedStream.h>

namespace {

using session::CallKind;

/// Writes a session's calls down as a recorder would.
class Script {
 public:
  std::vector<session::Unit> units;

  void init(int productType, const algorithm::StereoCalibration& calibration) {
    productType_ = productType;
    add(CallKind::kInit, productType, &calibration, sizeof calibration);
  }
  void setFilterMode(int mode) {
    session::Call& call = units.emplace_back().append().call;
    call.index = static_cast<std::int64_t>(units.size()) - 1;
    call.kind = CallKind::kSetFilterMode;
    call.mode = mode;
  }
  void input(int streamType, const session::Bytes& payload) {
    add(CallKind::kInputStream, streamType, payload.data(), payload.size());
  }
  void query(int event, const void* input) { add(CallKind::kHandleEvent, event, input, 0); }

 private:
  void add(CallKind kind, int type, const void* bytes, std::size_t size) {
    session::Call& call = units.emplace_back().append().call;
    call.index = static_cast<std::int64_t>(units.size()) - 1;
    call.kind = kind;
    call.type = type;
    call.pointerGiven = true;
    call.outputGiven = kind == CallKind::kHandleEvent;
    if (kind == CallKind::kInputStream) call.length = static_cast<int>(size);
    const auto* const first = static_cast<const std::uint8_t*>(bytes);
    call.payload.assign(first, first + session::payloadSize(call, productType_));
  }

  int productType_ = 0;
};

void appendSession(int productType, sim::Framing framing, int filterMode, int frames,
                   std::uint64_t seed, Script& script) {
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

  script.init(productType, rig.calibration);
  script.setFilterMode(filterMode);
  for (int n = 0; n < frames; ++n) {
    const sim::Frame frame = simulator.frame(n);
    if (n % 5 == 0) {
      script.input(3, simulator.inertialPayloadOf(0, n));
      script.input(4, simulator.inertialPayloadOf(1, n));
    }
    if (n % 20 == 7) script.input(5, sim::sideHintPayload(n / 20 % 3));
    script.input(simulator.streamType(), frame.payload);
    const std::uint64_t stamp = frame.stamp + 8000u * static_cast<unsigned>(n % 20);
    script.query(n % 6, &stamp);
    if (n % 15 == 3) {
      algorithm::OrientationSample sample;
      const float q[4] = {0.02f, 0.1f, 0.03f, 0.99f};
      std::memcpy(sample.orientation, q, sizeof q);
      sample.value = static_cast<std::uint64_t>(n);
      script.query(16, &sample);
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
    Script script;
    appendSession(2, sim::Framing::kPlain, 0, 80 * times, 1, script);
    appendSession(2, sim::Framing::kStamped, 1, 40 * times, 2, script);
    appendSession(1, sim::Framing::kStamped, 0, 80 * times, 3, script);
    appendSession(1, sim::Framing::kPlain, 1, 60 * times, 4, script);
    appendSession(0, sim::Framing::kPlain, 0, 40 * times, 5, script);
    appendSession(0, sim::Framing::kStamped, -1, 40 * times, 6, script);
    testing_support::writeUnits(
        argv[1], testing_support::played(*algorithm::AlgFactory::CreateALG(0), script.units));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_fixed_stream: %s\n", error.what());
    return 1;
  }
  return 0;
}
