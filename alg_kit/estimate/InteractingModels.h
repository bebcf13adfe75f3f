// A point's motion under several models at once: from "still" to "fast".
#pragma once

#include <alg_kit/estimate/Lanes.h>
#include <alg_kit/estimate/MotionState.h>

#include <array>

namespace estimate {

/// The mean and the covariance of a mixture of Gaussians.
MotionState mixtureOf(const MotionStateOf<Lanes>& models, const Lanes& probability);

/// Interacting multiple models (Blom and Bar-Shalom, IEEE Trans. Automatic Control 33, 1988). A
/// model stays until, at the rate 1 / dwell, it is drawn anew from its share; so mixing needs the
/// common mixture only, and the work grows with the number of models, not with its square. Nothing
/// is allocated.
class InteractingModels {
 public:
  explicit InteractingModels(const ModelSet& set = {});

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

  /// The marker's position and its covariance alone.
  struct Place {
    Eigen::Vector3d p = Eigen::Vector3d::Zero();
    Eigen::Matrix3d pp = Eigen::Matrix3d::Zero();
  };
  Place place() const;

  /// The same under the model that is least sure of it.
  Place widest() const;

  /// What of the marker is not that of the motion.
  struct Displaced {
    Eigen::Vector3d p = Eigen::Vector3d::Zero();
    Eigen::Matrix3d pp = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d pv = Eigen::Matrix3d::Zero();
    Eigen::Matrix3d pa = Eigen::Matrix3d::Zero();
  };

  const MotionStateOf<Lanes>& models() const { return models_; }
  std::array<double, kModels> probabilities() const { return probability_.all(); }
  const ModelSet& set() const { return set_; }
  const Lanes& tremor2() const { return tremor2_; }  ///< of `set`, mm^2
  const Lanes& shares() const { return share_; }     ///< of `set`

 private:
  ModelSet set_;
  Lanes jerk_, tremor2_, share_;  ///< those of `set_`
  MotionStateOf<Lanes> models_;
  Lanes probability_ = 0;
  bool corrected_ = false;  ///< at this moment; then:
  MotionState motion_;      ///< the mixture of `models_`
  Displaced marker_;
  Step step_;         ///< the latest, which is mostly the next one's too
  double stays_ = 1;  ///< in it, the share of a model that is not drawn anew
};

}  // namespace estimate
