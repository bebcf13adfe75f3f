#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <alg_factory/api/AlgFactory.h>
#include <tests/support/BlockCollector.h>
#include <tests/support/HandRig.h>
#include <tests/support/RecordingLog.h>

namespace testing_support {

constexpr double kExact = 1e-3;  // mm, of what singles carry

/// The filters passed it through.
inline bool unfiltered(const algorithm::PoseAnswer& answer) {
  for (int i = 0; i < 3; ++i) {
    if (answer.filtered[i] != answer.raw[i] || answer.rate[i] != 0 || answer.rateCopy[i] != 0) {
      return false;
    }
  }
  return true;
}

/// Creates an object and keeps it, as most hosts do, for the life of the process; leak checkers
/// accept what a global still points to.
inline algorithm::AlgBase* createAndKeep(int type) {
  static auto* const kept = new std::vector<algorithm::AlgBase*>;
  kept->push_back(algorithm::AlgFactory::CreateALG(type));
  return kept->back();
}

/// A host program: both sinks, and the calls in the order that the interface asks for.
class Host {
 public:
  Host() {
    alg->SetLogCallback(&log);
    alg->SetDataCallback(&data);
  }
  explicit Host(int productType) : Host() { init(productType); }

  bool init(int productType,
            const algorithm::StereoCalibration& calibration = handCalibration()) const {
    unsigned char bytes[sizeof calibration];
    std::memcpy(bytes, &calibration, sizeof calibration);
    return alg->Init(productType, bytes, 0);
  }

  bool input(int streamType, const Bytes& payload) const {
    return alg->InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
  }
  bool see(const std::vector<Marker>& markers) const { return input(0, packetOf(markers)); }
  bool seeAt(std::uint32_t stamp, const std::vector<Marker>& markers) const {
    return input(2, stamped(stamp, packetOf(markers)));
  }
  bool inertial(int streamType, const algorithm::InertialRecord& record) const {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return input(streamType, bytes);
  }

  algorithm::PoseAnswer pose(int event, std::uint64_t stamp = 0) const {
    algorithm::PoseAnswer answer;
    answer.id = -999;
    alg->HandleEvent(event, &stamp, &answer);
    return answer;
  }

  algorithm::AlgBase* const alg = createAndKeep(0);
  RecordingLog log;
  BlockCollector data;
};

}  // namespace testing_support
