// What the estimator answers: plain records.
#pragma once

#include <cstdint>

namespace estimate {

enum class Source {
  kNone,       ///< nothing is known of the object
  kMeasured,   ///< seen in the latest frame, by one camera at least
  kBridged,    ///< not seen in the latest frame: moved on from earlier ones
  kPredicted,  ///< a moment after the latest frame
};

/// For programs: "measured".
const char* nameOf(Source source);

/// Where an object is and how well that is known. Axes as delivered: the right camera's frame with
/// y and z negated (x right, y up, z towards the viewer). Unit: that of the calibration's
/// translation, mm as a rule.
struct Estimate {
  Source source = Source::kNone;  ///< the rest holds unless this is kNone
  double time = 0;                ///< seconds since the first frame
  double age = 0;                 ///< seconds from the latest sighting to `time`
  int cameras = 0;                ///< that saw the object in the latest frame
  double position[3] = {};        ///< of the two-point object: the middle
  double velocity[3] = {};        ///< per second
  double acceleration[3] = {};    ///< per second squared
  double covariance[9][9] = {};   ///< of position, velocity, acceleration
  double noise = 0;               ///< px, the blob noise that was assumed

  /// The two-point object: the unit vector from its first marker to its second. The first is the
  /// one with the smaller x when the object was first seen; after that it is followed.
  bool hasDirection = false;
  double direction[3] = {};
  double directionDeviation = 0;  ///< radians, standard deviation across the direction
  double halfLength = 0;          ///< from the middle to a marker
};

/// Why a frame's blobs of an object were not used.
enum class Refusal {
  kNone,        ///< they were used
  kNotSeen,     ///< there was none
  kOneCamera,   ///< one camera alone cannot begin an estimate, nor end 0.1 s without light
  kRaysApart,   ///< the two cameras' rays miss each other by too much
  kOutOfRange,  ///< where they meet is too near or too far
  kOffTrack,    ///< too far from where the object must be
  kBadPacket,   ///< no start word, or a wrong check byte
  kLate,        ///< the frame came after a later one
};
constexpr int kRefusals = static_cast<int>(Refusal::kLate) + 1;

/// For people and programs: "off track".
const char* nameOf(Refusal refusal);

/// How the latest frame ended for an object.
struct Verdict {
  Refusal refusal = Refusal::kNotSeen;
  double value = 0;  ///< what decided: a squared distance in standard deviations, or mm ...
  double limit = 0;  ///< ... and what it was held against
  std::int64_t counts[kRefusals] = {};  ///< of frames since the start, by refusal
};

}  // namespace estimate
