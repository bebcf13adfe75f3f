#include <alg_factory/filter/KalmanFilter.h>

#include <algorithm>
#include <utility>

#include <Eigen/LU>

namespace algorithm {

KalmanFilter::KalmanFilter(double timeStep, const Matrix& transition, const Matrix& observation,
                           const Matrix& processNoise, const Matrix& measurementNoise,
                           const Matrix& covariance)
    : transition_(transition),
      observation_(observation),
      processNoise_(processNoise),
      measurementNoise_(measurementNoise),
      initialCovariance_(covariance),
      measurementDim_(static_cast<std::int32_t>(observation.rows())),
      stateDim_(static_cast<std::int32_t>(transition.rows())),
      timeStep_(timeStep),
      identity_(Matrix::Identity(stateDim_, stateDim_)),
      stateEstimate_(Vector::Zero(stateDim_)),
      predictedState_(Vector::Zero(stateDim_)) {}

void KalmanFilter::init() {
  init(0.0, Vector());
}

void KalmanFilter::init(double startTime, const Vector& x0) {
  if (x0.size() == stateEstimate_.size()) {
    stateEstimate_ = x0;
  } else {
    const Eigen::Index given = std::min(x0.size(), stateEstimate_.size());
    stateEstimate_.setZero();
    stateEstimate_.head(given) = x0.head(given);
  }
  covariance_ = initialCovariance_;
  startTime_ = startTime;
  time_ = startTime;
  initialized_ = true;
}

void KalmanFilter::update(const Vector& y) {
  if (!initialized_) init();

  predictedState_ = transition_ * stateEstimate_;
  covariance_ = (transition_ * covariance_) * transition_.transpose() + processNoise_;
  gain_ = (covariance_ * observation_.transpose()) *
          (observation_ * covariance_ * observation_.transpose() + measurementNoise_).inverse();
  predictedState_ += gain_ * (y - observation_ * predictedState_);
  covariance_ = (identity_ - gain_ * observation_) * covariance_;
  stateEstimate_ = predictedState_;
  time_ += timeStep_;
}

void KalmanFilter::update(const Vector& y, double timeStep, Matrix transition) {
  transition_ = std::move(transition);
  timeStep_ = timeStep;
  update(y);
}

}  // namespace algorithm
