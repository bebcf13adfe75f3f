// A host outside the project that records itself, and reads what it recorded.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>

#include <cstdio>
#include <exception>

namespace {

struct Host : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

void runSession(const char* file) {
  static Host host;  // the library keeps the sinks
  recording::RecordingAlgOptions options;
  options.overwrite = true;
  recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), file, options);
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  const algorithm::StereoCalibration calibration{};
  alg.Init(2, reinterpret_cast<const unsigned char*>(&calibration), 0);
  const unsigned char packet[] = {0xAA, 0x55, 0xFF};
  alg.InputStream(0, packet, 0, sizeof packet);
}

}  // namespace

int main() {
  try {
    runSession("consumer.algrec");
    const recording::RecordingReader reader("consumer.algrec");
    const auto calls = reader.callCount();
    const auto blocks = reader.entry(3).value().blocks.size();
    std::printf("%lld calls, %zu block in the recording\n", static_cast<long long>(calls), blocks);
    return reader.metadata().complete && calls == 4 && blocks == 1 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
