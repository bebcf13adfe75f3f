// Prints checksums of all that a host receives over a long stream: every delivered block, query
// answer, result and log line. Two builds of the library that print the same agree to the last bit:
//   stream_checksum > before; (change the library) ; stream_checksum | diff before -
// The program meets the library through its interface alone, so that LD_LIBRARY_PATH can put
// another build in its place.
//   stream_checksum [FRAMES]     frames of a session; default 2000, 144,000 packets in all
#include <sim/Random.h>
#include <sim/Simulator.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <alg_factory/api/AlgFactory.h>
#include <tests/support/HostLife.h>

namespace {

constexpr int kDefaultFrames = 2000;
constexpr int kLives = 4000;

/// FNV-1a, 64 bits.
class Checksum {
 public:
  void add(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) value_ = (value_ ^ bytes[i]) * 0x100000001B3u;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325u;
};

class Sinks : public algorithm::LogSink, public algorithm::DataSink {
 public:
  bool Log(int level, const char* message) override {
    checksum.add(&level, sizeof level);
    checksum.add(message, std::strlen(message));
    return true;
  }
  bool Deliver(const void* buffer, int, int length) override {
    checksum.add(buffer, static_cast<std::size_t>(length));
    ++blocks;
    return true;
  }
  Checksum checksum;
  long blocks = 0;
};

struct Kind {
  const char* name;
  int markersOfEach;  ///< objects; 0 = those of the product type
  sim::BlobOptions blobs;
  sim::PacketFaults faults;
  int leapEvery;  ///< frames; 0 = never
};

std::vector<Kind> kinds() {
  Kind clean{"moving, pixel noise", 0, {}, {}, 0};
  clean.blobs.pixelNoise = 0.05;
  Kind busy{"lost, split, stray and mirrored blobs, damaged packets", 0, {}, {}, 0};
  busy.blobs = {30, 0.1, 0.05, 0.1, 1.0, 0.1, {}};
  busy.faults = {0.01, 0.03, 0.03};
  Kind crowded{"full packets", 3, {}, {}, 0};
  crowded.blobs = {30, 0.3, 0.03, 0.05, 2.0, 0.03, {}};
  Kind leaping{"leaps", 0, {}, {}, 37};
  leaping.blobs = {30, 0.1, 0.05, 0.02, 0.3, 0.05, {}};
  return {clean, busy, crowded, leaping};
}

sim::Scene sceneOf(int productType, int markersOfEach, std::uint64_t seed) {
  constexpr double kSpacing = 60;  // mm
  if (markersOfEach == 0) return sim::Scene::moving(productType, seed);
  std::vector<sim::SceneObject> objects = sim::Scene::moving(productType, seed).objects();
  for (sim::SceneObject& object : objects) {
    object.markers.clear();
    for (int n = 0; n < markersOfEach; ++n) {
      object.markers.push_back(kSpacing * Eigen::Vector3d(n % 2, n / 2, 0));
    }
  }
  return sim::Scene(productType, std::move(objects));
}

class Host {
 public:
  Host() {
    alg_->SetLogCallback(&sinks);
    alg_->SetDataCallback(&sinks);
  }

  void session(const Kind& kind, int productType, sim::Framing framing, int filterMode,
               int frames) {
    const rig::StereoRig rig = rig::builtInRig();
    sim::SimulatorOptions options;
    options.framing = framing;
    options.blobs = kind.blobs;
    options.faults = kind.faults;
    options.seed = ++seed_;
    const sim::Simulator simulator(rig, sceneOf(productType, kind.markersOfEach, seed_), options);

    const auto* config = reinterpret_cast<const unsigned char*>(&rig.calibration);
    note(alg_->Init(productType, config, 0));
    note(alg_->SetFilterMode(0, filterMode, nullptr));
    for (int n = 0; n < frames; ++n) {
      const int leaps = kind.leapEvery == 0 ? 0 : n / kind.leapEvery;
      const sim::Frame frame = simulator.frame(n + 50 * leaps);
      if (n % 5 == 0) input(3 + n % 2, simulator.inertialPayloadOf(n % 2, n));
      if (n % 20 == 7) input(5, sim::sideHintPayload(n / 20 % 3));
      if (!frame.lost) input(simulator.streamType(), frame.payload);
      query(n, frame.stamp);
    }
  }

  Sinks sinks;

 private:
  void note(bool result) { sinks.checksum.add(&result, sizeof result); }

  void input(int streamType, const sim::Bytes& payload) {
    note(alg_->InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size())));
  }

  void query(int n, std::uint64_t frameStamp) {
    const std::uint64_t stamp =
        n % 7 == 0 ? 1234 : frameStamp + 8000u * static_cast<unsigned>(n % 20);
    algorithm::PoseAnswer pose;
    note(alg_->HandleEvent(n % 6, &stamp, &pose));
    sinks.checksum.add(&pose, sizeof pose);
    if (n % 15 != 3) return;
    algorithm::OrientationSample sample;
    const float q[4] = {0.02f, 0.1f, 0.03f, 0.99f};
    std::memcpy(sample.orientation, q, sizeof q);
    algorithm::HeadingAnswer heading;
    note(alg_->HandleEvent(16, &sample, &heading));
    sinks.checksum.add(&heading, sizeof heading);
  }

  algorithm::AlgBase* const alg_ = algorithm::AlgFactory::CreateALG(0);
  std::uint64_t seed_ = 0;
};

void print(std::uint64_t checksum, long blocks, const std::string& what) {
  std::printf("%016llx %9ld blocks  %s\n", static_cast<unsigned long long>(checksum), blocks,
              what.c_str());
}

void simulated(int frames) {
  Host host;
  for (const Kind& kind : kinds()) {
    for (int productType = 0; productType < algorithm::kProductTypes; ++productType) {
      host.sinks.checksum = Checksum();
      host.sinks.blocks = 0;
      for (const sim::Framing framing : {sim::Framing::kPlain, sim::Framing::kStamped}) {
        for (const int mode : {-1, 0, 1}) {
          host.session(kind, productType, framing, mode, frames);
        }
      }
      print(host.sinks.checksum.value(), host.sinks.blocks,
            "product type " + std::to_string(productType) + ": " + kind.name);
    }
  }
}

/// Lives whose every byte is chance: calibrations, packets, lengths and modes of any kind.
void randomLives() {
  algorithm::AlgBase& alg = *algorithm::AlgFactory::CreateALG(0);
  sim::Random random(1);
  Checksum checksum;
  long blocks = 0;
  for (int n = 0; n < kLives; ++n) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(random.bits() % 6000));
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.bits());
    const auto answers =
        testing_support::live(alg, testing_support::lifeFrom(bytes.data(), bytes.size()));
    for (const auto& answer : answers) blocks += static_cast<long>(answer.blocks.size());
    const std::vector<std::uint8_t> came = testing_support::bytesOf(answers);
    checksum.add(came.data(), came.size());
  }
  print(checksum.value(), blocks, "random hosts' lives");
}

}  // namespace

int main(int argc, char** argv) {
  const int frames = argc == 1 ? kDefaultFrames : std::atoi(argv[1]);
  if (argc > 2 || frames < 1) {
    std::fprintf(stderr, "usage: stream_checksum [FRAMES]\n");
    return 2;
  }
  try {
    simulated(frames);
    randomLives();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stream_checksum: %s\n", error.what());
    return 1;
  }
  return 0;
}
