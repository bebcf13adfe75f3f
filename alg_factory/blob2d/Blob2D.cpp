#include <alg_factory/blob2d/Blob2D.h>

#include <utility>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/blob2d/BlobMerger.h>
#include <alg_factory/blob2d/BlobMoments.h>
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
  groups_.resize(static_cast<std::size_t>(blobIdCount_));
  for (auto& group : groups_) group.reserve(hid::kMaxRecords);
  return true;
}

bool Blob2D::process() {
  if (output_ == nullptr) return true;
  takeInput();
  groupById(rawBlobs_, areaDivisor_, groups_);
  for (auto& group : groups_) mergeOverlapping(group);
  writeOutput();
  return true;
}

void Blob2D::takeInput() {
  if (input_ == nullptr) return;
  rawBlobs_.swap(*input_);
  input_->clear();
}

void Blob2D::writeOutput() {
  output_->clear();
  for (const auto& group : groups_) {
    for (const Blob2DPoint& point : group) output_->push_back(point);
  }
}

}  // namespace algorithm
