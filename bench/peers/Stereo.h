#pragma once

#include <bench/peers/Blobs.h>

#include <alg_factory/stereo3d/StereoCalibration.h>

#include <deque>

namespace peers {

struct Point {
  cv::Vec3d position;  ///< right camera's frame
  int id = 0;
};

/// Blobs of both cameras in, at most one smoothed 3D point per id out.
class Stereo {
 public:
  explicit Stereo(const algorithm::StereoCalibration& calibration);

  std::vector<Point> process(CameraBlobs blobs);

 private:
  void undistortOntoLines(std::vector<Blob>& blobs, const cv::Matx33d& K, const cv::Vec4d& D,
                          int whichImage) const;
  cv::Vec3d midpoint(const Blob& left, const Blob& right) const;
  void matchId(std::vector<Blob> left, std::vector<Blob> right, std::vector<Point>& points) const;
  void filter(std::vector<Point>& points) const;
  void smooth(std::vector<Point>& points);

  cv::Matx33d leftK_, rightK_, fundamental_, leftRay_, rightRay_;
  cv::Vec4d leftD_, rightD_;
  cv::Vec3d translation_;
  std::vector<Point> previous_;
  std::vector<std::deque<cv::Vec3d>> history_;
};

}  // namespace peers
