#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/service/ProductTable.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/steady3d/HeadingAlignment.h>
#include <alg_factory/steady3d/JumpGuard.h>
#include <alg_factory/steady3d/PointAssignment.h>
#include <alg_factory/steady3d/TrackedPoint.h>
#include <alg_factory/steady3d/TwoPointObject.h>
#include <alg_factory/stereo3d/StereoPoint.h>

namespace algorithm {

class LogSink;

/// Fourth stage: a frame's 3D points in, the table of ten tracked points out. Product types 0 and 2
/// take the points as they come; product type 1 rejects jumps and keeps a two-point object.
class Steady3D : public BaseCV {
 public:
  Steady3D();

  /// Sets the product type's objects. An unknown type is logged (level 4), keeps the earlier ones
  /// and is no failure: streams of such types are refused elsewhere.
  bool init(std::int32_t productType);

  /// Runs `prepare`, and binds input and output (not owned) only if that succeeded.
  bool configure(std::vector<StereoPoint>* input, HeadingAlignment* output);

  bool setLogger(LogSink* logger);

  /// Takes the bound points by exchanging storage, leaves the input empty and fills the table.
  /// Always true.
  bool process() override;

  /// As `process`, and tells `observer` which positions are not reported.
  template <typename Observer>
  bool process(Observer& observer);

  /// Sizes the storage and, unless the filter mode is -1, builds both position filters anew.
  bool prepare() override;

  // Auxiliary inputs. Each stores its values and returns true.

  /// Raw counts: three angular rates r0 to r2 (16.4 per degree per second), then three
  /// accelerations r3 to r5 (2048 per g).
  bool setImuA(std::int16_t r0, std::int16_t r1, std::int16_t r2, std::int16_t r3, std::int16_t r4,
               std::int16_t r5);
  bool setImuB(std::int16_t r0, std::int16_t r1, std::int16_t r2, std::int16_t r3, std::int16_t r4,
               std::int16_t r5);
  bool setAuxVector(float x, float y, float z);
  /// 1: the visible point of the two-point object is the first of its pair (smaller x), 2: the
  /// second, any other value: decide by distance.
  bool setSideHint(std::int32_t hint);
  /// Stored, and read by the next `prepare`.
  bool setFilterMode(std::int32_t mode);

  // Read-only views for white-box tests and inspection.
  std::int32_t productType() const { return productType_; }
  std::int32_t filterMode() const { return filterMode_; }
  std::int32_t objectCount() const { return objectCount_; }
  const std::vector<std::int32_t>& pointsPerObject() const { return pointsPerObject_; }
  float typeParam1() const { return typeParam1_; }
  float typeParam2() const { return typeParam2_; }
  const KalmanFilter& positionFilterA() const { return positionFilterA_; }
  const KalmanFilter& positionFilterB() const { return positionFilterB_; }
  const ObjectSightings& sightings() const { return sightings_; }
  const MarkerPoints& markers() const { return markers_; }
  /// Ids, positions and bearings; all other fields stay zero. Positions are as measured, y and z
  /// not negated.
  const std::array<TrackedPoint, ResultBlock::kRecords>& table() const { return table_; }
  const JumpGuard& guard(std::size_t object) const { return guards_[object]; }
  const TwoPointObject& twoPointObject() const { return twoPointObject_; }

  // The auxiliary inputs last set; no step reads them.
  const std::array<float, 3>& gyroA() const { return gyroA_; }    ///< degrees per second
  const std::array<float, 3>& gyroB() const { return gyroB_; }    ///< degrees per second
  const std::array<float, 3>& accelA() const { return accelA_; }  ///< metres per second squared
  const std::array<float, 3>& accelB() const { return accelB_; }  ///< metres per second squared
  const std::array<float, 3>& auxVector() const { return auxVector_; }
  std::int32_t sideHint() const { return sideHint_; }

