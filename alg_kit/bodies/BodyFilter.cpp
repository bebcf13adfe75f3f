#include <alg_kit/bodies/BodyFilter.h>
#include <alg_kit/bodies/PairSight.h>
#include <alg_kit/bodies/SmallMatrix.h>

#include <algorithm>
#include <cmath>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

// A pose that a frame measures by itself is taken for the liveliness up to these variances.
constexpr double kFarthestPlace = 100 * 100;  // mm^2
constexpr double kFarthestTurn = 0.3 * 0.3;   // rad^2
constexpr double kNoTurn = 1e20;              // rad^2: tells nothing
// A change beyond which the equations are linearised again.
constexpr double kFarChange = 0.005;  // of the distance
constexpr double kFarTurn = 0.03;     // radians
constexpr int kMostLooks = 4;
// How long markers that leave a turn open are taken, and while that turn is known to this much:
// farther off, the equations are no longer straight.
constexpr double kLongestLoose = 0.5;  // s
constexpr double kLoosest = 0.1;       // radians
// What drives a body is taken to grow while no pose is seen, 1/s: no motion is that of white noise
// of one density for long.
constexpr double kLoosening = 9;

using Flags = std::array<bool, kMostMarkers>;

int countOf(const Flags& flags) {
  return static_cast<int>(std::count(flags.begin(), flags.end(), true));
}

/// A change of a pose there to a change `arm` away.
Matrix6d shifted(const Vector3d& arm) {
  Matrix6d result = Matrix6d::Identity();
  result.topRightCorner<3, 3>() = -skew(arm);
  return result;
}

bool isFar(const Vector6d& change, const RigidMotion& from) {
  return change.head<3>().norm() > kFarChange * from.position.norm() ||
         change.tail<3>().norm() > kFarTurn;
}

}  // namespace

TrackedPose delivered(const TrackedPose& pose) {
  const Vector3d mirror(1, -1, -1);  // half a turn about x
  TrackedPose result = pose;
  result.pose = delivered(pose.pose);
  result.velocity = mirror.cwiseProduct(pose.velocity);
  result.turnRate = mirror.cwiseProduct(pose.turnRate);
  Vector6d both;
  both << mirror, mirror;
  result.rateCovariance = both.asDiagonal() * pose.rateCovariance * both.asDiagonal();
  return result;
}

BodyFilter::BodyFilter(const Body& body, const BodyFilterOptions& options)
    : body_(body),
      options_(options),
      count_(body.markers.size()),
      mean_(meanOf(body)),
      liveliness_(options.models) {
  for (std::size_t i = 0; i < count_; ++i) places_[i] = body.markers[i].position - mean_;
}

void BodyFilter::pass(double elapsed) {
  ends_.fill(MarkerEnd::kNotSeen);
  misfits_.fill(0);
  step_.began = false;
  if (!step_.alive) return;
  look_.seen.fill(false);
  look_.information = {};
  advance(elapsed);
  drive_ = liveliness_.drive();
  keepUnseen(predict());
  if (age_ > options_.bridge) end();
}

/// Everything but the covariance, which needs the drive.
void BodyFilter::advance(double elapsed) {
  step_.before = step_.after;
  step_.by = moveOn(step_.before, estimate::Step(elapsed, options_.models.memory));
  age_ += elapsed;
  loose_ += elapsed;
  liveliness_.predict(step_.by.step);
  turned_ += elapsed * step_.before.turnRate;
}

void BodyFilter::feed(const BodyFrame& frame, const estimate::PixelEquations& cameras,
                      double noise) {
  const Sights sights{frame, cameras, noise};
  ends_.fill(MarkerEnd::kNotSeen);
  misfits_.fill(0);
  step_.began = false;
  if (!step_.alive || !(frame.elapsed > 0)) return begin(sights);
  advance(frame.elapsed);
  if (!body_.isPair()) return follow(sights);
  RigidMotion expected = step_.before.motion;
  expected.position -= expected.orientation * mean_;
  const BodyFrame told = toldApart(frame, body_, expected, cameras);
  follow({told, cameras, noise});
}

void BodyFilter::follow(const Sights& sights) {
  lookAt(sights, Vector6d::Zero());
  look_.taken = look_.seen;
  // What was off shape in the frame before is asked last.
  Flags rest = look_.seen;
  for (std::size_t i = 0; i < count_; ++i) rest[i] = rest[i] && !suspect_[i];
  if (countOf(rest) >= 3) look_.taken = rest;
  takeIn();
  guessDrive();
  const Matrix6d prior = predict();
  if (look_.information.numbers > 0 && tell(look_.seen) && settle(sights, prior)) return;
  // Where the prediction is so far off that no marker has an image near it, they still have a pose.
  if (look_.information.numbers == 0)
    if (const auto pose = pinnedPoseOf(body_, sights.frame, sights.cameras, sights.noise))
      return startAt(*pose);
  keepUnseen(prior);
  if (age_ > options_.bridge) begin(sights);
}

