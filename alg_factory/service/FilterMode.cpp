#include <utility>

#include <alg_factory/service/StereoService.h>

namespace algorithm {

bool StereoService::setFilterMode(int parameter, int mode, void* /*reserved*/) {
  if (parameter != 0) return false;
  if (mode == kFilterOff) {
    filterMode_ = mode;
    return steady_.setFilterMode(mode);
  }

  // Everything that can run out of memory comes first: the mode changes only with its filters.
  ConstantVelocityModel model = ConstantVelocityModel::build(mode);
  std::array<KalmanFilter, kHeads> heads;
  std::array<KalmanFilter, kMarkers> markers;
  for (KalmanFilter& filter : heads) filter = model.makeFilter();
  for (KalmanFilter& filter : markers) filter = model.makeFilter();

  filterMode_ = mode;
  steady_.setFilterMode(mode);
  model_ = std::move(model);
  headFilters_ = std::move(heads);
  markerFilters_ = std::move(markers);
  // Only the head filters start again at once; a marker filter starts again when its object has
  // been absent for one block (kept: hosts switch modes in mid-stream).
  heads_.previousIds.fill(kNoObject);
  return true;
}

}  // namespace algorithm
