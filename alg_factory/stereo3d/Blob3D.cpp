#include <alg_factory/stereo3d/Blob3D.h>

#include <cstring>
#include <utility>

#include <Eigen/LU>

#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/service/ProductTable.h>
#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/ResizeTogether.h>
#include <alg_factory/stereo3d/Undistortion.h>

namespace algorithm {

namespace {

constexpr std::array<float, 6> kTuning = {3.0f, 6.0f, 1.7f, 3.5f, 1000.0f, 3.0f};
constexpr float kTuningExtra = 12.0f;

Eigen::Matrix3d matrix3(const double (&rowByRow)[9]) {
  return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rowByRow);
}

template <typename... Lists>
void reserveAll(Lists&... lists) {
  (lists.reserve(hid::kMaxRecords), ...);
}

void takeRaw(const std::vector<Blob2DPoint>& blobs, std::vector<ImagePoint>& raw) {
  raw.clear();
  for (const Blob2DPoint& blob : blobs) raw.push_back({blob.x, blob.y});
}

}  // namespace

double Blob3D::maxDepth = 3000.0;

bool Blob3D::init(std::uint32_t productType, const void* calibration) {
  const auto type = static_cast<std::int32_t>(productType);
  if (const Product* product = findProduct(type))
    applySettings(markersByObject(type), product->maxDepth);
  productType_ = productType;

  std::memcpy(&calibration_, calibration, sizeof calibration_);
  leftIntrinsicsInverse_ = matrix3(calibration_.leftIntrinsics).inverse();
  rightIntrinsicsInverse_ = matrix3(calibration_.rightIntrinsics).inverse();
  rays_.leftRayInRight = matrix3(calibration_.rotation) * leftIntrinsicsInverse_;
  rays_.rightRay = rightIntrinsicsInverse_;
  rays_.leftCentreInRight = Eigen::Map<const Eigen::Vector3d>(calibration_.translation);
  return true;
}

void Blob3D::applySettings(std::vector<std::int32_t> expectedPoints, double depthLimit) {
  expectedPoints_ = std::move(expectedPoints);
  blobIdCount_ = static_cast<std::int32_t>(expectedPoints_.size());
  maxDepth = depthLimit;
  tuning_ = kTuning;
  tuningExtra_ = kTuningExtra;
}

bool Blob3D::configure(std::vector<Blob2DPoint>* left, std::vector<Blob2DPoint>* right,
                       std::vector<StereoPoint>* output) {
  if (!prepare()) return false;
  leftInput_ = left;
  rightInput_ = right;
  output_ = output;
  return true;
}

bool Blob3D::setLogger(LogSink* logger) {
  logger_ = logger;
  return true;
}

bool Blob3D::prepare() {
  const auto ids = static_cast<std::size_t>(blobIdCount_);
  resizeTogether(ids, pairsById_, historyById_, leftById_, rightById_);
  spareById_.resize(ids == 0 ? 0 : ids - 1);

  reserveAll(leftBlobs_, rightBlobs_, leftRaw_, rightRaw_, leftUndistorted_, rightUndistorted_,
             leftLines_, rightLines_, matchScratch_.left, matchScratch_.right,
             surplusScratch_.candidates, currentPoints_, previousPoints_);
  for (std::size_t g = 0; g < ids; ++g) {
    reserveAll(leftById_[g], rightById_[g], pairsById_[g]);
    historyById_[g].reserve(kHistoryLength + 1);
  }
  return true;
}

bool Blob3D::process() {
  if (!bound()) return true;
  takeInputs();
  undistortBoth();
  sortOntoLines();
  matchPairs();
  triangulatePairs();
  filterPoints();
  smoothAndPublish();
  return true;
}

bool Blob3D::bound() const {
  return leftInput_ != nullptr && rightInput_ != nullptr;
}

void Blob3D::takeInputs() {
  leftBlobs_.swap(*leftInput_);
  rightBlobs_.swap(*rightInput_);
  leftInput_->clear();
  rightInput_->clear();
  takeRaw(leftBlobs_, leftRaw_);
  takeRaw(rightBlobs_, rightRaw_);
}

void Blob3D::undistortBoth() {
  leftUndistorted_.clear();
  rightUndistorted_.clear();
  if (leftRaw_.empty() || rightRaw_.empty()) return;
  algorithm::undistortBoth(calibration_, leftRaw_, rightRaw_, leftUndistorted_, rightUndistorted_);
}

void Blob3D::sortOntoLines() {
  epipolarLines(calibration_.fundamental, LineDirection::kLeftToRight, leftUndistorted_,
                leftLines_);
  epipolarLines(calibration_.fundamental, LineDirection::kRightToLeft, rightUndistorted_,
                rightLines_);
  for (auto& blobs : leftById_) blobs.clear();
  for (auto& blobs : rightById_) blobs.clear();
  // Where one camera saw nothing, neither camera's points were undistorted: nothing to sort.
  if (leftUndistorted_.empty() || rightUndistorted_.empty()) return;
  sortById(leftBlobs_, leftUndistorted_, leftLines_, leftById_);
  sortById(rightBlobs_, rightUndistorted_, rightLines_, rightById_);
}

void Blob3D::matchPairs() {
  for (std::size_t g = 0; g < pairsById_.size(); ++g) {
    matchId(leftById_[g], rightById_[g], matchScratch_, pairsById_[g]);
  }
}

void Blob3D::triangulatePairs() {
  currentPoints_.clear();
  for (std::size_t g = 0; g < pairsById_.size(); ++g) {
    triangulate(rays_, pairsById_[g], static_cast<int>(g), currentPoints_);
  }
}

void Blob3D::filterPoints() {
  removeTooDeep(maxDepth, currentPoints_);
  removeJumps(previousPoints_, currentPoints_);
  const Product* product = findProduct(static_cast<std::int32_t>(productType_));
  if (product != nullptr && product->keepsNearReference) {
    const int expected = expectedPoints_.empty() ? 0 : expectedPoints_[kReferenceId];
    removeFarFromReference(expected, currentPoints_);
  }
  removeSurplus(expectedPoints_, previousPoints_, surplusScratch_, currentPoints_);
}

void Blob3D::smoothAndPublish() {
  smoothPoints(static_cast<double>(tuning_[5]), historyById_, currentPoints_);
  previousPoints_ = currentPoints_;
  currentPoints_.swap(*output_);
  currentPoints_.clear();
}

}  // namespace algorithm
