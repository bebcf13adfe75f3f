#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/estimate/Estimator.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace estimate {

/// Fixed-interval smoothing: every moment of a recording by all that came before and after it. Two
/// estimators meet, one from the beginning and one from the end (Fraser and Potter, IEEE Trans.
/// Automatic Control 14, 1969; for one model the result is that of Rauch, Tung and Striebel), per
/// motion model (Helmick, Blair and Hoffman, IEEE Trans. Information Theory 41, 1995). Sightings
/// that do not fit what surrounds them are left out.
class Smoother {
 public:
  /// As Estimator. Without a noise it is that of the whole recording.
  /// @throws std::invalid_argument as Estimator
  Smoother(int productType, const algorithm::StereoCalibration& calibration,
           const EstimatorOptions& options = {});
  ~Smoother();
  Smoother(const Smoother&) = delete;
  Smoother& operator=(const Smoother&) = delete;

  /// The recording's payloads in order, as for Estimator::feed; they are copied.
  /// @return the number of the frame, from 0, that the payload is; none if it is no frame
  std::optional<std::size_t> add(int streamType, const unsigned char* payload, int length,
                                 std::optional<double> arrival = std::nullopt);

  /// Called for every object and frame in which something is known of it: object by object, its
  /// frames from the last to the first.
  using Taker = std::function<void(int object, std::size_t frame, const Estimate& estimate)>;
  void run(const Taker& take);

  double noise() const;  ///< px, what `run` assumed

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace estimate
