#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <alg_factory/hid/BaseCV.h>
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

  /// Sizes the storage and, unless the filter mode is -1, builds both position filters anew.
  bool prepare() override;

  /// Copies the table: ids, positions and bearings. The header and all other fields are zero.
  /// Positions are as measured, y and z not negated.
  void copyResult(ResultBlock& block) const;

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
  void fillTable();
  void fillTableWithGuards();
  void trackSingle(std::size_t object, const PointF& position);
  void trackPair(std::size_t firstMarker);

  std::int32_t productType_ = 0;
  std::int32_t filterMode_ = -1;
  std::int32_t objectCount_ = 0;
  std::int32_t holdFrames_ = 0;  ///< a tunable, zero for every product type: nothing is held
  std::vector<std::int32_t> pointsPerObject_;
  float typeParam1_ = 0;  ///< carried, not read
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

}  // namespace algorithm
