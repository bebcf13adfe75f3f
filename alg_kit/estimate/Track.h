// The track of one object: what its frames say of its motion.
#pragma once

#include <alg_kit/estimate/Candidates.h>
#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/estimate/InteractingModels.h>
#include <alg_kit/estimate/MarkerSpacing.h>
#include <alg_kit/estimate/PixelEquations.h>

namespace estimate {

constexpr double kGate2 = 36;  ///< of 4 or 2 numbers: beyond 6 standard deviations

/// What all tracks share.
struct TrackSettings {
  ModelSet models;
  double nearest = 10;     ///< mm, depth of an object
  double farthest = 4500;  ///< mm
  double bridge = 1;       ///< seconds without both cameras until a track ends
  double noise = 0.1;      ///< px
};

/// How a frame ended.
struct Outcome {
  Outcome(Refusal why = Refusal::kNone, double decided = 0, double against = 0, int by = 0)
      : refusal(why), value(decided), limit(against), cameras(by) {}
  Refusal refusal;
  double value;  ///< as Verdict
  double limit;
  int cameras;  ///< that saw what was used
  /// By how much the rays of a pair miss each other, squared, in px^2: the blobs' noise and nothing
  /// else. Below 0 = no pair.
  double raysMiss2 = -1;
  Sighting used[2];  ///< by marker
  /// One camera's light was used, although the pair agrees on another place.
  bool pairElsewhere = false;
  bool began = false;  ///< the track begins (anew) with this frame
};

/// A snapshot, from which answers are made.
struct TrackState {
  explicit TrackState(const ModelSet& models) : centre(models), offset(models) {}
  bool alive = false;
  /// Seen where it was expected: one frame's light alone may be two reflections.
  bool confirmed = false;
  double lastSeen = 0;  ///< seconds
  double lastPair = 0;  ///< seconds, by both cameras
  int cameras = 0;      ///< in the latest frame
  InteractingModels centre;
  bool hasOffset = false;    ///< the two-point object
  bool leaning = false;      ///< the centre rests on one marker and the offset alone
  InteractingModels offset;  ///< from the middle to the second marker
};

/// Where a track begins: a position, and any motion that a hand can have.
MotionState firstState(const Eigen::Vector3d& position, const Eigen::Matrix3d& covariance);

class Track {
 public:
  Track(const PixelEquations& equations, const TrackSettings& settings, bool twoPoint)
      : equations_(equations), settings_(settings), twoPoint_(twoPoint), state_(settings.models) {}

  /// A frame `elapsed` seconds after the one before.
  Outcome feed(double now, double elapsed, const ObjectCandidates& candidates);

  /// Time passes without a frame that could be used.
  void pass(double now, double elapsed);

  void end();
  const TrackState& state() const { return state_; }

 private:
  Outcome followOne(const ObjectCandidates& candidates);
  Outcome followTwo(const ObjectCandidates& candidates);
  Outcome correctCentre(const Sighting& sighting);

  struct LightOfTwo;
  void find(LightOfTwo& light, const ObjectCandidates& candidates) const;
  Outcome admit(const LightOfTwo& light, const InteractingModels::Place& centre,
                const InteractingModels::Place& offset) const;
  void correctByAll(const LightOfTwo& light, Outcome& outcome);
  void correctByRest(const LightOfTwo& light, Outcome& outcome);
  static bool corrected(InteractingModels& models, const PositionInformation& information,
                        Outcome& outcome);

  bool offsetIsKnown() const;
  bool isBlurred() const;
  Outcome begin(double now, const ObjectCandidates& candidates);
  std::optional<PositionInformation> informationAt(const Sighting& sighting,
                                                   const Eigen::Vector3d& at) const;
  void straighten(std::optional<PositionInformation>& information, const Sighting& sighting,
                  const Eigen::Vector3d& at) const;

  const PixelEquations& equations_;
  const TrackSettings& settings_;
  const bool twoPoint_;
  TrackState state_;
  MarkerSpacing spacing_;                     ///< of the two-point object
  InteractingModels::Place centre_, offset_;  ///< expected in this frame
  int accepted_ = 0;                          ///< frames used since the track began
  bool blind_ = false;  ///< the place is too uncertain to trust one camera's light
  int refused_ = 0;     ///< frames in a row with a pair that fits no track
};

}  // namespace estimate
