#include <examples/demo/TrackingHost.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

namespace demo {
namespace {

// The stamp that asks for the filter's state as it is, without extrapolation.
constexpr std::uint64_t kFilterStateStamp = 1234;

Eigen::Vector3d toVector(const float (&p)[3]) {
  return {p[0], p[1], p[2]};
}

void require(bool accepted, const char* operation) {
  if (!accepted) throw std::runtime_error(std::string("the library refused ") + operation);
}

}  // namespace

TrackingHost::TrackingHost() : alg_(algorithm::AlgFactory::CreateALG(0)) {
  require(alg_ != nullptr, "CreateALG");
  require(alg_->SetLogCallback(this), "SetLogCallback");
  require(alg_->SetDataCallback(this), "SetDataCallback");
}

bool TrackingHost::Deliver(const void* buffer, int offset, int length) {
  if (length != sizeof(algorithm::ResultBlock)) return false;
  block_.emplace();
  std::memcpy(&*block_, static_cast<const unsigned char*>(buffer) + offset, sizeof *block_);
  ++run_.blocks;
  return true;
}

bool TrackingHost::Log(int, const char* message) {
  std::string text = message;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  ++run_.logLines[text];
  return true;
}

std::optional<Eigen::Vector3d> TrackingHost::queryFiltered(int productType, int object) {
  algorithm::PoseAnswer answer;
  const bool readsStamp = productType != 2 && object == 2;
  require(alg_->HandleEvent(object, readsStamp ? &kFilterStateStamp : nullptr, &answer),
          "HandleEvent");
  if (answer.id == -1) return std::nullopt;
  return toVector(answer.filtered);
}

Run TrackingHost::run(const sim::Simulator& simulator, int frameCount, int filterMode,
                      const Progress& progress) {
  const int productType = simulator.scene().productType();
  run_ = Run{};
  run_.objects = sim::objectCount(productType);
  run_.frameRate = simulator.frameRate();
  run_.microseconds.reserve(static_cast<std::size_t>(frameCount));
  require(alg_->Init(productType,
                     reinterpret_cast<const unsigned char*>(&simulator.rig().calibration), 0),
          "Init");
  require(alg_->SetFilterMode(0, filterMode, nullptr), "SetFilterMode");

  sim::Frame frame;
  for (int n = 0; n < frameCount; ++n) {
    simulator.frame(n, frame);
    block_.reset();
    const auto begin = std::chrono::steady_clock::now();
    const bool accepted = alg_->InputStream(simulator.streamType(), frame.payload.data(), 0,
                                            static_cast<int>(frame.payload.size()));
    const auto end = std::chrono::steady_clock::now();
    require(accepted, "InputStream");
    run_.microseconds.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
    ++run_.packets;

    auto& samples = run_.frames.emplace_back();
    for (int object = 0; object < run_.objects; ++object) {
      ObjectSample& sample = samples.emplace_back();
      sample.truth = rig::mirrored(frame.truth.objects[static_cast<std::size_t>(object)].position);
      if (!block_ || block_->records[object].id != object) continue;
      const auto& record = block_->records[object];
      sample.raw = Eigen::Vector3d(record.x, record.y, record.z);
      sample.filtered = queryFiltered(productType, object);
    }
    progress(n + 1, frameCount);
  }
  return std::move(run_);
}

}  // namespace demo
