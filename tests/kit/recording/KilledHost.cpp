// A host to be killed: it records at 90 packets a second, with three queries after each, until it
// is stopped from outside. After every call it notes, in memory that outlives it, how many calls
// have returned and when the last one did.
//   alg_killed_host RECORDING NOTES
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <sim/Simulator.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <thread>

namespace {

struct Notes {
  std::int64_t calls = 0;   ///< that returned
  std::int64_t lastNs = 0;  ///< monotonic, when the last one did
};

volatile Notes* mapNotes(const char* path) {
  const int file = open(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
  if (file < 0 || ftruncate(file, sizeof(Notes)) != 0)
    throw std::runtime_error("the notes cannot be made");
  void* const memory = mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (memory == MAP_FAILED) throw std::runtime_error("the notes cannot be mapped");
  return static_cast<volatile Notes*>(memory);
}

struct Host : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

void run(const char* recordingPath, const char* notesPath) {
  static Host host;
  volatile Notes* const notes = mapNotes(notesPath);
  recording::RecordingAlg alg(algorithm::AlgFactory::CreateALG(0), recordingPath);
  const auto returned = [&](bool) {
    notes->calls = notes->calls + 1;
    notes->lastNs = std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
  };
  const sim::Simulator device(rig::builtInRig(), sim::Scene::moving(0));
  returned(alg.SetLogCallback(&host));
  returned(alg.SetDataCallback(&host));
  returned(alg.Init(0, reinterpret_cast<const unsigned char*>(&device.rig().calibration), 0));
  auto due = std::chrono::steady_clock::now();
  for (std::int64_t n = 0;; ++n) {
    const sim::Bytes packet = device.frame(n).payload;
    returned(
        alg.InputStream(device.streamType(), packet.data(), 0, static_cast<int>(packet.size())));
    algorithm::PoseAnswer pose;
    for (int event = 3; event < 6; ++event) returned(alg.HandleEvent(event, nullptr, &pose));
    due += std::chrono::microseconds(11111);
    std::this_thread::sleep_until(due);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    run(argv[1], argv[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "alg_killed_host: %s\n", error.what());
    return 1;
  }
}
