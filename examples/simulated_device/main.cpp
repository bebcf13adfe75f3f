// A host without a device: the simulator makes the packets, and knows where the markers really
// were.
//   alg_simulated_device [SECONDS]
#include <alg_factory/api/AlgFactory.h>
#include <sim/Simulator.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kProduct = 2;

struct Host : algorithm::DataSink, algorithm::LogSink {
  algorithm::ResultBlock latest;
  int blocks = 0;

  bool Deliver(const void* buffer, int, int) override {
    latest = *static_cast<const algorithm::ResultBlock*>(buffer);
    return ++blocks > 0;
  }
  bool Log(int level, const char* text) override { return std::printf("%d %s", level, text) > 0; }
};

/// What came of one object.
struct Track {
  int seen = 0;
  double squares = 0, largest = 0;  ///< of the distance to the truth, mm

  void add(double distance) {
    ++seen;
    squares += distance * distance;
    largest = std::fmax(largest, distance);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 5;
  sim::SimulatorOptions options;
  options.blobs.pixelNoise = 0.05;
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(kProduct), options);

  static Host host;  // the library keeps the sinks
  static algorithm::AlgBase* const alg = algorithm::AlgFactory::CreateALG(0);
  alg->SetLogCallback(&host);
  alg->SetDataCallback(&host);
  if (!alg->Init(kProduct, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0))
    return 1;

  Track tracks[algorithm::objectCount(kProduct)];
  const int frames = static_cast<int>(seconds * device.frameRate());
  for (int n = 0; n < frames; ++n) {
    const sim::Frame frame = device.frame(n);
    alg->InputStream(device.streamType(), frame.payload.data(), 0,
                     static_cast<int>(frame.payload.size()));
    for (int k = 0; k < algorithm::objectCount(kProduct); ++k) {
      const algorithm::TrackedPoint& p = host.latest.records[k];
      if (p.id != k) continue;
      // Delivered: x right, y up, z to the viewer; the truth is mirrored alike.
      const auto truth = rig::mirrored(frame.truth.objects[static_cast<std::size_t>(k)].position);
      tracks[k].add(std::hypot(p.x - truth.x(), p.y - truth.y(), p.z - truth.z()));
    }
  }

  std::printf("%d packets, %d blocks\nobject  seen   distance to truth: RMS mm  largest mm\n",
              frames, host.blocks);
  for (int k = 0; k < algorithm::objectCount(kProduct); ++k) {
    const Track& track = tracks[k];
    std::printf("%6d %5d %26.2f %11.2f\n", k, track.seen,
                track.seen > 0 ? std::sqrt(track.squares / track.seen) : 0.0, track.largest);
  }
  return frames > 0 && host.blocks == frames ? 0 : 1;
}
