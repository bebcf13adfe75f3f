#pragma once

#include <cstdint>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/IdRuns.h>
#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/PointFilter.h>
#include <alg_factory/stereo3d/PointSmoother.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_factory/stereo3d/StereoPoint.h>
#include <alg_factory/stereo3d/Triangulation.h>

namespace algorithm {

class LogSink;

/// Third stage: the 2D blobs of both cameras in, 3D points in the right camera's frame out.
/// No step reports an error: bad geometry yields fewer points.
class Blob3D : public BaseCV {
 public:
  /// Sets the product type's settings (an unknown type keeps the earlier ones) and copies the
  /// calibration, which need not be aligned. Always true: a singular camera matrix is not tested.
  bool init(std::uint32_t productType, const void* calibration);

  /// Runs `prepare`, and binds the vectors (not owned) only if that succeeded.
  bool configure(std::vector<Blob2DPoint>* left, std::vector<Blob2DPoint>* right,
                 std::vector<StereoPoint>* output);

  /// Takes no note of it: nothing here is ever logged.
  bool setLogger(LogSink* logger);

  /// Takes both inputs by exchanging storage, leaves them empty, and exchanges the frame's points
  /// with the bound output. Does nothing while an input is not bound. Always true.
  bool process() override;

  /// As `process`, and tells `observer` what becomes of every blob and point.
  template <typename Observer>
  bool process(Observer& observer);

  /// Sizes the lists by id, with room for a full packet, so that no frame allocates. Histories of
  /// ids that remain are kept.
  bool prepare() override;

  std::int32_t blobIdCount() const { return blobIdCount_; }
  const std::vector<std::int32_t>& expectedPoints() const { return expectedPoints_; }
  const StereoCalibration& calibration() const { return calibration_; }
  /// Of the latest frame, until the next: the blobs as they were matched, and the pairs, id by id.
  const StereoBlobs& blobs() const { return blobs_; }
  const std::vector<BlobPair>& pairs() const { return pairs_; }
  const std::vector<PointHistory>& historyById() const { return historyById_; }
  const std::vector<StereoPoint>& previousPoints() const { return previousPoints_; }

  /// Largest depth a point may have. One value for the process, written by the last `init` of any
  /// instance (kept: hosts that reconfigure rely on the last product type's limit).
  static double maxDepth;

 private:
  static constexpr double kSmoothingRadius = 3.0;  ///< unit of the calibration's translation

  bool bound() const;
  void takeInputs();
  void undistortOntoLines();
  template <typename Observer>
  void filterPoints(Observer& observer);
  template <typename Observer>
  void smoothAndPublish(Observer& observer);

  StereoCalibration calibration_;
  TwinRays rays_;
  std::int32_t blobIdCount_ = 0;
  bool keepsNearReference_ = false;
  std::vector<std::int32_t> expectedPoints_;

  std::vector<Blob2DPoint>* leftInput_ = nullptr;
  std::vector<Blob2DPoint>* rightInput_ = nullptr;
  std::vector<StereoPoint>* output_ = nullptr;

  std::size_t groups_ = 0;  ///< ids that `prepare` met
  StereoBlobs blobs_;       ///< id by id
  NeighbourTable neighbours_;
  std::vector<BlobPair> pairs_;
  std::vector<PairPoint> pairPoints_;
  std::vector<PointMean> previousMeans_;
  SurplusScratch surplusScratch_;
  std::vector<StereoPoint> currentPoints_, previousPoints_;
  std::vector<PointHistory> historyById_;
};

template <typename Observer>
bool Blob3D::process(Observer& observer) {
  if (!bound()) return true;
  takeInputs();
  undistortOntoLines();
  matchIds(blobs_, groups_, neighbours_, pairs_, observer);
  triangulate(rays_, pairs_, pairPoints_, observer);
  filterPoints(observer);
  smoothAndPublish(observer);
  return true;
}

template <typename Observer>
void Blob3D::filterPoints(Observer& observer) {
  meansById(previousPoints_, previousMeans_);
  removeTooDeep(maxDepth, pairPoints_, observer);
  removeJumps(previousMeans_, pairPoints_, observer);
  if (keepsNearReference_) {
    removeFarFromReference(expectedPoints_[kReferenceId], pairPoints_, observer);
  }
  removeSurplus(expectedPoints_, !previousPoints_.empty(), previousMeans_, surplusScratch_,
                pairPoints_, observer);
}

template <typename Observer>
void Blob3D::smoothAndPublish(Observer& observer) {
  currentPoints_.clear();
  for (const PairPoint& p : pairPoints_) {
    setStereoPoint(p, pairs_[p.pair], currentPoints_.emplace_back());
  }
  smoothPoints(kSmoothingRadius, historyById_, currentPoints_);
  for (std::size_t i = 0; i < currentPoints_.size(); ++i) {
    observer.published(pairPoints_[i].pair, currentPoints_[i]);
  }
  previousPoints_ = currentPoints_;
  currentPoints_.swap(*output_);
  currentPoints_.clear();
}

}  // namespace algorithm
