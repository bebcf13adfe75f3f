#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// A body in some frame: p = position + orientation * p_body. Millimetres.
struct Pose {
  Eigen::Vector3d position = Eigen::Vector3d::Zero();
  Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();
};

struct TimedPose {
  double time = 0;  ///< seconds
  Pose pose;
};

/// A measured motion: poses at strictly rising times, interpolated in between.
class Trajectory {
 public:
  /// @throws std::invalid_argument without poses or with times that do not rise
  explicit Trajectory(std::vector<TimedPose> poses);

  /// Reads lines of `t tx ty tz qx qy qz qw` (seconds, metres; '#' starts a comment). Metres become
  /// millimetres. Measured motions repeat a stamp now and then: the later pose is left out.
  /// @throws FileError for a line that is none or whose time runs backwards, with its number
  static Trajectory readTum(const std::string& path);

  /// Poses that were left out because their stamp was that of the pose before.
  std::int64_t repeatedStamps() const { return repeatedStamps_; }

  /// The pose `seconds` after the first one: position linear, orientation by slerp. Before the
  /// first and after the last pose the body stands still.
  Pose at(double seconds) const;

  double duration() const { return poses_.back().time - poses_.front().time; }  ///< seconds
  const std::vector<TimedPose>& poses() const { return poses_; }

  /// The part that begins `from` seconds after the first pose and lasts `seconds`.
  Trajectory part(double from, double seconds) const;

  /// Moves a motion measured in a room (z up) in front of the cameras: into the right camera's
  /// frame, with the mean position on the optical axis at `distance` mm. The room's x becomes the
  /// camera's x, its y the depth, its z the camera's -y.
  Trajectory placedInFront(double distance) const;

 private:
  std::vector<TimedPose> poses_;
  std::int64_t repeatedStamps_ = 0;
};

}  // namespace sim
