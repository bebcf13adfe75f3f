// A host that records its session: the line that makes the RecordingAlg is all it takes.
//   alg_recording_host session.algrec
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <sim/Simulator.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

namespace {

struct Host : algorithm::DataSink, algorithm::LogSink {
  int blocks = 0;
  bool Deliver(const void*, int, int) override { return ++blocks > 0; }
  bool Log(int, const char*) override { return true; }
};

void runSession(const char* file) {
  static Host host;  // the library keeps the sinks
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  recording::RecordingAlg alg(library, file);

  // From here on it is a host like any other; a simulated device stands for the real one.
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(2));
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  alg.Init(2, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0);
  alg.SetFilterMode(0, 0, nullptr);
  for (int n = 0; n < 180; ++n) {
    const sim::Bytes packet = device.frame(n).payload;
    alg.InputStream(device.streamType(), packet.data(), 0, static_cast<int>(packet.size()));
    algorithm::PoseAnswer pose;
    for (int object = 0; object < 6; ++object) alg.HandleEvent(object, nullptr, &pose);
    std::this_thread::sleep_for(std::chrono::microseconds(11111));
  }

  // The destructor would do this too; a host that wants to know what became of its calls asks.
  const recording::RecorderStatus status = alg.close();
  std::printf("%d blocks; %lld calls in %s, %lld dropped\n", host.blocks,
              static_cast<long long>(status.written), file, static_cast<long long>(status.dropped));
  if (!status.error.empty()) std::printf("the disk said: %s\n", status.error.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: alg_recording_host FILE\n");
    return 2;
  }
  try {
    runSession(argv[1]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "alg_recording_host: %s\n", error.what());
    return 1;
  }
}
