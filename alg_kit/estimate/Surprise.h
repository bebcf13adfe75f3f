// By how much sightings miss what is foretold of them.
#pragma once

namespace estimate {

/// A running mean over the latest sightings of their squared distances from what was foretold, in
/// stated variances. Motion that no model has is foretold worse than stated; by this factor the
/// stated variances are too small.
class Surprise {
 public:
  /// @param distance2  as SmoothedFrame
  /// @param numbers    of the sighting: 2 per camera. Of a pair's four one says how far its rays
  /// miss
  ///                   each other: that is noise, whatever the motion, and left out
  void add(double distance2, int numbers);

  /// At least 1: where sightings are nearer than stated, the models allow for more than happens.
  double factor() const;

 private:
  double squares_ = 3, numbers_ = 3;  ///< means: of distances, and of what was expected of them
  int count_ = 0;
};

}  // namespace estimate
