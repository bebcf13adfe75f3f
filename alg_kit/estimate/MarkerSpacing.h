// How far apart the two-point object's markers are.
#pragma once

#include <alg_kit/estimate/InteractingModels.h>

#include <Eigen/Core>
#include <optional>

namespace estimate {

/// Half the distance between two markers of one rigid object, squared: what both cameras saw of
/// both markers tells it, better from frame to frame, and where one camera is blind it tells the
/// direction along the other's rays. Squared, since there the mean of noisy offsets is off by their
/// covariance's trace and nothing else.
class MarkerSpacing {
 public:
  void clear() { *this = {}; }

  /// @param offset    from the middle to a marker, with the covariance of the measurement
  /// @param expected  the offset as it was known before
  void add(const PositionInformation& offset, const Eigen::Vector3d& expected);

  /// What the spacing says of an offset: nothing where that is known better along itself.
  std::optional<PositionInformation> informationAt(const InteractingModels::Place& offset) const;

 private:
  double weight_ = 0;  ///< mm^-4, of the mean
  double sum_ = 0;     ///< weighted, mm^-2
};

}  // namespace estimate
