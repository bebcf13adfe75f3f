#include <cmath>
#include <cstring>

#include <alg_factory/api/Constants.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/FrameStamp.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

namespace {

constexpr double kMicrosecondsPerSecond = 1000000;

}  // namespace

bool StereoService::handleEvent(int eventType, const void* input, void* output) {
  if (!isEvent(eventType)) {
    logSink_->Log(kServiceMessage, "alg: unknown event type!\n");
    return false;
  }
  if (output == nullptr) return false;
  if (input == nullptr && eventInputSize(productType_, eventType) > 0) return false;
  if (eventType == kHeadingExchange) return answerHeading(input, output);

  const auto record = static_cast<std::size_t>(eventType);
  LockGuard guard(resultLock_);
  if (readsStamp(productType_, eventType)) return answerHeadAtStamp(input, output);
  if (isHeadEvent(productType_, eventType)) return answerHead(record, output);
  // An unknown product has no objects to answer events 0 to 2 from.
  if (record < kHeads && !isProductType(productType_)) return copyPose(output);
  return answerMarker(record, output);
}

bool StereoService::answerMarker(std::size_t record, void* output) {
  // Miss bridging: a vanished object is reported for up to `missLimit_` queries.
  std::int32_t& id = markers_.currentIds[record];
  if (id != kNoObject) {
    missCounts_[record] = 0;
  } else if (missCounts_[record] < missLimit_) {
    id = static_cast<std::int32_t>(record);
    ++missCounts_[record];
  }

  pose_.id = id;
  if (id == kNoObject) return copyPose(output);
  if (filterMode_ == kFilterOff) {
    fillUnfiltered(record);
  } else {
    fillFiltered(record, markerFilters_[record], 0.0);
  }
  return copyPose(output);
}

bool StereoService::answerHead(std::size_t record, void* output) {
  pose_.id = heads_.currentIds[record];
  if (pose_.id == kNoObject) return copyPose(output);
  const bool near = std::fabs(result_.records[record].z) < kUnfilteredDepth;
  if (filterMode_ == kFilterOff || (filterMode_ != kFilterSmooth && near)) {
    fillUnfiltered(record);
  } else {
    fillFiltered(record, headFilterOf(record), 0.0);
  }
  return copyPose(output);
}

bool StereoService::answerHeadAtStamp(const void* input, void* output) {
  constexpr std::size_t kRecord = 2;
  std::uint64_t stamp;
  std::memcpy(&stamp, input, sizeof stamp);
  pose_.id = heads_.currentIds[kRecord];
  if (pose_.id == kNoObject) return copyPose(output);

  // Unsigned on purpose: a stamp before the frame wraps to a time far beyond the limit.
  const double dt = static_cast<double>(stamp - lastFrameStamp.load(std::memory_order_relaxed)) /
                    kMicrosecondsPerSecond;
  if (filterMode_ == kFilterOff) {
    fillUnfiltered(kRecord);
  } else if (stamp == kFilterStateStamp) {
    fillFiltered(kRecord, headFilterOf(kRecord), 0.0);
  } else if (0.0 < dt && dt < kMaxExtrapolation) {
    fillFiltered(kRecord, headFilterOf(kRecord), dt);
  } else {
    fillUnfiltered(kRecord);
  }
  return copyPose(output);
}

void StereoService::fillUnfiltered(std::size_t record) {
  const TrackedPoint& point = result_.records[record];
  const float position[3] = {point.x, point.y, point.z};
  for (int i = 0; i < 3; ++i) {
    pose_.raw[i] = position[i];
    pose_.filtered[i] = position[i];
    pose_.rate[i] = 0.0f;
    pose_.rateCopy[i] = 0.0f;
  }
}

void StereoService::fillFiltered(std::size_t record, const KalmanFilter& filter,
                                 double extrapolation) {
  fillUnfiltered(record);
  // Built by `SetFilterMode`, but no block has started it: it knows no position.
  if (!filter.initialized()) return;
  const KalmanFilter::Vector& state = filter.state();
  for (int i = 0; i < 3; ++i) {
    const double position = state(i);
    const double rate = state(i + 3);
    pose_.filtered[i] =
        static_cast<float>(extrapolation == 0.0 ? position : position + rate * extrapolation);
    pose_.rate[i] = static_cast<float>(rate);
    pose_.rateCopy[i] = pose_.rate[i];
  }
}

bool StereoService::copyPose(void* output) const {
  std::memcpy(output, &pose_, sizeof pose_);
  return true;
}

bool StereoService::answerHeading(const void* input, void* output) {
  OrientationSample sample;
  std::memcpy(&sample, input, sizeof sample);
  const float(&in)[4] = sample.orientation;
  const float scalarFirst[4] = {in[3], in[0], in[1], in[2]};
  tracked_.setOrientation(scalarFirst);
  float angles[6] = {};
  heading_.status = tracked_.readAngles(angles);

  std::memcpy(heading_.orientation, in, sizeof heading_.orientation);
  heading_.yaw = angles[0];
  heading_.negatedCorrectedYaw = -angles[3];
  heading_.value = sample.value;
  heading_.score = angles[5];
  std::memcpy(output, &heading_, sizeof heading_);
  return true;
}

}  // namespace algorithm
