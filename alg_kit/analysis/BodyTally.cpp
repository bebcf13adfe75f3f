#include <alg_kit/analysis/BodyTally.h>

#include <alg_kit/bodies/BodyTruth.h>

#include <algorithm>

namespace analysis {
namespace {

// The envelopes, in the order of the columns.
constexpr std::size_t kPositionError = 0, kTurnError = 1, kResidual = 2, kVisible = 3;

}  // namespace

BodyTally::BodyTally(const bodies::Body& body, std::size_t first, double noise)
    : body_(body), filter_(body), first_(first), noise_(noise) {
  numbers_.name = body.name;
  for (const bodies::BodyMarker& marker : body.markers)
    numbers_.ids.push_back(body.blobIdOf(marker));
}

void BodyTally::feed(const bodies::BodyFrame& frame, const estimate::PixelEquations& cameras) {
  filter_.feed(frame, cameras, noise_);
  visible_ = visibleIn(frame);
}

int BodyTally::visibleIn(const bodies::BodyFrame& frame) const {
  if (body_.isPair())
    return std::max(frame.pair[estimate::kLeft].count, frame.pair[estimate::kRight].count);
  int visible = 0;
  for (const bodies::BodyMarker& marker : body_.markers) {
    const estimate::Sighting& sighting = frame.markers[static_cast<std::size_t>(marker.id)];
    if (sighting.any()) ++visible;
  }
  return visible;
}

void BodyTally::addErrors(const bodies::RigidMotion& motion,
                          const std::vector<session::TruthRow>& truth, Columns& columns) {
  const auto trueMotion = bodies::trueMotionOf(body_, truth);
  if (!trueMotion) return;
  const bodies::BodyError error = bodies::errorOf(body_, motion, *trueMotion);
  positionError_.add(error.position);
  turnError_.add(error.turn);
  columns.add(first_ + kPositionError, error.position);
  columns.add(first_ + kTurnError, error.turn);
}

void BodyTally::add(bool sawFrame, const std::vector<session::TruthRow>& truth, Columns& columns) {
  ++numbers_.packets;
  if (!sawFrame) return;
  markers_.add(visible_);
  columns.add(first_ + kVisible, visible_);
  const bodies::TrackedPose pose = bodies::delivered(filter_.now());
  const bodies::RigidMotion& motion = pose.pose.motion;
  const bool somewhere =
      motion.position.allFinite() && motion.orientation.coeffs().allFinite();  // else damaged
  if (pose.source == estimate::Source::kNone || !somewhere) return;
  ++numbers_.poses;
  addErrors(motion, truth, columns);
  if (pose.source != estimate::Source::kMeasured) {
    ++numbers_.bridged;
    return;
  }
  residual_.add(pose.pose.residual);
  columns.add(first_ + kResidual, pose.pose.residual);
}

BodyNumbers BodyTally::numbers() const {
  BodyNumbers numbers = numbers_;
  numbers.positionErrorMm = positionError_.get();
  numbers.turnErrorDeg = turnError_.get();
  numbers.residualPx = residual_.get();
  numbers.markersVisible = markers_.get();
  return numbers;
}

BodyCurves BodyTally::curves(const Columns& columns) const {
  return {columns.envelope(first_ + kPositionError), columns.envelope(first_ + kTurnError),
          columns.envelope(first_ + kResidual), columns.envelope(first_ + kVisible)};
}

}  // namespace analysis
