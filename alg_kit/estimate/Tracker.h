// The tracks of all objects: payloads in.
#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_kit/estimate/BlobNoise.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/estimate/FrameClock.h>
#include <alg_kit/estimate/Track.h>

#include <array>
#include <vector>

namespace estimate {

/// What Estimator and Smoother have in common. For one thread.
class Tracker {
 public:
  /// @throws std::invalid_argument as Estimator
  Tracker(int productType, const algorithm::StereoCalibration& calibration,
          const EstimatorOptions& options);
  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;

  /// As Estimator::feed.
  /// @return false if the payload is no frame: nothing has changed
  bool feed(int streamType, const unsigned char* payload, int length,
            std::optional<double> arrival);

  int objectCount() const { return static_cast<int>(tracks_.size()); }
  const TrackState& track(int object) const {
    return tracks_[static_cast<std::size_t>(object)].state();
  }
  /// Of the latest frame.
  const Outcome& outcome(int object) const { return outcomes_[static_cast<std::size_t>(object)]; }
  const FrameClock::Tick& tick() const { return tick_; }
  double now() const { return clock_.now(); }       ///< seconds since the first frame
  double noise() const { return settings_.noise; }  ///< px, for the next frame

  const PixelEquations& equations() const { return equations_; }
  const TrackSettings& settings() const { return settings_; }

 private:
  FrameClock::Tick tickOf(int streamType, const unsigned char* payload,
                          std::optional<double> arrival);
  bool readCandidates(const unsigned char* packet, std::size_t length);

  const bool noiseGiven_;
  const PixelEquations equations_;
  TrackSettings settings_;
  FrameClock clock_;
  FrameClock::Tick tick_;
  BlobNoise blobNoise_;
  PacketBlobs packet_;
  std::array<ObjectCandidates, algorithm::kMaxObjects> candidates_;
  std::vector<Track> tracks_;
  std::array<Outcome, algorithm::kMaxObjects> outcomes_{};
};

}  // namespace estimate
