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
      predictedState_(Vector::Zero(stateDim_)),
      axis_(AxisFilter::recognise(transition, observation, processNoise, measurementNoise,
                                  covariance)) {}

void KalmanFilter::init() {
  init(0.0, Vector());
}

void KalmanFilter::init(double startTime, const VectorRef& x0) {
  if (x0.size() == stateEstimate_.size()) {
    stateEstimate_ = x0;
  } else {
    const Eigen::Index given = std::min(x0.size(), stateEstimate_.size());
    // In this order: x0 may be a part of this very state.
    stateEstimate_.head(given) = x0.head(given);
    stateEstimate_.tail(stateEstimate_.size() - given).setZero();
  }
  if (axis_) {
    axis_->start();
  } else {
    covariance_ = initialCovariance_;
  }
  startTime_ = startTime;
  time_ = startTime;
  initialized_ = true;
}

void KalmanFilter::update(const VectorRef& y) {
  if (!initialized_) init();
  if (!axis_) {
    updateDense(y);
  } else {
    axis_->advanceCovariance();
    if (axis_->advanceState(y.data(), stateEstimate_.data())) {
      std::copy_n(stateEstimate_.data(), AxisFilter::kStates, predictedState_.data());
    } else {
      updateAllAxes(y);
    }
  }
  time_ += timeStep_;
}

void KalmanFilter::updateDense(const VectorRef& y) {
  predictedState_ = transition_ * stateEstimate_;
  covariance_ = (transition_ * covariance_) * transition_.transpose() + processNoise_;
  gain_ = (covariance_ * observation_.transpose()) *
          (observation_ * covariance_ * observation_.transpose() + measurementNoise_).inverse();
  predictedState_ += gain_ * (y - observation_ * predictedState_);
  covariance_ = (identity_ - gain_ * observation_) * covariance_;
  stateEstimate_ = predictedState_;
}

void KalmanFilter::updateAllAxes(const VectorRef& y) {
  predictedState_ = transition_ * stateEstimate_;
  predictedState_ += gain() * (y - observation_ * predictedState_);
  stateEstimate_ = predictedState_;
}

void KalmanFilter::update(const VectorRef& y, double timeStep, Matrix transition) {
  // The new transition need not be of the recognised kind: go on densely from here.
  covariance_ = covariance();
  axis_.reset();
  transition_ = std::move(transition);
  timeStep_ = timeStep;
  update(y);
}

KalmanFilter::Matrix KalmanFilter::covariance() const {
  return axis_ ? axis_->covariance() : covariance_;
}

KalmanFilter::Matrix KalmanFilter::gain() const {
  return axis_ ? axis_->gain() : gain_;
}

}  // namespace algorithm
