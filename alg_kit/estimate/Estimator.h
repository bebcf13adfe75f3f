#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/estimate/MotionModels.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace estimate {

constexpr double kFarthestAhead = 0.1;  ///< seconds, of a prediction

struct EstimatorOptions {
  /// Standard deviation of a blob centre's x and of its y, px. 0 = from the light itself: by what
  /// the two cameras' rays miss each other.
  double noise = 0;
  double frameRate = 90;  ///< Hz, of packets without a stamp
  double bridge = 1;      ///< seconds without both cameras until an object is no longer answered
  ModelSet models;        ///< as they are, they suit hands and machines; nothing needs tuning
};

/// Follows every object by the light of both cameras: feed it the device's packets as they come,
/// ask it at any time. docs/estimation.md has the model and what it promises.
///
/// One thread feeds; any thread may ask meanwhile (a copy is taken under a short lock). Storage is
/// fixed: nothing is allocated after the constructor.
class Estimator {
 public:
  /// @throws std::invalid_argument for a product type other than 0, 1 and 2, a calibration without
  ///         focal lengths or with numbers that are none, and options out of range
  Estimator(int productType, const algorithm::StereoCalibration& calibration,
            const EstimatorOptions& options = {});
  ~Estimator();
  Estimator(const Estimator&) = delete;
  Estimator& operator=(const Estimator&) = delete;

  /// A payload of InputStream; others than of the stream types 0 and 2 (device packets) are
  /// passed over. Any bytes are safe.
  /// @param arrival  seconds on the host's clock when a packet without stamp came; without it,
  ///                 packets are one frame apart
  void feed(int streamType, const unsigned char* payload, int length,
            std::optional<double> arrival = std::nullopt);

  /// The object now, that is at the latest frame.
  Estimate at(int object) const { return ahead(object, 0); }

  /// The object `seconds` after the latest frame; kNone for less than 0 or more than
  /// kFarthestAhead.
  Estimate ahead(int object, double seconds) const;

  Verdict verdict(int object) const;

  double now() const;    ///< seconds from the first frame to the latest
  double noise() const;  ///< px, what is assumed now

  int objectCount() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace estimate