/// Whether so many markers tell a pose.
bool BodyFilter::enough(const Flags& markers) const {
  return countOf(markers) >= (body_.isPair() ? 2 : 3);
}

/// Whether the state may be corrected by them. One or two markers leave a turn open, or more.
bool BodyFilter::tell(const Flags& markers) const {
  if (enough(markers)) return true;
  const Matrix3d turn = step_.before.covariance.block<3, 3>(kTurn, kTurn);
  return loose_ < kLongestLoose && (look_.open * turn).trace() < kLoosest * kLoosest;
}

BodyDrive BodyFilter::driveAfter(double loose) const {
  BodyDrive drive = drive_;
  drive.jerk *= 1 + kLoosening * loose;
  drive.turn *= 1 + kLoosening * loose;
  return drive;
}

/// @return the covariance of what is seen: of the pose, with tremor
Matrix6d BodyFilter::predict() {
  spread(step_.before.covariance, step_.by, driveAfter(loose_ - step_.by.step.t));
  step_.after = step_.before;
  Matrix6d prior = step_.before.covariance.topLeftCorner<6, 6>();
  prior.diagonal() += drive_.tremors();
  return prior;
}

/// The markers, linearised at the prediction changed by `at`.
void BodyFilter::lookAt(const Sights& sights, const Vector6d& at) {
  const RigidMotion motion = changedBy(step_.before.motion, at);
  const Matrix3d orientation = motion.orientation.toRotationMatrix();
  look_.at = at;
  for (std::size_t i = 0; i < count_; ++i) {
    const auto& sighting = sights.frame.markers[static_cast<std::size_t>(body_.markers[i].id)];
    look_.seen[i] = false;
    if (!sighting.any()) continue;
    look_.arms[i] = orientation * places_[i];
    const auto marker =
        sights.cameras.information(sighting, look_.arms[i] + motion.position, sights.noise);
    if (!marker) continue;
    look_.markers[i] = *marker;
    look_.seen[i] = true;
  }
}

void BodyFilter::takeIn() {
  look_.information = {};
  for (std::size_t i = 0; i < count_; ++i) {
    look_.taken[i] = look_.taken[i] && look_.seen[i];
    if (look_.taken[i]) look_.information.add(look_.arms[i], look_.markers[i]);
  }
  if (body_.isPair() && look_.information.numbers > 0)
    look_.information.pinTurn(changedBy(step_.before.motion, look_.at).orientation * axisOf(body_));
  if (look_.at != Vector6d::Zero()) look_.information.moveBack(look_.at);
  look_.rooted = rooted(look_.information);
  // By the expected position so few markers would seem to tell a turn: linearised about one that is
  // off, they tell it wrongly.
  look_.open.setZero();
  if (!enough(look_.taken)) look_.open = openTurns(look_.rooted);
}

/// How lively the body is, from where this frame alone has it.
void BodyFilter::guessDrive() {
  const PoseInformation& all = look_.information;
  drive_ = liveliness_.drive();
  if (all.freedom() <= 0) return;
  const RootedInformation& told = look_.rooted;
  if (!told.whole || !(told.rest <= mostMisfit(all.freedom()))) return;
  Matrix6d inverse = Matrix6d::Identity();  // of the root, transposed
  divideByTransposed(inverse, told.root);
  const Vector6d change = inverse * told.pulled;
  Vector6d variance = inverse.rowwise().squaredNorm();
  if (!(variance.head<3>().maxCoeff() < kFarthestPlace) ||
      !(variance.tail<3>().maxCoeff() < kFarthestTurn))
    return;
  // Of a pair's turns one is pinned, and would pass for stillness: they do not count.
  if (body_.isPair()) variance.tail<3>().setConstant(kNoTurn);
  Vector6d place;
  place << step_.before.motion.position, turned_;
  liveliness_.correct(place + change, variance);
  drive_ = liveliness_.drive();
}

/// The update by the markers that are taken; far from the prediction linearised again, there (the
/// iterated filter: Gauss-Newton over prediction and pixels).
void BodyFilter::update(const Sights& sights, const Matrix6d& prior) {
  look_.update = updateOf(prior, look_.rooted);
  for (int look = 1;
       look < kMostLooks && isFar(look_.update.change - look_.at, step_.before.motion); ++look) {
    if (!look_.update.change.allFinite()) return;
    Vector6d at = look_.update.change;
    at.tail<3>() -= look_.open * at.tail<3>();
    lookAt(sights, at);
    takeIn();
    look_.update = updateOf(prior, look_.rooted);
  }
}

