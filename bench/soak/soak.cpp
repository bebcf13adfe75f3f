// A long life: packets of every product type, framing and filter mode, with inertial samples, hints
// and queries between them, through the shared library in one process. Resident memory must stay
// where it is after the first packets, what the library holds of it below what its header promises,
// no frame may allocate after its session's Init, and no call may take long.
//   alg_soak [PACKETS]     default: ten million
#include <sim/Simulator.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <alg_factory/api/AlgFactory.h>

#include <tests/support/AllocationCounter.h>

#include "WorstCalls.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

constexpr long kDefaultPackets = 10'000'000;
constexpr long kWarmUp = 10'000;
constexpr long kTolerated = 64;  // KiB; a leak of one byte a packet would be 100 times that
constexpr long kPipeline = 256;  // KiB that the pipeline may hold, as AlgBase.h says
constexpr int kFrames = 100;
constexpr int kSessionFrames = 500;  // then the host reconfigures the library

/// Frames of one kind, with noise, losses and corrupt packets.
struct Material {
  int productType;
  int streamType;
  std::vector<sim::Bytes> payloads;
  std::vector<sim::Bytes> inertial;  // one of each device
};

Material material(int productType, sim::Framing framing, const rig::StereoRig& rig) {
  sim::SimulatorOptions options;
  options.framing = framing;
  options.blobs.pixelNoise = 0.05;
  options.blobs.dropoutProbability = 0.03;
  options.blobs.splitProbability = 0.1;
  options.blobs.strayRate = 0.5;
  options.blobs.reflectionProbability = 0.05;
  options.faults.lossProbability = 0.01;
  options.faults.corruptProbability = 0.02;
  options.faults.wrongCheckProbability = 0.02;
  const sim::Simulator simulator(rig, sim::Scene::moving(productType), options);
  Material result{productType, simulator.streamType(), {}, {}};
  for (int n = 0; n < kFrames; ++n) {
    sim::Frame frame = simulator.frame(n);
    if (!frame.lost) result.payloads.push_back(std::move(frame.payload));
  }
  for (int device = 0; device < 2; ++device) {
    result.inertial.push_back(simulator.inertialPayloadOf(device, 0));
  }
  return result;
}

/// Counts and forgets.
class Sinks : public algorithm::LogSink, public algorithm::DataSink {
 public:
  bool Log(int, const char*) override {
    ++messages;
    return true;
  }
  bool Deliver(const void*, int, int) override {
    ++blocks;
    return true;
  }
  long messages = 0;
  long blocks = 0;
};

/// KiB of this process, counted page by page (the counters of statm are rounded).
struct Memory {
  long resident = -1;
  long own = -1;  ///< the resident part that is not a file's: heap, stacks, written data
};

Memory memory() {
  std::FILE* file = std::fopen("/proc/self/smaps_rollup", "r");
  if (file == nullptr) throw std::runtime_error("/proc/self/smaps_rollup cannot be opened");
  Memory result;
  char line[256];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    std::sscanf(line, "Rss: %ld kB", &result.resident);
    std::sscanf(line, "Anonymous: %ld kB", &result.own);
  }
  std::fclose(file);
  if (result.resident < 0 || result.own < 0) {
    throw std::runtime_error("/proc/self/smaps_rollup has no line Rss or Anonymous");
  }
  return result;
}

Memory printRow(long packets) {
  const Memory now = memory();
  std::printf("%12ld %8ld KiB %8ld KiB\n", packets, now.resident, now.own);
  std::fflush(stdout);
  return now;
}

/// Bytes that malloc has given out; 0 where that cannot be asked.
long heap() {
#if defined(__GLIBC__)
  const auto info = mallinfo2();
  return static_cast<long>(info.uordblks + info.hblkhd);
#else
  return 0;
#endif
}

class Soak {
 public:
  Soak() {
    const rig::StereoRig rig = rig::builtInRig();
    calibration_ = rig.calibration;
    for (const int productType : {0, 1, 2}) {
      for (const sim::Framing framing : {sim::Framing::kPlain, sim::Framing::kStamped}) {
        materials_.push_back(material(productType, framing, rig));
      }
    }
    heapBefore_ = heap();
    alg_->SetLogCallback(&sinks_);
    alg_->SetDataCallback(&sinks_);
  }

  /// Runs until `packets` were fed since the start.
  void runTo(long packets) {
    while (packets_ < packets) {
      if (sessionFrame_ == kSessionFrames || packets_ == 0) beginSession();
      const long before = testing_support::allocations();
      frame();
      allocations_ += testing_support::allocations() - before;
    }
  }

