#include <alg_factory/filter/ConstantVelocityModel.h>

namespace algorithm {

ConstantVelocityModel ConstantVelocityModel::build(int filterMode) {
  using Matrix = KalmanFilter::Matrix;
  ConstantVelocityModel model;
  model.transition = Matrix::Identity(6, 6);
  model.transition.topRightCorner(3, 3) = kTimeStep * Matrix::Identity(3, 3);
  model.observation = Matrix::Zero(3, 6);
  model.observation.leftCols(3) = Matrix::Identity(3, 3);
  model.processNoise = 1e-5 * Matrix::Identity(6, 6);
  model.measurementNoise = (filterMode == kFilterSmooth ? 1e-4 : 1e-6) * Matrix::Identity(3, 3);
  model.initialCovariance = Matrix::Zero(6, 6);
  return model;
}

KalmanFilter ConstantVelocityModel::makeFilter() const {
  return KalmanFilter(kTimeStep, transition, observation, processNoise, measurementNoise,
                      initialCovariance);
}

}  // namespace algorithm
