#include "WorstCalls.h"

#include <sim/PacketWriter.h>

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace soak {

namespace {

using algorithm::AlgBase;

constexpr int kCalls = 2000;

double processorMicroseconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

/// As many blobs as a packet holds, half of them of each camera, id by id in turn, in a grid of 7
/// columns that is `pitch` pixels apart. Blobs of 10 pixels merge when they overlap.
sim::Bytes fullPacket(int ids, double pitch) {
  constexpr std::uint32_t kWeight = 8192;
  std::vector<sim::BlobRecord> records;
  for (int n = 0; n < static_cast<int>(sim::kMaxPacketRecords) / 2; ++n) {
    for (const rig::Camera camera : {rig::Camera::kLeft, rig::Camera::kRight}) {
      sim::BlobRecord record;
      record.id = n % ids;
      record.camera = camera;
      record.weight = kWeight;
      record.sumX = static_cast<std::uint32_t>((200 + pitch * (n % 7)) * kWeight);
      record.sumY = static_cast<std::uint32_t>((200 + pitch * (n / 7)) * kWeight);
      records.push_back(record);
    }
  }
  return sim::devicePacket(records);
}

struct Payload {
  const char* name;
  sim::Bytes bytes;
};

std::vector<Payload> heaviestPackets() {
  sim::Bytes noise = {0xAA, 0x55};
  noise.resize(sim::kFrameBytes, 0x22);  // no such camera: the decoder slides on byte by byte
  return {{"42 blobs of one id", fullPacket(1, 30)},
          {"42 blobs of one id, all merging", fullPacket(1, 1)},
          {"42 blobs of three ids", fullPacket(3, 30)},
          {"42 blobs of six ids", fullPacket(6, 30)},
          {"512 bytes without a record", std::move(noise)},
          {"a million bytes", sim::Bytes(1'000'000, 0xAA)}};
}

class Measurement {
 public:
  /// Times `call`, many times.
  void row(const std::string& name, const std::function<void()>& call) {
    std::vector<double> times;
    times.reserve(kCalls);
    for (int n = 0; n < kCalls; ++n) {
      const double begin = processorMicroseconds();
      call();
      times.push_back(processorMicroseconds() - begin);
    }
    std::sort(times.begin(), times.end());
    std::printf("  %-52s %9.2f %9.2f us\n", name.c_str(), times[kCalls / 2], times.back());
    worst_ = std::max(worst_, times.back());
  }
  double worst() const { return worst_; }

 private:
  double worst_ = 0;
};

void input(AlgBase& alg, int streamType, const sim::Bytes& payload) {
  alg.InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
}

}  // namespace

bool worstCallsAreBounded(AlgBase& alg, const algorithm::StereoCalibration& calibration) {
  const auto* config = reinterpret_cast<const unsigned char*>(&calibration);
  Measurement measurement;
  std::printf("%-54s %9s %9s\n", "processor time of a call", "median", "longest");
  for (int productType = 0; productType < algorithm::kProductTypes; ++productType) {
    const std::string product = "product type " + std::to_string(productType) + ": ";
    measurement.row(product + "Init", [&] { alg.Init(productType, config, 0); });
    measurement.row(product + "SetFilterMode",
                    [&] { alg.SetFilterMode(0, algorithm::kFilterSmooth, nullptr); });
    for (const Payload& packet : heaviestPackets()) {
      const sim::Bytes stamped = sim::frameType2(1, packet.bytes);
      measurement.row(product + packet.name, [&] { input(alg, algorithm::kPacket, packet.bytes); });
      measurement.row(product + packet.name + ", stamped",
                      [&] { input(alg, algorithm::kStampedPacket, stamped); });
    }
    measurement.row(product + "a query", [&] {
      const std::uint64_t stamp = 5000;
      algorithm::PoseAnswer answer;
      alg.HandleEvent(algorithm::kPose2, &stamp, &answer);
    });
    measurement.row(product + "a heading exchange", [&] {
      const algorithm::OrientationSample sample;
      algorithm::HeadingAnswer answer;
      alg.HandleEvent(algorithm::kHeadingExchange, &sample, &answer);
    });
  }
  alg.SetFilterMode(0, algorithm::kFilterOff, nullptr);
  if (measurement.worst() <= kLongestCall) return true;
  std::printf("FAILED: a call took %.0f us of processor time, more than %.0f\n",
              measurement.worst(), kLongestCall);
  return false;
}

}  // namespace soak
