// A constant-velocity Kalman filter of one object, written with either library.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/video/tracking.hpp>

#include <Eigen/Dense>

namespace peers {

constexpr double kTimeStep = 1.0 / 90;
constexpr double kProcessNoise = 1e-5;
constexpr double kMeasurementNoise = 1e-6;

class CvPositionFilter {
 public:
  CvPositionFilter();
  void start(const cv::Vec3d& position);
  void update(const cv::Vec3d& position);
  cv::Vec3d position() const;

 private:
  cv::KalmanFilter filter_;
};

class EigenPositionFilter {
 public:
  EigenPositionFilter();
  void start(const cv::Vec3d& position);
  void update(const cv::Vec3d& position);
  cv::Vec3d position() const { return {state_[0], state_[1], state_[2]}; }

  EIGEN_MAKE_ALIGNED_OPERATOR_NEW

 private:
  using Matrix6 = Eigen::Matrix<double, 6, 6>;
  using Matrix36 = Eigen::Matrix<double, 3, 6>;

  Matrix6 transition_ = Matrix6::Identity();
  Matrix36 observation_ = Matrix36::Identity();
  Matrix6 processNoise_ = kProcessNoise * Matrix6::Identity();
  Eigen::Matrix3d measurementNoise_ = kMeasurementNoise * Eigen::Matrix3d::Identity();
  Matrix6 covariance_ = Matrix6::Zero();
  Eigen::Matrix<double, 6, 1> state_ = Eigen::Matrix<double, 6, 1>::Zero();
};

}  // namespace peers
