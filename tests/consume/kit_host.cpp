// A host outside the project that asks for better positions while it runs, reads and writes
// calibration files, and hands its session on to other programs.
#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/estimate/EstimatingAlg.h>
#include <alg_kit/estimate/Smoother.h>
#include <alg_kit/stream/McapWriter.h>
#ifdef WITH_NETWORK
#include <alg_kit/stream/OscSender.h>
#endif

#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

struct Host : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return true; }
  bool Log(int, const char*) override { return true; }
};

/// Two cameras side by side that look straight ahead.
algorithm::StereoCalibration straightPair() {
  algorithm::StereoCalibration pair{};
  for (auto* const intrinsics : {&pair.leftIntrinsics, &pair.rightIntrinsics}) {
    (*intrinsics)[0] = (*intrinsics)[4] = 380;
    (*intrinsics)[2] = 320;
    (*intrinsics)[5] = 240;
    (*intrinsics)[8] = 1;
  }
  for (int i = 0; i < 3; ++i) pair.rotation[4 * i] = 1;
  pair.translation[0] = -100;  // the left camera, seen from the right one
  return pair;
}

/// A device packet with one blob per camera, of object 0.
std::vector<unsigned char> packetOf(unsigned left, unsigned right) {
  std::vector<unsigned char> packet{0xAA, 0x55};
  const unsigned weight = 20000;
  const auto put = [&packet](unsigned value, int bytes) {
    for (int i = 0; i < bytes; ++i) packet.push_back(static_cast<unsigned char>(value >> (8 * i)));
  };
  for (const unsigned camera : {0u, 1u}) {
    put(weight, 3);
    put(camera << 4, 1);
    put((camera == 0 ? left : right) * weight, 4);
    put(240 * weight, 4);
  }
  unsigned sum = 0;
  for (const unsigned char byte : packet) sum += byte;
  put(sum & 0xFF, 1);
  return packet;
}

}  // namespace

int main() try {
  const algorithm::StereoCalibration pair = straightPair();
  static Host host;  // the library keeps the sinks
  estimate::EstimatingAlg alg(algorithm::AlgFactory::CreateALG(0));
  estimate::Smoother smoother(2, pair);
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  alg.Init(2, reinterpret_cast<const unsigned char*>(&pair), 0);
  const auto packet = packetOf(333, 295);
  const int length = static_cast<int>(packet.size());
  for (int i = 0; i < 20; ++i) {
    alg.InputStream(0, packet.data(), 0, length);
    smoother.add(0, packet.data(), length);
  }
  // 38 px of 380 px at 100 mm: a metre away. Delivered axes look towards the viewer.
  const estimate::Estimate now = alg.at(0);
  double smoothed = 0;
  smoother.run([&](int object, std::size_t, const estimate::Estimate& e) {
    if (object == 0) smoothed = e.position[2];
  });
  std::printf("%s at %.1f mm, smoothed %.1f mm\n", nameOf(now.source), now.position[2], smoothed);

  std::ofstream("pair.yml") << calibration::openCvText({pair, "mm"});
  const auto read = calibration::readCalibration({"pair.yml"});
  std::ostringstream file;
  stream::McapWriter(file).finish();
  std::printf("left camera at %.1f mm, MCAP of %zu bytes\n", read.calibration.translation[0],
              file.str().size());
#ifdef WITH_NETWORK
  const stream::OscSender sender{stream::OscOptions()};
  std::puts("sends OSC");
#endif
  const bool right = now.source == estimate::Source::kMeasured &&
                     std::abs(now.position[2] + 1000) < 20 && std::abs(smoothed + 1000) < 20 &&
                     read.calibration.translation[0] == pair.translation[0];
  return right ? 0 : 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
