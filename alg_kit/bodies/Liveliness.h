// How lively a body moves just now.
#pragma once

#include <alg_kit/bodies/BodyModels.h>
#include <alg_kit/bodies/BodyState.h>
#include <alg_kit/estimate/Lanes.h>

#include <array>

namespace bodies {

/// Which way of moving foretells best what is seen: multiple models (Magill, IEEE Trans. Automatic
/// Control 10, 1965), with probabilities that forget as those of a Markov chain. Each model runs by
/// itself, since the one filter that its numbers are for runs so too; and on one number each, the
/// axes of position and rotation by themselves, with models shared by the three of a kind: a bank
/// of filters of the whole state would cost several times as much. Nothing is allocated.
class Liveliness {
 public:
  explicit Liveliness(const BodyModelSet& set);

  /// @param variance  of `place`
  void start(const Vector6d& place, const Vector6d& variance);
  void predict(const estimate::Step& step);
  /// @param place     position and turn, measured; any origin that stays
  void correct(const Vector6d& place, const Vector6d& variance);

  /// Of the models' spectral densities the means that leave the errors' mean as it is: a variance
  /// grows with the density's sixth root where jerk drives it, with the fourth where an angular
  /// acceleration does.
  BodyDrive drive() const;

 private:
  using Lanes = estimate::Lanes;  ///< a number under every model
  static_assert(kBodyModels == estimate::kModels, "Lanes has the estimator's number of models");

  /// One axis of the position: place, rate and its change, with their covariance.
  struct Line {
    Lanes p, v, a, pp, pv, pa, vv, va, aa;

    void predict(const estimate::Step& step, Lanes jerk);
    void correct(Lanes gain, Lanes pull);
  };
  /// One axis of the rotation: the change of its rate is not reckoned with.
  struct Turn {
    Lanes p, v, pp, pv, vv;

    void predict(double seconds, Lanes drive);
    void correct(Lanes gain, Lanes pull);
  };
  /// How well the axes of a kind were foretold.
  struct Fit {
    Lanes distance2 = 0, spread = 1;
  };

  template <class Axis>
  static void correct(Axis& axis, double place, double variance, Lanes tremor2, Fit& fit);
  static void weigh(Lanes& probability, const Fit& fit);

  BodyModelSet set_;
  Lanes jerk_, turn_, tremor2_, turnTremor2_;  ///< of `set_`
  Lanes jerkRoot_, turnRoot_;
  std::array<Line, 3> lines_;
  std::array<Turn, 3> turns_;
  Lanes ofPosition_, ofRotation_;  ///< probabilities
};

}  // namespace bodies
