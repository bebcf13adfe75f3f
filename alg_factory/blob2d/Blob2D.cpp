#include <alg_factory/blob2d/Blob2D.h>

#include <utility>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/service/ProductTable.h>

namespace algorithm {

bool Blob2D::init(std::uint32_t productType) {
  const auto type = static_cast<std::int32_t>(productType);
  if (const Product* product = findProduct(type)) {
    blobIdCount_ = objectCount(type);
    areaDivisor_ = product->areaDivisor;
  } else {
    logger_->Log(kServiceMessage, "alg: unknown product type!");
  }
  return true;
}

bool Blob2D::configure(std::vector<hid::RawBlob>* input, std::vector<Blob2DPoint>* output,
                       std::string name) {
  name_ = std::move(name);
  if (!prepare()) return false;
  input_ = input;
  output_ = output;
  return true;
}

bool Blob2D::setLogger(LogSink* logger) {
  logger_ = logger;
  return true;
}

bool Blob2D::prepare() {
  rawBlobs_.reserve(hid::kMaxRecords);
  blobs_.reserve(hid::kMaxRecords);
  groups_.reserve(hid::kMaxRecords);
  groups_.setIds(static_cast<std::size_t>(blobIdCount_));
  return true;
}

bool Blob2D::process() {
  NoObserver nobody;
  return process(0, nobody);
}

void Blob2D::takeInput() {
  if (input_ == nullptr) return;
  rawBlobs_.swap(*input_);
  input_->clear();
}

}  // namespace algorithm
