#include <cmath>
#include <cstring>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/FrameStamp.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

namespace {

constexpr unsigned kHeadingEvent = 16;
constexpr unsigned kMarkerEvents = 3;  // events from here to 5 read markers on every product type
constexpr unsigned kLastPoseEvent = 5;
constexpr std::uint64_t kStampOfFilterState = 1234;  // asks for the state, not extrapolated
constexpr double kMaxExtrapolation = 0.1;            // seconds
constexpr double kMicrosecondsPerSecond = 1000000;
constexpr float kUnfilteredDepth = 1500.0f;  // heads nearer than this are answered unfiltered
constexpr int kStateSize = 6;

}  // namespace

bool StereoService::handleEvent(int eventType, const void* input, void* output) {
  const auto event = static_cast<unsigned>(eventType);
  if (event > kLastPoseEvent && event != kHeadingEvent) {
    logSink_->Log(4, "alg: unknown event type!\n");
    return false;
  }
  if (output == nullptr) return false;
  if (event == kHeadingEvent) return input != nullptr && answerHeading(input, output);

  const bool hasHeads = productType_ == 0 || productType_ == 1;
  const bool readsStamp = hasHeads && event == 2;
  if (readsStamp && input == nullptr) return false;

  LockGuard guard(resultLock_);
  if (event >= kMarkerEvents || productType_ == 2) return answerMarker(event, output);
  if (!hasHeads) return copyPose(output);
  return readsStamp ? answerHeadAtStamp(input, output) : answerHead(event, output);
}

bool StereoService::answerMarker(std::size_t record, void* output) {
  // Miss bridging: a vanished object is reported for up to `missLimit_` queries.
  std::int32_t& id = markers_.currentIds[record];
  if (id != -1) {
    missCounts_[record] = 0;
  } else if (missCounts_[record] < missLimit_) {
    id = static_cast<std::int32_t>(record);
    ++missCounts_[record];
  }

  pose_.id = id;
  if (id == -1) return copyPose(output);
  if (filterMode_ == -1) {
    fillUnfiltered(record);
  } else {
    fillFiltered(record, markerFilters_[record], 0.0);
  }
  return copyPose(output);
}

bool StereoService::answerHead(std::size_t record, void* output) {
  pose_.id = heads_.currentIds[record];
  if (pose_.id == -1) return copyPose(output);
  const bool near = std::fabs(result_.records[record].z) < kUnfilteredDepth;
  if (filterMode_ == -1 || (filterMode_ != ConstantVelocityModel::kSmoothMode && near)) {
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
  if (pose_.id == -1) return copyPose(output);

  // Unsigned on purpose: a stamp before the frame wraps to a time far beyond the limit.
  const double dt = static_cast<double>(stamp - lastFrameStamp.load(std::memory_order_relaxed)) /
                    kMicrosecondsPerSecond;
  if (filterMode_ == -1) {
    fillUnfiltered(kRecord);
  } else if (stamp == kStampOfFilterState) {
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
  const KalmanFilter::Vector& state = filter.state();
  if (state.size() < kStateSize) return;
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
  tracked_.setOrientation({in[3], in[0], in[1], in[2]});
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
