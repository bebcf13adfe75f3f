// A point's motion under several models at once: from "still" to "fast".
#pragma once

#include <alg_kit/estimate/MotionModels.h>
#include <alg_kit/estimate/MotionState.h>

#include <array>
#include <optional>

namespace estimate {

/// The mean and the covariance of a mixture of Gaussians.
MotionState mixtureOf(const std::array<MotionState, kModels>& models,
                      const std::array<double, kModels>& probability);

/// Interacting multiple models (Blom and Bar-Shalom, IEEE Trans. Automatic Control 33, 1988). A
/// model stays until, at the rate 1 / dwell, it is drawn anew from its share; so mixing needs the
/// common mixture only, and the work grows with the number of models, not with its square. Nothing
/// is allocated.
class InteractingModels {
 public:
  explicit InteractingModels(const ModelSet& set = {}) : set_(set) {}

  /// All models at this state, with their shares as probabilities.
  void start(const MotionState& state);

  void predict(double seconds);

  /// Corrects if the distance of the model that fits best is within the gate; else nothing changes.
  /// @return that model's squared distance
  double correct(const PositionInformation& information, double gate2);

  /// Adds to the position's covariance.
  void widen(const Eigen::Matrix3d& covariance);

  /// The marker: the mixture's mean and covariance, the tremor's displacement included.
  MotionState marker() const;

  /// The marker `seconds` on, without a change of model.
  MotionState markerAfter(double seconds) const;

  /// The mixture's mean position.
  Eigen::Vector3d position() const;

  const std::array<MotionState, kModels>& models() const { return models_; }
  const std::array<double, kModels>& probabilities() const { return probability_; }
  const ModelSet& set() const { return set_; }

 private:
  ModelSet set_;
  std::array<MotionState, kModels> models_;
  std::array<double, kModels> probability_{};
  MotionState mixture_;
  bool mixed_ = false;  ///< `mixture_` is of this moment
};

}  // namespace estimate
