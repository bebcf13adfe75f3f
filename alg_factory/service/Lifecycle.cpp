#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

bool StereoService::initialize(int productType, const unsigned char* config, int configOffset) {
  productType_ = productType;
  // Refused before any stage is touched, so that the stages never disagree about the product.
  if (config == nullptr) return reportConfigureFailure();

  // The two messages stand crosswise to what failed (kept: hosts search their logs for them).
  if (!initializeStages(config + configOffset)) return reportConfigureFailure();
  if (!connectStages()) {
    logSink_->Log(kServiceMessage, "alg: init failed!\n");
    return false;
  }
  return true;
}

bool StereoService::reportConfigureFailure() {
  logSink_->Log(kServiceMessage, "alg: configure failed!\n");
  return false;
}

bool StereoService::initializeStages(const unsigned char* calibration) {
  const auto type = static_cast<std::uint32_t>(productType_);
  return protocol_.init(type) && blobLeft_.init(type) && blobRight_.init(type) &&
         stereo_.init(type, calibration) && steady_.init(productType_);
}

bool StereoService::connectStages() {
  // The vectors between the stages change places with the stages' own: all have room for a full
  // packet.
  streamBytes_.reserve(hid::kLongestInput);
  leftRaw_.reserve(hid::kMaxRecords);
  rightRaw_.reserve(hid::kMaxRecords);
  leftBlobs_.reserve(hid::kMaxRecords);
  rightBlobs_.reserve(hid::kMaxRecords);
  points_.reserve(hid::kMaxRecords);
  return protocol_.configure(&streamBytes_, &leftRaw_, &rightRaw_) &&
         blobLeft_.configure(&leftRaw_, &leftBlobs_, "left") &&
         blobRight_.configure(&rightRaw_, &rightBlobs_, "right") &&
         stereo_.configure(&leftBlobs_, &rightBlobs_, &points_) &&
         steady_.configure(&points_, &tracked_);
}

bool StereoService::setLogCallback(LogSink* sink) {
  logSink_ = sink;
  if (protocol_.setLogger(sink) && blobLeft_.setLogger(sink) && blobRight_.setLogger(sink) &&
      stereo_.setLogger(sink) && steady_.setLogger(sink)) {
    return true;
  }
  logSink_->Log(kServiceMessage, "alg: set log callback failed!\n");
  return false;
}

bool StereoService::setDataCallback(DataSink* sink) {
  dataSink_ = sink;
  return true;
}

}  // namespace algorithm