 private:
  void setObjects(std::vector<std::int32_t> pointsPerObject);
  void takeInput();
  void fillFromMarkers();
  void place(std::size_t record, const PointF& position);
  void forget(std::size_t object);
  void noteHeading(const PointF& a, const PointF& b);
  template <typename Observer>
  void fillTable(Observer& observer);
  template <typename Observer>
  void fillWithGuards(Observer& observer);
  template <typename OnHeld>
  PointF reportedPosition(std::size_t object, std::size_t marker, OnHeld onHeld);

  static constexpr std::size_t kPairObject = 2;  ///< of the products whose jumps are guarded

  std::int32_t productType_ = 0;
  std::int32_t filterMode_ = -1;
  std::int32_t objectCount_ = 0;
  std::int32_t holdFrames_ = 0;  ///< a tunable, zero for every product type: nothing is held
  std::vector<std::int32_t> pointsPerObject_;
  std::vector<std::int32_t> objectByMarker_;  ///< the same, marker point by marker point
  float typeParam1_ = 0;                      ///< a setting of the product that no step reads
  float typeParam2_ = 0;  ///< largest factor of the two-point object's diameter ratio

  ConstantVelocityModel model_;
  /// Built ready for use as the filter mode says; `process` smooths nothing, the service does.
  KalmanFilter positionFilterA_, positionFilterB_;

  std::vector<StereoPoint>* input_ = nullptr;
  HeadingAlignment* output_ = nullptr;
  LogSink* logger_ = nullptr;

  std::vector<StereoPoint> points_;
  ObjectSightings sightings_;
  MarkerPoints markers_;
  std::array<TrackedPoint, ResultBlock::kRecords> table_{};
  std::array<JumpGuard, 2> guards_;  ///< objects 0 and 1 of product type 1
  TwoPointObject twoPointObject_;    ///< object 2 of product type 1

  std::array<float, 3> gyroA_{}, gyroB_{}, accelA_{}, accelB_{}, auxVector_{};
  std::int32_t sideHint_ = 0;
};

template <typename Observer>
bool Steady3D::process(Observer& observer) {
  takeInput();
  noteSightings(points_, sightings_);
  holdMissing(holdFrames_, sightings_, points_);
  distribute(objectByMarker_, points_, markers_);
  fillTable(observer);
  return true;
}

template <typename Observer>
void Steady3D::fillTable(Observer& observer) {
  if (markers_.index.empty()) return;
  for (TrackedPoint& record : table_) record.id = kNoObject;
  const Product* product = findProduct(productType_);
  if (product != nullptr && product->guardsJumps) {
    fillWithGuards(observer);
  } else {
    fillFromMarkers();
  }
}

template <typename Observer>
void Steady3D::fillWithGuards(Observer& observer) {
  std::size_t marker = 0;
  for (std::size_t object = 0; object < pointsPerObject_.size(); ++object) {
    if (object > kPairObject || marker >= markers_.index.size()) break;
    if (markers_.index[marker] == kNoObject) {
      forget(object);
    } else {
      table_[object].id = static_cast<std::int32_t>(object);
      place(object, reportedPosition(object, marker, [&](BlobFate fate, float value, float limit) {
              observer.held(object, fate, static_cast<double>(value), static_cast<double>(limit));
            }));
    }
    marker += static_cast<std::size_t>(pointsPerObject_[object]);
  }
}

/// @param marker  the first of the object, which is seen
template <typename OnHeld>
PointF Steady3D::reportedPosition(std::size_t object, std::size_t marker, OnHeld onHeld) {
  const PointF& a = markers_.position[marker];
  if (object != kPairObject) return guards_[object].accept(a, onHeld);

  // Marker points are filled in order: the second is never seen without the first.
  const std::size_t second = marker + 1;
  PointF reported;
  if (second < markers_.index.size() && markers_.index[second] != kNoObject) {
    const PointF& b = markers_.position[second];
    noteHeading(a, b);
    reported = twoPointObject_.seeBoth(a, b, markers_.diameter[marker], markers_.diameter[second],
                                       sideHint_, typeParam2_, onHeld);
  } else {
    reported = twoPointObject_.seeOne(a, sideHint_, onHeld);
  }
  table_[kPairObject].bearing = bearingOf(reported);
  return reported;
}

}  // namespace algorithm
