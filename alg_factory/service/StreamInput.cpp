#include <algorithm>
#include <cstring>

#include <alg_factory/api/Constants.h>
#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/FrameStamp.h>
#include <alg_factory/service/InertialRecord.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

namespace {

template <typename Record>
Record read(const unsigned char* bytes) {
  Record record;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

/// Brings what the stabilisation stage knows of a record, mirrored, whether it holds an object or
/// not, and leaves the host's fields alone.
void publishRecord(const TrackedPoint& from, TrackedPoint& to) {
  to.id = from.id;
  to.x = from.x;
  to.y = -from.y;
  to.z = -from.z;
  to.bearing = from.bearing;
}

}  // namespace

std::atomic<std::uint32_t> lastFrameStamp{0};

bool StereoService::inputStream(int streamType, const unsigned char* buffer, int offset,
                                int length) {
  NoObserver nobody;
  return inputStream(streamType, buffer, offset, length, nobody);
}

/// Does all that an input asks for, or leaves the decoded records of a packet to the stages.
StereoService::Input StereoService::takeInput(int streamType, const unsigned char* buffer,
                                              int offset, int length) {
  if (!isProductType(productType_)) {
    logSink_->Log(kServiceMessage, "alg: unknown project type!\n");
    return Input::kRefused;
  }
  if (!isStreamType(streamType)) {
    logSink_->Log(kServiceMessage, "alg: unknown stream types for current product type!\n");
    return Input::kRefused;
  }
  const bool emptyPacket = streamType == kPacket && length == 0;
  if (buffer == nullptr && !emptyPacket) return Input::kRefused;
  if (length < 0 || (streamType == kStampedPacket && length < kStampSize)) {
    return Input::kRefused;
  }

  const unsigned char* payload = buffer == nullptr ? nullptr : buffer + offset;
  switch (streamType) {
    case kPacket:
      return takePacket(payload, length, false);
    case kStampedPacket:
      return takePacket(payload, length, true);
    case kAuxVector: {
      const auto record = read<InertialRecord>(payload);
      steady_.setAuxVector(record.p[0], record.p[1], record.p[2]);
      return Input::kDone;
    }
    case kInertialA:
      inputInertial(payload, 0);
      return Input::kDone;
    case kInertialB:
      inputInertial(payload, 1);
      return Input::kDone;
    default:
      steady_.setSideHint(read<std::int32_t>(payload));
      return Input::kDone;
  }
}

StereoService::Input StereoService::takePacket(const unsigned char* packet, int length,
                                               bool stamped) {
  // What is longer than a frame is cut: this bounds memory and time, whatever the host passes.
  const std::size_t size = std::min(static_cast<std::size_t>(length), hid::kLongestInput);
  std::size_t stampSize = 0;
  if (stamped) {
    lastFrameStamp.store(read<std::uint32_t>(packet), std::memory_order_relaxed);
    stampSize = kStampSize;
  }
  // A stamped packet keeps four bytes too many, zeros behind its check byte (kept: the reports that
  // follow from them are known to hosts).
  streamBytes_.assign(packet + stampSize, packet + size);
  streamBytes_.resize(size);

  // Empty, unless an exception (no memory, or the host's log sink) kept an earlier packet's records
  // from being taken: they are not part of this frame.
  leftRaw_.clear();
  rightRaw_.clear();
  return protocol_.process() ? Input::kPacket : Input::kDone;
}

void StereoService::publish(bool stamped) {
  LockGuard guard(resultLock_);
  result_.header = stamped ? lastFrameStamp.load(std::memory_order_relaxed) : 0;
  for (std::size_t k = 0; k < ResultBlock::kRecords; ++k) {
    publishRecord(steady_.table()[k], result_.records[k]);
  }
  if (filterMode_ != kFilterOff) {
    if (stamped) {
      updateHeadFilters();
    } else {
      updateMarkerFilters();
    }
  }
  dataSink_->Deliver(&result_, 0, sizeof result_);
}

template <std::size_t N, typename FilterOf>
void StereoService::follow(Following<N>& following, FilterOf filterOf) {
  for (std::size_t k = 0; k < N; ++k) {
    const TrackedPoint& record = result_.records[k];
    following.currentIds[k] = record.id;
    following.lastPositions[k] = {record.x, record.y, record.z};
    if (record.id != kNoObject) {
      const Eigen::Vector3d y(record.x, record.y, record.z);
      KalmanFilter& filter = filterOf(k);
      if (following.previousIds[k] == kNoObject) filter.init(0.0, y);
      filter.update(y);
    }
    following.previousIds[k] = following.currentIds[k];
  }
}

void StereoService::updateMarkerFilters() {
  follow(markers_, [this](std::size_t k) -> KalmanFilter& { return markerFilters_[k]; });
}

void StereoService::updateHeadFilters() {
  follow(heads_, [this](std::size_t k) -> KalmanFilter& { return headFilterOf(k); });
}

void StereoService::inputInertial(const unsigned char* bytes, std::size_t device) {
  const auto record = read<InertialRecord>(bytes);
  const auto& rate = record.gyroscope;
  const auto& force = record.accelerometer;
  // The stage takes the angular rates first; the record holds them last.
  if (device == 0) {
    steady_.setImuA(rate[0], rate[1], rate[2], force[0], force[1], force[2]);
  } else {
    steady_.setImuB(rate[0], rate[1], rate[2], force[0], force[1], force[2]);
  }

  LockGuard guard(resultLock_);
  TrackedPoint& target = result_.records[device];
  std::memcpy(target.hostPosition, record.p, sizeof target.hostPosition);
  std::memcpy(target.hostOrientation, record.q, sizeof target.hostOrientation);
}

}  // namespace algorithm
