// How lively a body moves just now.
#pragma once

#include <alg_kit/bodies/BodyModels.h>
#include <alg_kit/bodies/BodyState.h>

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
  using PerModel = std::array<double, kBodyModels>;
  /// One axis under every model: place, rate and its change, with their covariance. The change of a
  /// rotation's rate is not reckoned with.
  struct Axis {
    PerModel p{}, v{}, a{}, pp{}, pv{}, pa{}, vv{}, va{}, aa{};
  };

  BodyModelSet set_;
  PerModel jerkRoot_, turnRoot_;
  std::array<Axis, 6> axes_;
  std::array<PerModel, 2> probability_;  ///< of position, of rotation
};

}  // namespace bodies
