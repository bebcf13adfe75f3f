#include <alg_factory/hid/HidProtocol.h>

#include <algorithm>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/ProductTable.h>

namespace hid {

namespace {
constexpr int kIdsOfUnknownProducts = 3;
}

bool HidProtocol::init(std::uint32_t productType) {
  const auto type = static_cast<std::int32_t>(productType);
  blobIdCount_ =
      algorithm::isProductType(type) ? algorithm::objectCount(type) : kIdsOfUnknownProducts;
  return true;
}

bool HidProtocol::configure(std::vector<std::uint8_t>* input, std::vector<RawBlob>* leftOut,
                            std::vector<RawBlob>* rightOut) {
  input_ = input;
  leftOut_ = leftOut;
  rightOut_ = rightOut;
  return prepare();
}

bool HidProtocol::prepare() {
  packet_.reserve(kLongestInput);
  return true;
}

bool HidProtocol::setLogger(algorithm::LogSink* logger) {
  logger_ = logger;
  return true;
}

bool HidProtocol::process() {
  if (input_ != nullptr) {
    packet_.swap(*input_);
    input_->clear();
  }
  if (packet_.empty()) return false;

  frameLength_ = static_cast<std::uint16_t>(std::min(packet_.size(), std::size_t{kFrameSize}));
  std::copy_n(packet_.begin(), frameLength_, frame_.begin());

  const DecodeStatus status = decode(frame_, frameLength_, blobIdCount_, *leftOut_, *rightOut_);
  if (status != DecodeStatus::kNone) logger_->Log(algorithm::kDecoderMessage, messageOf(status));
  return true;
}

}  // namespace hid
