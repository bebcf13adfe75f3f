#include <alg_kit/bodies/CallFrames.h>

#include <alg_factory/api/Constants.h>

#include <cstring>

namespace bodies {
namespace {

constexpr double kNanosecond = 1e-9;

}  // namespace

void CallFrames::begin(int productType, const algorithm::StereoCalibration& calibration) {
  cameras_.emplace(calibration);
  clock_ = estimate::FrameClock(frameRate_);
  ids_ = algorithm::objectCount(productType);
  ++inits_;
}

bool CallFrames::take(const session::Call& call) {
  if (!firstNs_) firstNs_ = call.startNs;
  algorithm::StereoCalibration calibration;
  if (call.kind == session::CallKind::kInit && call.payload.size() == sizeof calibration) {
    std::memcpy(&calibration, call.payload.data(), sizeof calibration);
    begin(call.type, calibration);
  }
  if (!isPacket(call)) return false;
  const std::int64_t packet = packets_++;
  if (!cameras_) return false;
  const std::size_t stamp = call.type == algorithm::kStampedPacket ? algorithm::kStampSize : 0;
  if (call.payload.size() < stamp ||
      !frameFrom(call.payload.data() + stamp, call.payload.size() - stamp, ids_, frame_))
    return false;
  frame_.call = call.index;
  frame_.packet = packet;
  frame_.init = inits_;
  frame_.time = static_cast<double>(call.startNs - *firstNs_) * kNanosecond;
  const estimate::FrameClock::Tick tick =
      stamp > 0 ? clock_.stamped(estimate::stampOf(call.payload.data()))
                : clock_.plain(frame_.time);
  if (tick.step == estimate::FrameClock::Step::kLate) return false;
  frame_.elapsed = tick.elapsed;
  return true;
}

}  // namespace bodies
