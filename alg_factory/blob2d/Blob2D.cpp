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
  order_.reserve(hid::kMaxRecords);
  groups_ = static_cast<std::size_t>(blobIdCount_);
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

void Blob2D::orderBlobs() {
  const hid::RawBlob* const raw = rawBlobs_.data();
  const std::size_t count = rawBlobs_.size(), groups = groups_;
  order_.resize(count);
  std::uint32_t* end = order_.data();
  bool inOrder = true;
  std::size_t last = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto id = static_cast<std::size_t>(raw[i].id);
    if (raw[i].weight == 0 || id >= groups) continue;  // without weight, a blob has no centre
    inOrder &= id >= last;
    last = id;
    *end++ = i;
  }
  order_.resize(static_cast<std::size_t>(end - order_.data()));
  if (inOrder) return;
  stableSort(order_.begin(), order_.end(),
             [raw](std::uint32_t a, std::uint32_t b) { return raw[a].id < raw[b].id; });
}

}  // namespace algorithm
