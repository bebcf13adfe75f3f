#include <bench/peers/PositionFilters.h>

namespace peers {

CvPositionFilter::CvPositionFilter() : filter_(6, 3, 0, CV_64F) {
  cv::setIdentity(filter_.transitionMatrix);
  for (int i = 0; i < 3; ++i) filter_.transitionMatrix.at<double>(i, i + 3) = kTimeStep;
  cv::setIdentity(filter_.measurementMatrix);
  cv::setIdentity(filter_.processNoiseCov, cv::Scalar::all(kProcessNoise));
  cv::setIdentity(filter_.measurementNoiseCov, cv::Scalar::all(kMeasurementNoise));
}

void CvPositionFilter::start(const cv::Vec3d& position) {
  filter_.statePost.setTo(0);
  for (int i = 0; i < 3; ++i) filter_.statePost.at<double>(i) = position[i];
  filter_.errorCovPost.setTo(0);
}

void CvPositionFilter::update(const cv::Vec3d& position) {
  filter_.predict();
  filter_.correct(cv::Mat(position, false));
}

cv::Vec3d CvPositionFilter::position() const {
  const cv::Mat& state = filter_.statePost;
  return {state.at<double>(0), state.at<double>(1), state.at<double>(2)};
}

EigenPositionFilter::EigenPositionFilter() {
  transition_.topRightCorner<3, 3>() = kTimeStep * Eigen::Matrix3d::Identity();
}

void EigenPositionFilter::start(const cv::Vec3d& position) {
  state_ << position[0], position[1], position[2], 0, 0, 0;
  covariance_.setZero();
}

void EigenPositionFilter::update(const cv::Vec3d& position) {
  const Eigen::Vector3d measured(position[0], position[1], position[2]);
  state_ = transition_ * state_;
  covariance_ = transition_ * covariance_ * transition_.transpose() + processNoise_;
  const Eigen::Matrix3d innovation =
      observation_ * covariance_ * observation_.transpose() + measurementNoise_;
  const Eigen::Matrix<double, 6, 3> gain =
      covariance_ * observation_.transpose() * innovation.inverse();
  state_ += gain * (measured - observation_ * state_);
  covariance_ = (Matrix6::Identity() - gain * observation_) * covariance_;
}

}  // namespace peers