/// Squared standard deviations by which a marker is off where the update puts it.
double BodyFilter::misfitOf(std::size_t marker) const {
  return misfitAfter(look_.markers[marker],
                     markerChange(look_.arms[marker], look_.update.change - look_.at));
}

bool BodyFilter::fits() const {
  if (look_.information.numbers == 0) return false;
  if (!(look_.update.distance2 <= mostMisfit(look_.information.numbers))) return false;
  for (std::size_t i = 0; i < count_; ++i)
    if (look_.taken[i] && !(misfitOf(i) <= kMarkerMost)) return false;
  return true;
}

/// What was left out for what it was in the frame before, where it fits again.
void BodyFilter::takeBack(const Sights& sights, const Matrix6d& prior) {
  Flags back = look_.taken;
  for (std::size_t i = 0; i < count_; ++i)
    back[i] = look_.seen[i] && (look_.taken[i] || misfitOf(i) <= kMarkerMost);
  if (back == look_.taken) return;
  const Look without = look_;
  look_.taken = back;
  takeIn();
  update(sights, prior);
  if (!fits()) look_ = without;
}

/// @return false if nothing that was seen could be used
bool BodyFilter::settle(const Sights& sights, const Matrix6d& prior) {
  update(sights, prior);
  if (fits()) {
    takeBack(sights, prior);
    keep(sights);
    return true;
  }
  if (const auto pose = pinnedPoseOf(body_, sights.frame, sights.cameras, sights.noise)) {
    lookAt(sights, Vector6d::Zero());
    for (std::size_t i = 0; i < count_; ++i)
      look_.taken[i] = pose->ends[i] == MarkerEnd::kUsed || pose->ends[i] == MarkerEnd::kOneCamera;
    takeIn();
    update(sights, prior);
    if (fits()) {
      keep(sights);
      return true;
    }
    // They fit one another and not the state: the body is where they are.
    startAt(*pose);
    return true;
  }
  if (!leaveOut(sights, prior)) return false;
  keep(sights);
  return true;
}

/// Leaves out markers one by one, always the one without which the others fit the state best.
bool BodyFilter::leaveOut(const Sights& sights, const Matrix6d& prior) {
  lookAt(sights, Vector6d::Zero());
  look_.taken = look_.seen;
  while (countOf(look_.taken) > 1) {
    const Flags all = look_.taken;
    std::size_t out = 0;
    double least = HUGE_VAL;
    for (std::size_t i = 0; i < count_; ++i) {
      if (!all[i]) continue;
      look_.taken[i] = false;
      takeIn();
      const double distance2 = updateOf(prior, look_.rooted).distance2;
      if (distance2 < least) least = distance2, out = i;
      look_.taken[i] = true;
    }
    look_.taken[out] = false;
    takeIn();
    update(sights, prior);
    if (fits()) return tell(look_.taken);
    lookAt(sights, Vector6d::Zero());
  }
  return false;
}

void BodyFilter::keep(const Sights& sights) {
  double misfit = 0;
  for (std::size_t i = 0; i < count_; ++i) {
    const auto& sighting = sights.frame.markers[static_cast<std::size_t>(body_.markers[i].id)];
    if (!sighting.any()) continue;
    suspect_[i] = !look_.taken[i];
    ends_[i] = !sighting.both() ? MarkerEnd::kOneCamera : MarkerEnd::kUsed;
    if (look_.seen[i]) misfits_[i] = misfitOf(i);
    if (look_.taken[i])
      misfit += misfits_[i];
    else
      ends_[i] = MarkerEnd::kOffShape;
  }
  if (!enough(look_.taken)) leaveOpen(look_.update, look_.open);
  turned_ += look_.update.change.tail<3>();
  step_.taken = correct(step_.after, look_.rooted, look_.update, look_.open);
  step_.open = look_.open;
  step_.seenTaken = look_.update.taken;
  step_.seen = changedBy(step_.before.motion, look_.update.change);
  step_.seenCovariance = look_.update.covariance;
  markers_ = countOf(look_.taken);
  residual_ = sights.noise * std::sqrt(misfit / look_.information.numbers);
  age_ = 0;
  if (enough(look_.taken)) loose_ = 0;
}