  long packets() const { return packets_; }
  long allocations() const { return allocations_; }
  const Sinks& sinks() const { return sinks_; }
  /// Bytes that the library has taken since it was first called.
  long held() const { return heap() - heapBefore_; }
  bool worstCallsAreBounded() { return soak::worstCallsAreBounded(*alg_, calibration_); }

 private:
  void beginSession() {
    current_ = &materials_[session_ % materials_.size()];
    const int mode = static_cast<int>(session_ / materials_.size() % 3) - 1;
    unsigned char bytes[sizeof calibration_];
    std::memcpy(bytes, &calibration_, sizeof bytes);
    alg_->Init(current_->productType, bytes, 0);
    alg_->SetFilterMode(0, mode, nullptr);
    ++session_;
    sessionFrame_ = 0;
  }

  void input(int streamType, const sim::Bytes& payload) {
    alg_->InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
  }

  void frame() {
    const auto n = static_cast<std::size_t>(sessionFrame_++);
    // Forwards and backwards: nothing jumps.
    const std::size_t turn = n % (2 * current_->payloads.size());
    const std::size_t at = std::min(turn, 2 * current_->payloads.size() - 1 - turn);
    input(current_->streamType, current_->payloads[at]);
    ++packets_;

    if (n % 4 == 0) input(3, current_->inertial[0]);
    if (n % 4 == 2) input(4, current_->inertial[1]);
    if (n % 16 == 1) input(1, current_->inertial[0]);
    if (n % 64 == 5) input(5, hints_[n / 64 % 3]);
    const std::uint64_t stamp = n * 11111 + 5000;
    algorithm::PoseAnswer pose;
    alg_->HandleEvent(static_cast<int>(n % 6), &stamp, &pose);
    if (n % 8 == 0) {
      algorithm::OrientationSample sample;
      sample.orientation[3] = 1;
      algorithm::HeadingAnswer heading;
      alg_->HandleEvent(16, &sample, &heading);
    }
  }

  algorithm::AlgBase* alg_ = algorithm::AlgFactory::CreateALG(0);
  algorithm::StereoCalibration calibration_;
  std::vector<Material> materials_;
  const sim::Bytes hints_[3] = {{0, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 0}};
  Sinks sinks_;
  const Material* current_ = nullptr;
  std::size_t session_ = 0;
  int sessionFrame_ = 0;
  long packets_ = 0;
  long allocations_ = 0;
  long heapBefore_ = 0;
};

long packetsFrom(int argc, char** argv) {
  if (argc == 1) return kDefaultPackets;
  char* end = nullptr;
  const long packets = std::strtol(argv[1], &end, 10);
  if (argc != 2 || *end != '\0' || packets <= kWarmUp) {
    throw std::invalid_argument("usage: alg_soak [PACKETS]   (more than 10000)");
  }
  return packets;
}

int run(long total) {
  Soak soak;
  std::printf("%12s %12s %12s\n", "packets", "resident", "own");
  soak.runTo(kWarmUp);
  printRow(soak.packets());  // brings in the pages that measuring itself needs
  const Memory warm = memory();

  const auto begin = std::chrono::steady_clock::now();
  long mostOwn = warm.own;
  for (int tenth = 1; tenth <= 10; ++tenth) {
    soak.runTo(kWarmUp + (total - kWarmUp) * tenth / 10);
    mostOwn = std::max(mostOwn, printRow(soak.packets()).own);
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  std::printf("%ld blocks, %ld messages, %.0f packets/s\n", soak.sinks().blocks,
              soak.sinks().messages, static_cast<double>(total - kWarmUp) / seconds);
  bool good = true;
  if (mostOwn - warm.own > kTolerated) {
    std::printf("FAILED: the process's own memory grew by %ld KiB\n", mostOwn - warm.own);
    good = false;
  }
#if ALG_COUNTS_ALLOCATIONS
  std::printf("%ld allocations in frames\n", soak.allocations());
  if (soak.allocations() != 0) {
    std::printf("FAILED: a frame allocated\n");
    good = false;
  }
#else
  std::printf("allocations are not counted in this build\n");
#endif
  if (const long held = soak.held(); held > 0) {
    std::printf("the pipeline holds %ld bytes\n", held);
    if (held > kPipeline * 1024) {
      std::printf("FAILED: that is more than %ld KiB\n", kPipeline);
      good = false;
    }
  } else {
    std::printf("what the pipeline holds cannot be asked in this build\n");
  }
  if (!soak.worstCallsAreBounded()) good = false;
  return good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(packetsFrom(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "alg_soak: %s\n", error.what());
    return 2;
  }
}
