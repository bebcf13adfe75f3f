#include <alg_factory/steady3d/Steady3D.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/stereo3d/ResizeTogether.h>

namespace algorithm {

namespace {

constexpr float kSingleMaxJump = 80.0f;

constexpr float kGyroCountsPerDegree = 16.4f;
constexpr float kGravity = 9.81f;
constexpr float kGravitiesPerCount = 0.00048828125f;

float angularRate(std::int16_t count) {
  return static_cast<float>(count) / kGyroCountsPerDegree;
}

float acceleration(std::int16_t count) {
  return static_cast<float>(count) * kGravity * kGravitiesPerCount;
}

}  // namespace

Steady3D::Steady3D() : guards_{JumpGuard(kSingleMaxJump), JumpGuard(kSingleMaxJump)} {}

bool Steady3D::init(std::int32_t productType) {
  if (const Product* product = findProduct(productType)) {
    setObjects(markersByObject(productType));
    if (product->guardsJumps) {
      typeParam1_ = product->typeParam1;
      typeParam2_ = product->typeParam2;
    }
  } else {
    logger_->Log(kServiceMessage, "alg: unknown product type!");
  }
  productType_ = productType;
  return true;
}

void Steady3D::setObjects(std::vector<std::int32_t> pointsPerObject) {
  objectByMarker_ = objectsByMarker(pointsPerObject);
  pointsPerObject_ = std::move(pointsPerObject);
  objectCount_ = static_cast<std::int32_t>(pointsPerObject_.size());
  holdFrames_ = 0;
}

bool Steady3D::configure(std::vector<StereoPoint>* input, HeadingAlignment* output) {
  if (!prepare()) return false;
  input_ = input;
  output_ = output;
  return true;
}

bool Steady3D::setLogger(LogSink* logger) {
  logger_ = logger;
  return true;
}

bool Steady3D::prepare() {
  const auto objects = static_cast<std::size_t>(objectCount_);
  points_.reserve(std::max(objects, hid::kMaxRecords));
  resizeTogether(objects, sightings_.lastSeen, sightings_.missCount);
  std::fill(sightings_.missCount.begin(), sightings_.missCount.end(), 0);

  const auto markerCount = static_cast<std::size_t>(
      std::accumulate(pointsPerObject_.begin(), pointsPerObject_.end(), 0));
  resizeTogether(markerCount, markers_.index, markers_.position, markers_.diameter);
  std::iota(markers_.index.begin(), markers_.index.end(), 0);

  if (filterMode_ == -1) return true;
  model_ = ConstantVelocityModel::build(filterMode_);
  positionFilterA_ = model_.makeFilter();
  positionFilterB_ = model_.makeFilter();
  return true;
}

bool Steady3D::process() {
  NoObserver nobody;
  return process(nobody);
}

void Steady3D::takeInput() {
  if (input_ == nullptr) return;
  if (input_ != &points_) points_.swap(*input_);
  input_->clear();
}

void Steady3D::fillFromMarkers() {
  for (std::size_t k = 0; k < markers_.index.size(); ++k) {
    table_[k].id = markers_.index[k];
    place(k, markers_.position[k]);
  }
}

void Steady3D::place(std::size_t record, const PointF& position) {
  table_[record].x = position.x;
  table_[record].y = position.y;
  table_[record].z = position.z;
}

void Steady3D::forget(std::size_t object) {
  if (object == kPairObject) {
    twoPointObject_.forget();
  } else {
    guards_[object].forget();
  }
  sightings_.lastSeen[object].id = kNoObject;
}

void Steady3D::noteHeading(const PointF& a, const PointF& b) {
  if (output_ != nullptr) output_->addPair({0.0f, a.x, a.y, a.z}, {0.0f, b.x, b.y, b.z});
}

bool Steady3D::setImuA(std::int16_t r0, std::int16_t r1, std::int16_t r2, std::int16_t r3,
                       std::int16_t r4, std::int16_t r5) {
  gyroA_ = {angularRate(r0), angularRate(r1), angularRate(r2)};
  accelA_ = {acceleration(r3), acceleration(r4), acceleration(r5)};
  return true;
}

bool Steady3D::setImuB(std::int16_t r0, std::int16_t r1, std::int16_t r2, std::int16_t r3,
                       std::int16_t r4, std::int16_t r5) {
  gyroB_ = {angularRate(r0), angularRate(r1), angularRate(r2)};
  accelB_ = {acceleration(r3), acceleration(r4), acceleration(r5)};
  return true;
}

bool Steady3D::setAuxVector(float x, float y, float z) {
  auxVector_ = {x, y, z};
  return true;
}

bool Steady3D::setSideHint(std::int32_t hint) {
  sideHint_ = hint;
  return true;
}

bool Steady3D::setFilterMode(std::int32_t mode) {
  filterMode_ = mode;
  return true;
}

}  // namespace algorithm