/// The state as predicted.
void BodyFilter::keepUnseen(const Matrix6d& prior) {
  for (std::size_t i = 0; i < count_; ++i)
    if (look_.seen[i]) {
      ends_[i] = MarkerEnd::kOffTrack;
      misfits_[i] = look_.markers[i].misfit;
    }
  step_.seen = step_.after.motion;
  step_.seenCovariance = prior;
  step_.open.setZero();
  step_.taken.setZero();
  step_.seenTaken.setZero();
  markers_ = 0;
  residual_ = 0;
}

void BodyFilter::begin(const Sights& sights) {
  step_.alive = false;
  const auto beginAt = [&](const BodyFrame& frame) {
    if (const auto pose = pinnedPoseOf(body_, frame, sights.cameras, sights.noise)) startAt(*pose);
  };
  if (!body_.isPair()) return beginAt(sights.frame);
  if (const auto told = toldApart(sights.frame, body_, sights.cameras, sights.noise))
    beginAt(*told);
}

void BodyFilter::startAt(const BodyPose& pose) {
  step_ = {};
  step_.alive = step_.began = true;
  BodyState& state = step_.after;
  state.motion = pose.motion;
  state.motion.position = pose.motion * mean_;
  const Matrix6d toMean = shifted(pose.motion.orientation * mean_);
  state.covariance.topLeftCorner<6, 6>() = toMean * pose.covariance * toMean.transpose();
  const auto fill = [&](int part, double deviation) {
    state.covariance.diagonal().segment<3>(part).setConstant(deviation * deviation);
  };
  fill(kVelocity, kFirstSpeed);
  fill(kTurnRate, kFirstTurnRate);
  fill(kAcceleration, kFirstAcceleration);
  step_.before = state;
  step_.seen = state.motion;
  step_.seenCovariance = state.covariance.topLeftCorner<6, 6>();
  turned_.setZero();
  Vector6d place;
  place << state.motion.position, turned_;
  liveliness_.start(place, step_.seenCovariance.diagonal());
  drive_ = liveliness_.drive();
  ends_ = pose.ends;
  misfits_.fill(0);
  for (std::size_t i = 0; i < count_; ++i) suspect_[i] = ends_[i] == MarkerEnd::kOffShape;
  markers_ = pose.markers;
  residual_ = pose.residual;
  age_ = loose_ = 0;
}

TrackedPose BodyFilter::now() const {
  if (!step_.alive) return {};
  return answerOf(step_.after, step_.seen, step_.seenCovariance,
                  age_ > 0 ? estimate::Source::kBridged : estimate::Source::kMeasured);
}

TrackedPose BodyFilter::ahead(double seconds) const {
  if (!step_.alive || !(seconds >= 0) || seconds > kFarthestAhead) return {};
  if (seconds == 0) return now();
  BodyState state = step_.after;
  const ErrorStep by = moveOn(state, estimate::Step(seconds, options_.models.memory));
  spread(state.covariance, by, driveAfter(loose_));
  Matrix6d covariance = state.covariance.topLeftCorner<6, 6>();
  covariance.diagonal() += drive_.tremors();
  TrackedPose result = answerOf(state, state.motion, covariance, estimate::Source::kPredicted);
  result.age += seconds;
  return result;
}

TrackedPose BodyFilter::answerOf(const BodyState& state, const RigidMotion& seen,
                                 const Matrix6d& seenCovariance, estimate::Source source) const {
  TrackedPose result;
  result.source = source;
  result.age = age_;
  const Vector3d arm = seen.orientation * -mean_;  // from the mean to the origin
  const Matrix6d toOrigin = shifted(arm);
  result.pose.motion = seen;
  result.pose.motion.position += arm;
  result.pose.covariance = toOrigin * seenCovariance * toOrigin.transpose();
  result.pose.markers = markers_;
  result.pose.residual = residual_;
  result.pose.ends = ends_;
  result.misfits = misfits_;
  result.velocity = state.velocity + state.turnRate.cross(arm);
  result.turnRate = state.turnRate;
  // The errors of the velocity, by those of orientation and rates.
  Eigen::Matrix<double, 6, 9> jacobian = Eigen::Matrix<double, 6, 9>::Zero();
  jacobian.topLeftCorner<3, 3>() = -skew(state.turnRate) * skew(arm);
  jacobian.block<3, 3>(0, 3).setIdentity();
  jacobian.block<3, 3>(0, 6) = -skew(arm);
  jacobian.block<3, 3>(3, 6).setIdentity();
  result.rateCovariance =
      jacobian * state.covariance.block<9, 9>(kTurn, kTurn) * jacobian.transpose();
  unpin(body_, result.pose);
  if (body_.isPair())
    forgetTurn(result.rateCovariance.bottomRightCorner<3, 3>(), seen.orientation * axisOf(body_));
  return result;
}

}  // namespace bodies
