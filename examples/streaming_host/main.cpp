// A host that records its session and shows it to viewers while it runs: a line for each listener.
//   alg_streaming_host session.algrec [SECONDS]
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/stream/FoxgloveServer.h>
#include <sim/Simulator.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

namespace {

struct Host : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

void runSession(const char* file, double seconds) {
  static Host host;  // the library keeps the sinks
  recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), file);
  stream::FoxgloveServer viewers(alg);
  std::printf("viewers connect to ws://127.0.0.1:%d\n", viewers.port());

  // From here on it is a host like any other; a simulated device stands for the real one.
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(2));
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  alg.Init(2, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0);
  for (int n = 0; n < seconds * 90; ++n) {
    const sim::Bytes packet = device.frame(n).payload;
    alg.InputStream(device.streamType(), packet.data(), 0, static_cast<int>(packet.size()));
    std::this_thread::sleep_for(std::chrono::microseconds(11111));
  }

  const stream::StreamStatus status = viewers.status();
  std::printf("%lld messages sent, %lld calls dropped\n",
              static_cast<long long>(status.sentMessages),
              static_cast<long long>(status.droppedCalls));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: alg_streaming_host FILE [SECONDS]\n");
    return 2;
  }
  try {
    runSession(argv[1], argc == 3 ? std::atof(argv[2]) : 60);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "alg_streaming_host: %s\n", error.what());
    return 1;
  }
}
