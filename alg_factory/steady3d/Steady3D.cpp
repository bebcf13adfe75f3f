#include <alg_factory/steady3d/Steady3D.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/service/ProductTable.h>
#include <alg_factory/stereo3d/ResizeTogether.h>

namespace algorithm {

namespace {

constexpr float kSingleMaxJump = 80.0f;
constexpr std::size_t kPairObject = 2;

constexpr float kGyroCountsPerDegree = 16.4f;
constexpr float kGravity = 9.81f;
constexpr float kGravitiesPerCount = 0.00048828125f;

float angularRate(std::int16_t count) {
  return static_cast<float>(count) / kGyroCountsPerDegree;
}

float acceleration(std::int16_t count) {
  return static_cast<float>(count) * kGravity * kGravitiesPerCount;
}

void place(const PointF& position, TrackedPoint& record) {
  record.x = position.x;
  record.y = position.y;
  record.z = position.z;
}

HeadingAlignment::TaggedPoint untagged(const PointF& p) {
  return {0.0f, p.x, p.y, p.z};
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
  resizeTogether(markerCount, markers_.index, markers_.position, markers_.sighting);
  std::iota(markers_.index.begin(), markers_.index.end(), 0);

  if (filterMode_ == -1) return true;
  model_ = ConstantVelocityModel::build(filterMode_);
  positionFilterA_ = model_.makeFilter();
  positionFilterB_ = model_.makeFilter();
  return true;
}

bool Steady3D::process() {
  takeInput();
  noteSightings(points_, sightings_);
  holdMissing(holdFrames_, sightings_, points_);
  distribute(pointsPerObject_, points_, markers_);
  fillTable();
  return true;
}

void Steady3D::takeInput() {
  if (input_ == nullptr) return;
  if (input_ != &points_) points_.swap(*input_);
  input_->clear();
}

void Steady3D::fillTable() {
  if (markers_.index.empty()) return;
  for (TrackedPoint& record : table_) record.id = -1;
  const Product* product = findProduct(productType_);
  if (product != nullptr && product->guardsJumps) {
    fillTableWithGuards();
    return;
  }
  for (std::size_t k = 0; k < markers_.index.size(); ++k) {
    table_[k].id = markers_.index[k];
    place(markers_.position[k], table_[k]);
  }
}

void Steady3D::fillTableWithGuards() {
  std::size_t marker = 0;
  for (std::size_t object = 0; object < pointsPerObject_.size(); ++object) {
    if (marker >= markers_.index.size()) break;
    if (object == kPairObject) {
      trackPair(marker);
    } else if (object < guards_.size() && markers_.index[marker] != -1) {
      trackSingle(object, markers_.position[marker]);
    } else if (object < guards_.size()) {
      guards_[object].forget();
      sightings_.lastSeen[object].id = kNoObject;
    }
    marker += static_cast<std::size_t>(pointsPerObject_[object]);
  }
}

void Steady3D::trackSingle(std::size_t object, const PointF& position) {
  table_[object].id = static_cast<std::int32_t>(object);
  place(guards_[object].accept(position), table_[object]);
}

void Steady3D::trackPair(std::size_t firstMarker) {
  const std::size_t a = firstMarker;
  const std::size_t b = firstMarker + 1;
  if (markers_.index[a] == -1) {
    twoPointObject_.forget();
    sightings_.lastSeen[kPairObject].id = -1;
    return;
  }
  PointF reported;
  // Marker points are filled in order: the second is never seen without the first.
  const bool seesBoth = b < markers_.index.size() && markers_.index[b] != -1;
  if (!seesBoth) {
    reported = twoPointObject_.seeOne(markers_.position[a], sideHint_);
  } else {
    if (output_ != nullptr) {
      output_->addPair(untagged(markers_.position[a]), untagged(markers_.position[b]));
    }
    reported =
        twoPointObject_.seeBoth(markers_.position[a], markers_.position[b], markers_.sighting[a],
                                markers_.sighting[b], sideHint_, typeParam2_);
  }
  TrackedPoint& record = table_[kPairObject];
  record.id = static_cast<std::int32_t>(kPairObject);
  place(reported, record);
  record.bearing = bearingOf(reported);
}

void Steady3D::copyResult(ResultBlock& block) const {
  block = ResultBlock();
  for (std::size_t k = 0; k < table_.size(); ++k) block.records[k] = table_[k];
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
