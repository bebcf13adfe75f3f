// Where a body is over time, by the light of whichever markers whichever cameras saw.
#pragma once

#include <alg_kit/bodies/BodyPose.h>
#include <alg_kit/bodies/BodyState.h>
#include <alg_kit/bodies/Liveliness.h>
#include <alg_kit/estimate/Estimate.h>

#include <array>
#include <cstdint>
#include <optional>

namespace bodies {

constexpr double kFarthestAhead = 0.1;  ///< seconds, of a prediction

struct BodyFilterOptions {
  double bridge = 1;    ///< seconds without a marker until the body is no longer answered
  BodyModelSet models;  ///< as they are, they suit hands and machines; nothing needs tuning
};

/// A body at a moment. Camera frame, as BodyPose; `delivered` gives the answers' axes.
struct TrackedPose {
  estimate::Source source = estimate::Source::kNone;  ///< the rest holds unless this is kNone
  double age = 0;                                     ///< seconds since a marker was seen
  BodyPose pose;  ///< of the body's origin; markers, residual and ends are the latest frame's
  /// What a marker's place in its images was off by when `ends` was decided, in squared standard
  /// deviations, by place in the body; kMarkerMost is the limit.
  std::array<double, kMostMarkers> misfits{};
  Eigen::Vector3d velocity = Eigen::Vector3d::Zero();  ///< of the body's origin, mm/s
  Eigen::Vector3d turnRate = Eigen::Vector3d::Zero();  ///< angular velocity, rad/s
  Matrix6d rateCovariance = Matrix6d::Zero();          ///< of both
};

TrackedPose delivered(const TrackedPose& pose);

/// A filter of position, velocity, acceleration, orientation and angular velocity: error states on
/// the rigid motions, measured in pixels. It follows the mean of the body's markers and answers for
/// the body's origin. docs/bodies.md has the model and what it promises. For one thread; nothing is
/// allocated after the constructor.
class BodyFilter {
 public:
  explicit BodyFilter(const Body& body, const BodyFilterOptions& options = {});

  /// The next frame, `frame.elapsed` after the one before.
  /// @param noise  px, standard deviation of a blob centre's x and of its y
  void feed(const BodyFrame& frame, const estimate::PixelEquations& cameras, double noise);

  /// Time passes without a frame that could be used.
  void pass(double elapsed);

  /// Forgets the body: it begins anew where it is seen next.
  void end() { step_.alive = false; }

  TrackedPose now() const;

  /// @param seconds  after the latest frame; kNone for less than 0 or more than kFarthestAhead
  TrackedPose ahead(double seconds) const;

  /// What the smoother goes back over: the latest frame's step.
  struct Step {
    bool alive = false;
    bool began = false;  ///< with this frame: nothing led here
    ErrorStep by;        ///< from the frame before
    BodyState before;    ///< its own sightings
    BodyState after;     ///< them
    RigidMotion seen;    ///< the markers' mean, tremor included
    Matrix6d seenCovariance = Matrix6d::Zero();
    // The covariance of `after` with `seen` is that of `before` with its pose, less
    // taken seenTaken^T but where turns were left open.
    StateByPose taken = StateByPose::Zero();
    Matrix6d seenTaken = Matrix6d::Zero();
    Eigen::Matrix3d open = Eigen::Matrix3d::Zero();
  };
  const Step& step() const { return step_; }

  /// The answer for a state of the markers' mean.
  TrackedPose answerOf(const BodyState& state, const RigidMotion& seen,
                       const Matrix6d& seenCovariance, estimate::Source source) const;

 private:
  using Flags = std::array<bool, kMostMarkers>;
  /// A frame's markers, linearised, and what they make of the state.
  struct Look {
    Vector6d at = Vector6d::Zero();  ///< where, from the prediction
    std::array<Eigen::Vector3d, kMostMarkers> arms;
    std::array<estimate::PositionInformation, kMostMarkers> markers;
    Flags seen{}, taken{};
    PoseInformation information;  ///< of the taken ones, as if linearised at the prediction
    RootedInformation rooted;     ///< the same
    Eigen::Matrix3d open;         ///< turns that they do not tell: projector
    PoseUpdate update;
  };
  struct Sights {
    const BodyFrame& frame;
    const estimate::PixelEquations& cameras;
    double noise;
  };

  void follow(const Sights& sights);
  void advance(double elapsed);
  BodyDrive driveAfter(double loose) const;
  bool enough(const Flags& markers) const;
  bool tell(const Flags& markers) const;
  Matrix6d predict();
  void lookAt(const Sights& sights, const Vector6d& at);
  void takeIn();
  void guessDrive();
  void update(const Sights& sights, const Matrix6d& prior);
  double misfitOf(std::size_t marker) const;
  bool fits() const;
  void takeBack(const Sights& sights, const Matrix6d& prior);
  bool settle(const Sights& sights, const Matrix6d& prior);
  bool leaveOut(const Sights& sights, const Matrix6d& prior);
  void keep(const Sights& sights);
  void keepUnseen(const Matrix6d& prior);
  void begin(const Sights& sights);
  void startAt(const BodyPose& pose);

  Body body_;
  BodyFilterOptions options_;
  std::size_t count_;                                 ///< of markers
  Eigen::Vector3d mean_;                              ///< of the markers, body's frame
  std::array<Eigen::Vector3d, kMostMarkers> places_;  ///< from the mean, body's frame

  double age_ = 0;
  double loose_ = 0;  ///< s since as many markers were taken as tell a pose
  Step step_;
  Liveliness liveliness_;
  BodyDrive drive_;
  Eigen::Vector3d turned_ = Eigen::Vector3d::Zero();  ///< sum of all turns, for the liveliness
  Look look_;
  Flags suspect_{};  ///< off shape in the latest frame that was used
  std::array<MarkerEnd, kMostMarkers> ends_{};
  std::array<double, kMostMarkers> misfits_{};
  int markers_ = 0;
  double residual_ = 0;
};

}  // namespace bodies
