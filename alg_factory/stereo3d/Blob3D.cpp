#include <alg_factory/stereo3d/Blob3D.h>

#include <cstring>

#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/service/ProductTable.h>
#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/Undistortion.h>

namespace algorithm {

namespace {

template <typename... Lists>
void reserveAll(std::size_t size, Lists&... lists) {
  (lists.reserve(size), ...);
}

}  // namespace

double Blob3D::maxDepth = 3000.0;

bool Blob3D::init(std::uint32_t productType, const void* calibration) {
  const auto type = static_cast<std::int32_t>(productType);
  const Product* product = findProduct(type);
  if (product != nullptr) {
    expectedPoints_ = markersByObject(type);
    blobIdCount_ = objectCount(type);
    maxDepth = product->maxDepth;
  }
  keepsNearReference_ = product != nullptr && product->keepsNearReference;

  std::memcpy(&calibration_, calibration, sizeof calibration_);
  rays_ = raysFrom(calibration_);
  return true;
}

bool Blob3D::configure(std::vector<Blob2DPoint>* left, std::vector<Blob2DPoint>* right,
                       std::vector<StereoPoint>* output) {
  if (!prepare()) return false;
  leftInput_ = left;
  rightInput_ = right;
  output_ = output;
  return true;
}

bool Blob3D::setLogger(LogSink* /*logger*/) {
  return true;
}

bool Blob3D::prepare() {
  const auto ids = static_cast<std::size_t>(blobIdCount_);
  reserveAll(hid::kMaxRecords, blobs_.left, blobs_.right, pairs_, pairPoints_,
             surplusScratch_.candidates, currentPoints_, previousPoints_);
  neighbours_.reserve(hid::kMaxRecords / 2);  // of one camera, where the other has as many
  // All storage by id is there before any of it changes: when memory runs out, it still has one
  // size.
  reserveAll(ids, previousMeans_, historyById_);
  groups_ = ids;
  previousMeans_.resize(ids);
  historyById_.resize(ids);
  return true;
}

bool Blob3D::process() {
  NoObserver nobody;
  return process(nobody);
}

bool Blob3D::bound() const {
  return leftInput_ != nullptr && rightInput_ != nullptr;
}

void Blob3D::takeInputs() {
  blobs_.left.swap(*leftInput_);
  blobs_.right.swap(*rightInput_);
  leftInput_->clear();
  rightInput_->clear();
  orderById(blobs_.left);  // as the 2D stage lists them
  orderById(blobs_.right);
}

void Blob3D::undistortOntoLines() {
  if (blobs_.left.empty() || blobs_.right.empty()) return;  // no blob can find a partner
  undistortBoth(calibration_, blobs_.left, blobs_.right);
  drawEpipolarLines(calibration_.fundamental, LineDirection::kLeftToRight, blobs_.left);
  drawEpipolarLines(calibration_.fundamental, LineDirection::kRightToLeft, blobs_.right);
}

}  // namespace algorithm
