#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/ImagePoint.h>
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

  bool setLogger(LogSink* logger);

  /// Takes both inputs by exchanging storage, leaves them empty, and exchanges the frame's points
  /// with the bound output. Does nothing while an input is not bound. Always true.
  bool process() override;

  /// Sizes the lists by id, with room for a full packet, so that no frame allocates. Histories of
  /// ids that remain are kept.
  bool prepare() override;

  std::int32_t blobIdCount() const { return blobIdCount_; }
  const std::vector<std::int32_t>& expectedPoints() const { return expectedPoints_; }
  const StereoCalibration& calibration() const { return calibration_; }
  const std::vector<BlobPairs>& pairsById() const { return pairsById_; }
  const std::vector<PointHistory>& historyById() const { return historyById_; }
  const std::vector<StereoPoint>& previousPoints() const { return previousPoints_; }
  const std::vector<ImagePoint>& leftUndistorted() const { return leftUndistorted_; }
  const std::vector<ImagePoint>& rightUndistorted() const { return rightUndistorted_; }

  /// Largest depth a point may have. One value for the process, written by the last `init` of any
  /// instance (kept: hosts that reconfigure rely on the last product type's limit).
  static double maxDepth;

 private:
  void applySettings(std::vector<std::int32_t> expectedPoints, double depthLimit);

  bool bound() const;
  void takeInputs();
  void undistortBoth();
  void sortOntoLines();
  void matchPairs();
  void triangulatePairs();
  void filterPoints();
  void smoothAndPublish();

  StereoCalibration calibration_;
  Eigen::Matrix3d leftIntrinsicsInverse_ = Eigen::Matrix3d::Zero();
  Eigen::Matrix3d rightIntrinsicsInverse_ = Eigen::Matrix3d::Zero();
  StereoRays rays_;
  std::uint32_t productType_ = 0;
  std::int32_t blobIdCount_ = 0;
  std::vector<std::int32_t> expectedPoints_;
  std::array<float, 6> tuning_{};  ///< only the last one, the smoothing radius, is read
  float tuningExtra_ = 0;          ///< carried, not read
  LogSink* logger_ = nullptr;

  std::vector<Blob2DPoint>* leftInput_ = nullptr;
  std::vector<Blob2DPoint>* rightInput_ = nullptr;
  std::vector<StereoPoint>* output_ = nullptr;

  std::vector<Blob2DPoint> leftBlobs_, rightBlobs_;
  std::vector<ImagePoint> leftRaw_, rightRaw_;
  std::vector<ImagePoint> leftUndistorted_, rightUndistorted_;
  std::vector<ImageLine> leftLines_, rightLines_;
  std::vector<std::vector<Blob2DPoint>> leftById_, rightById_;
  std::vector<BlobPairs> pairsById_;
  MatchScratch matchScratch_;
  SurplusScratch surplusScratch_;
  std::vector<StereoPoint> currentPoints_, previousPoints_;
  std::vector<PointHistory> historyById_;
  std::vector<std::int32_t> spareById_;  ///< one entry fewer than ids; carried, not read
};

}  // namespace algorithm
