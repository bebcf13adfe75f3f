// A host outside the project: uses everything that the interface offers, through the one header.
#include <alg_factory/api/AlgFactory.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <typeinfo>

namespace {

class Messages : public algorithm::LogSink {
 public:
  bool Log(int, const char* message) override {
    ++count;
    return std::strncmp(message, "alg: ", 5) == 0;
  }
  int count = 0;
};

class Blocks : public algorithm::DataSink {
 public:
  bool Deliver(const void* buffer, int offset, int length) override {
    std::memcpy(&block, static_cast<const char*>(buffer) + offset, sizeof block);
    ++count;
    return length == static_cast<int>(sizeof block);
  }
  algorithm::ResultBlock block;
  int count = 0;
};

/// Hosts wrap the interface, to record calls for instance: it can be derived from and cast to.
class Forwarding : public algorithm::AlgBase {
 public:
  explicit Forwarding(algorithm::AlgBase* to) : to_(to) {}
  bool Init(int type, const unsigned char* config, int offset) override {
    return to_->Init(type, config, offset);
  }
  bool InputStream(int type, const unsigned char* buffer, int offset, int length) override {
    return to_->InputStream(type, buffer, offset, length);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override { return to_->SetDataCallback(sink); }
  bool SetLogCallback(algorithm::LogSink* sink) override { return to_->SetLogCallback(sink); }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    return to_->SetFilterMode(parameter, mode, reserved);
  }
  int GetFixedCode() override { return to_->GetFixedCode(); }
  bool HandleEvent(int event, const void* input, void* output) override {
    return to_->HandleEvent(event, input, output);
  }

 private:
  algorithm::AlgBase* to_;
};

int failures = 0;

void expect(bool condition, const char* what) {
  if (condition) return;
  std::printf("not so: %s\n", what);
  ++failures;
}

}  // namespace

int main() {
  algorithm::AlgFactory factory, other;
  expect(&(factory = other) == &factory, "assignment returns the left object");
  expect(algorithm::AlgFactory::CreateALG(3) == nullptr, "no type 3");
  expect(std::strcmp(alg_factory_version(), ALG_FACTORY_VERSION) == 0, "version");
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  Forwarding forwarding(library);
  algorithm::AlgBase& alg = forwarding;
  expect(dynamic_cast<Forwarding*>(&alg) == &forwarding, "the wrapper is found by a cast");
  expect(dynamic_cast<Forwarding*>(library) == nullptr, "the library's object is no wrapper");
  expect(typeid(*library) != typeid(alg), "types are told apart");

  // Two equal cameras 100 mm apart. A marker straight ahead of the right one, at 1000 mm: the left
  // one sees it 0.1 to the right of its axis, under an angle of atan(0.1) = 0.0996687 rad.
  algorithm::StereoCalibration calibration;
  const double k[9] = {256, 0, 256, 0, 256, 256, 0, 0, 1};
  std::memcpy(calibration.leftIntrinsics, k, sizeof k);
  std::memcpy(calibration.rightIntrinsics, k, sizeof k);
  calibration.rotation[0] = calibration.rotation[4] = calibration.rotation[8] = 1;
  calibration.translation[0] = -100;
  calibration.fundamental[5] = 1;
  calibration.fundamental[7] = -1;

  unsigned char packet[27] = {0xAA, 0x55};
  const auto blob = [&](int at, int camera, double x) {
    const unsigned weight = 1u << 20;
    const unsigned values[3] = {weight | static_cast<unsigned>(camera) << 28,
                                static_cast<unsigned>(x * weight + 0.5), 256u * weight};
    for (int i = 0; i < 12; ++i) {
      packet[at + i] = static_cast<unsigned char>(values[i / 4] >> (8 * (i % 4)));
    }
  };
  blob(2, 0, 256 + 256 * std::atan(0.1));
  blob(14, 1, 256);
  for (int i = 0; i < 26; ++i) packet[26] = static_cast<unsigned char>(packet[26] + packet[i]);

  static Messages log;
  static Blocks data;
  expect(alg.SetLogCallback(&log), "log sink");
  expect(alg.SetDataCallback(&data), "data sink");
  expect(alg.Init(2, reinterpret_cast<const unsigned char*>(&calibration), 0), "init");
  expect(alg.SetFilterMode(0, 1, nullptr), "filter mode");
  expect(alg.GetFixedCode() == 800, "fixed code");
  expect(alg.InputStream(0, packet, 0, sizeof packet), "packet");
  expect(log.count == 0, "no message");
  expect(data.count == 1, "one block");
  expect(data.block.records[0].id == 0, "object 0");
  expect(std::fabs(data.block.records[0].x) < 0.01f, "x = 0");
  expect(std::fabs(data.block.records[0].z + 1000) < 0.01f, "z = -1000");
  algorithm::PoseAnswer pose;
  expect(alg.HandleEvent(0, nullptr, &pose), "query");
  expect(pose.id == 0 && std::fabs(pose.filtered[2] + 1000) < 0.01f, "filtered z = -1000");
  expect(!alg.HandleEvent(7, nullptr, nullptr) && log.count == 1, "one message");
  std::printf("object %d at %.3f %.3f %.3f\n", pose.id, pose.raw[0], pose.raw[1], pose.raw[2]);
  return failures == 0 ? 0 : 1;
}
