#include <alg_kit/estimate/Tracker.h>

#include <cmath>
#include <stdexcept>
#include <string>

namespace estimate {
namespace {

constexpr double kFirstNoise = 0.1;  // px, before the light has said anything

void require(bool valid, const std::string& expectation) {
  if (!valid) throw std::invalid_argument("expected " + expectation);
}

void check(int productType, const algorithm::StereoCalibration& c,
           const EstimatorOptions& options) {
  const auto finite = [](const auto& numbers) {
    for (const double number : numbers)
      if (!std::isfinite(number)) return false;
    return true;
  };
  require(algorithm::isProductType(productType),
          "product type 0, 1 or 2, found " + std::to_string(productType));
  require(finite(c.leftIntrinsics) && finite(c.leftDistortion) && finite(c.rightIntrinsics) &&
              finite(c.rightDistortion) && finite(c.rotation) && finite(c.translation),
          "a calibration of finite numbers");
  for (const auto* const k : {&c.leftIntrinsics, &c.rightIntrinsics})
    require((*k)[0] > 0 && (*k)[4] > 0, "a calibration with focal lengths above 0");
  require(options.noise >= 0 && options.noise <= 100, "a blob noise from 0 to 100 px");
  require(options.frameRate > 0 && std::isfinite(options.frameRate), "a frame rate above 0");
  require(options.bridge >= 0 && std::isfinite(options.bridge), "a time to bridge of 0 or more");
}

/// For the constructor's list, where nothing may be made before the check.
int checked(int productType, const algorithm::StereoCalibration& calibration,
            const EstimatorOptions& options) {
  check(productType, calibration, options);
  return algorithm::objectCount(productType);
}

}  // namespace

Tracker::Tracker(int productType, const algorithm::StereoCalibration& calibration,
                 const EstimatorOptions& options)
    : noiseGiven_((checked(productType, calibration, options), options.noise > 0)),
      equations_(calibration),
      clock_(options.frameRate),
      blobNoise_(kFirstNoise) {
  settings_.bridge = options.bridge;
  settings_.models = options.models;
  settings_.noise = noiseGiven_ ? options.noise : kFirstNoise;
  const int objects = algorithm::objectCount(productType);
  tracks_.reserve(static_cast<std::size_t>(objects));
  for (int object = 0; object < objects; ++object)
    tracks_.emplace_back(equations_, settings_, algorithm::markerCount(productType, object) == 2);
}

bool Tracker::feed(int streamType, const unsigned char* payload, int length,
                   std::optional<double> arrival) {
  if (!algorithm::isPacketStream(streamType) || payload == nullptr) return false;
  const int header = streamType == algorithm::kStampedPacket ? algorithm::kStampSize : 0;
  if (length <= header) return false;  // no packet: the library delivers nothing either

  outcomes_.fill({});
  tick_ = tickOf(streamType, payload, arrival);
  if (tick_.step == FrameClock::Step::kLate) {
    for (Outcome& outcome : outcomes_) outcome.refusal = Refusal::kLate;
    return true;
  }
  if (tick_.step == FrameClock::Step::kFirst)
    for (Track& track : tracks_) track.end();

  const bool readable = readCandidates(payload + header, static_cast<std::size_t>(length - header));
  for (std::size_t object = 0; object < tracks_.size(); ++object) {
    if (readable) {
      outcomes_[object] = tracks_[object].feed(now(), tick_.elapsed, candidates_[object]);
      blobNoise_.add(outcomes_[object].raysMiss2);
    } else {
      tracks_[object].pass(now(), tick_.elapsed);
      outcomes_[object].refusal = Refusal::kBadPacket;
    }
  }
  if (!noiseGiven_) settings_.noise = blobNoise_.value();
  return true;
}

FrameClock::Tick Tracker::tickOf(int streamType, const unsigned char* payload,
                                 std::optional<double> arrival) {
  if (streamType != algorithm::kStampedPacket) return clock_.plain(arrival);
  return clock_.stamped(stampOf(payload));
}

bool Tracker::readCandidates(const unsigned char* packet, std::size_t length) {
  if (!readPacket(packet, length, objectCount(), packet_)) return false;
  for (ObjectCandidates& object : candidates_)
    for (CandidateList& list : object) list.clear();
  for (std::size_t i = 0; i < packet_.count; ++i) {
    const Blob& blob = packet_.blobs[i];
    candidates_[static_cast<std::size_t>(blob.id)][static_cast<std::size_t>(blob.camera)].add(blob);
  }
  for (ObjectCandidates& object : candidates_)
    for (CandidateList& list : object) list.addMerged();
  return true;
}

}  // namespace estimate
