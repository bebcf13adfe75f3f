// A host of the loaded library, tracking one object of product type 2. Its sinks live until the
// process is gone: threads and static destructors of the tests call in late.
#pragma once

#include <alg_factory/api/Constants.h>

#include <functional>
#include <memory>

#include <tests/lifetime/LoadedLibrary.h>
#include <tests/support/BlockCollector.h>
#include <tests/support/HandRig.h>
#include <tests/support/RecordingLog.h>

namespace testing_support {

/// Forgets what it is given, so that a host may feed for as long as it likes.
class QuietSink : public algorithm::DataSink, public algorithm::LogSink {
 public:
  bool Deliver(const void*, int, int) override {
    if (whileDelivering) whileDelivering();
    return true;
  }
  bool Log(int, const char*) override { return true; }

  std::function<void()> whileDelivering;
};

class Tracking {
 public:
  explicit Tracking(const LoadedLibrary& library) : alg(library.create(0)) {
    const auto calibration = handCalibration();
    alg->SetLogCallback(&sink);
    alg->SetDataCallback(&sink);
    alg->Init(2, reinterpret_cast<const unsigned char*>(&calibration), 0);
  }

  bool feed() const {
    return alg->InputStream(algorithm::kPacket, packet.data(), 0, static_cast<int>(packet.size()));
  }
  bool query(algorithm::PoseAnswer& answer) const {
    return alg->HandleEvent(algorithm::kPose4, nullptr, &answer);
  }

  /// How many of the operations that can be refused are not.
  int answered() {
    const auto calibration = handCalibration();
    algorithm::PoseAnswer pose;
    algorithm::HeadingAnswer heading;
    const algorithm::OrientationSample sample;
    int count = 0;
    count += alg->Init(2, reinterpret_cast<const unsigned char*>(&calibration), 0);
    count += feed();
    count += alg->SetDataCallback(&sink);
    count += alg->SetLogCallback(&sink);
    count += alg->SetFilterMode(0, 0, nullptr);
    count += query(pose);
    count += alg->HandleEvent(algorithm::kHeadingExchange, &sample, &heading);
    return count;
  }
  static constexpr int kOperations = 7;

  QuietSink& sink = *new QuietSink;
  const std::unique_ptr<algorithm::AlgBase> alg;
  const Bytes packet = packetOf({{4, 30, 20, 1000}});
};

}  // namespace testing_support
