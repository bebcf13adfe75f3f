#include <alg_kit/analysis/ObjectTally.h>

#include <algorithm>
#include <cmath>

namespace analysis {
namespace {

constexpr std::size_t kMostPathPoints = 3000;

// The envelopes, in the order of the columns.
constexpr std::size_t kRaw = 0, kFiltered = 3, kTruth = 6;
constexpr std::size_t kRawError = 9, kFilteredError = 10, kEpipolar = 11, kRayGap = 12;
constexpr std::size_t kSmoothed = 13, kEstimatedError = 16, kSmoothedError = 17;
constexpr std::size_t kSeen = 0, kAbsent = 1;

}  // namespace

ObjectTally::ObjectTally(int object, std::size_t place, const ReportRules& rules, bool hasTruth)
    : place_(place),
      jumpMm_(rules.jumpMm),
      hasTruth_(hasTruth),
      jumps_(rules.jumpMm),
      lonely_(rules.jumpMm),
      path_(kMostPathPoints, rules.bridgeS),
      truePath_(kMostPathPoints, rules.bridgeS) {
  numbers_.object = object;
}

void ObjectTally::Rest::add(const Place& raw, const Place& filtered, const Place& truth) {
  isKnown = isKnown || isSomewhere(truth);
  known.add(raw, filtered, truth);
  if (!isKnown) suspected.add(raw, filtered, truth);  // else nobody asks for it any more
}

void ObjectTally::Alternative::add(const Place& raw, const Place& place, const Place& truth,
                                   float errorMm) {
  error.add(static_cast<double>(errorMm));
  rest.add(raw, place, truth);
  lag.add(raw, place);
}

AlternativeNumbers ObjectTally::Alternative::get() const {
  return {error.get(), rest.meter().filtered(), lag.get()};
}

void ObjectTally::addGap(const std::optional<Gap>& gap) {
  if (!gap) return;
  PresenceNumbers& presence = numbers_.presence;
  ++presence.gaps;
  presence.withoutS += gap->without;
  if (!presence.longestGap || gap->seconds > presence.longestGap->seconds)
    presence.longestGap = gap;
}

void ObjectTally::addPresence(const ObjectRow& row, const Moment& at) {
  addGap(gaps_.add(at, row.presence));
  if (row.presence == Presence::kNoSuchObject) return;
  PresenceNumbers& presence = numbers_.presence;
  ++presence.packets;
  presence.visible += row.visible ? 1 : 0;
  if (row.presence != Presence::kSeen) return;
  ++presence.seen;
  presence.visibleSeen += row.visible ? 1 : 0;
  if (!presence.firstSeenS) presence.firstSeenS = at.seconds;
  presence.lastSeenS = at.seconds;
  numbers_.notFinite += isSomewhere(row.raw) ? 0 : 1;
}

/// Of sightings one after the other that are off the truth, the farthest stands for all.
void ObjectTally::addTrueOutlier(const ObjectRow& row, const Moment& at,
                                 Events<OutlierEvent>& outliers) {
  const auto error = static_cast<double>(row.rawError);
  if (!(error > jumpMm_)) {
    closeTrueOutlier(outliers);
  } else if (!trueOutlier_ || error > trueOutlier_->distanceMm) {
    trueOutlier_ = Outlier{at, error};
  }
}

void ObjectTally::closeTrueOutlier(Events<OutlierEvent>& outliers) {
  if (trueOutlier_) outliers.add({object(), *trueOutlier_});
  numbers_.outliers += trueOutlier_ ? 1 : 0;
  trueOutlier_.reset();
}

void ObjectTally::closeRow(const ObjectRow& row, const Moment& at, std::size_t column,
                           Columns& columns, Events<JumpEvent>& jumps,
                           Events<OutlierEvent>& outliers) {
  addPresence(row, at);
  if (const auto jump = jumps_.add(at, row.raw)) {
    jumps.add({object(), *jump});
    ++numbers_.jumps;
  }
  if (hasTruth_) {
    addTrueOutlier(row, at, outliers);
  } else if (const auto outlier = lonely_.add(at, row.raw)) {
    outliers.add({object(), *outlier});
    ++numbers_.outliers;
  }
  rawError_.add(static_cast<double>(row.rawError));
  filteredError_.add(static_cast<double>(row.filteredError));
  epipolar_.add(static_cast<double>(row.epipolar));
  rayGap_.add(static_cast<double>(row.rayGap));
  numbers_.held += row.held ? 1 : 0;
  rest_.add(row.raw, row.filtered, row.truth);
  lag_.add(row.raw, row.ahead ? nowhere() : row.filtered);
  estimated_.add(row.raw, row.estimated, row.truth, row.estimatedError);
  smoothed_.add(row.raw, row.smoothed, row.truth, row.smoothedError);
  if (isSomewhere(row.raw)) path_.add(at.seconds, row.raw);
  if (isSomewhere(row.truth)) truePath_.add(at.seconds, row.truth);
  drawRow(row, column, columns);
}

void ObjectTally::drawRow(const ObjectRow& row, std::size_t column, Columns& columns) const {
  const std::size_t first = place_ * kEnvelopes;
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    columns.add(column, first + kRaw + axis, axisOf(row.raw, axis));
    columns.add(column, first + kFiltered + axis, axisOf(row.filtered, axis));
    columns.add(column, first + kSmoothed + axis, axisOf(row.smoothed, axis));
    columns.add(column, first + kTruth + axis, axisOf(row.truth, axis));
  }
  columns.add(column, first + kRawError, static_cast<double>(row.rawError));
  columns.add(column, first + kFilteredError, static_cast<double>(row.filteredError));
  columns.add(column, first + kEstimatedError, static_cast<double>(row.estimatedError));
  columns.add(column, first + kSmoothedError, static_cast<double>(row.smoothedError));
  columns.add(column, first + kEpipolar, static_cast<double>(row.epipolar));
  columns.add(column, first + kRayGap, static_cast<double>(row.rayGap));
  if (row.presence == Presence::kSeen) columns.count(column, place_ * kCounts + kSeen);
  if (row.presence == Presence::kAbsent) columns.count(column, place_ * kCounts + kAbsent);
}

void ObjectTally::finish(Events<OutlierEvent>& outliers) {
  addGap(gaps_.finish());
  closeTrueOutlier(outliers);
}

ObjectNumbers ObjectTally::numbers() const {
  ObjectNumbers numbers = numbers_;
  numbers.rawErrorMm = rawError_.get();
  numbers.filteredErrorMm = filteredError_.get();
  numbers.epipolarPx = epipolar_.get();
  numbers.rayGapMm = rayGap_.get();
  numbers.restKnownFromTruth = rest_.isKnown;
  numbers.rawJitterMm = rest_.meter().raw();
  numbers.filteredJitterMm = rest_.meter().filtered();
  numbers.lag = lag_.get();
  numbers.estimated = estimated_.get();
  numbers.smoothed = smoothed_.get();
  return numbers;
}

ObjectCurves ObjectTally::curves(const Columns& columns) const {
  const std::size_t first = place_ * kEnvelopes;
  ObjectCurves curves;
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    curves.raw[axis] = columns.envelope(first + kRaw + axis);
    curves.filtered[axis] = columns.envelope(first + kFiltered + axis);
    curves.smoothed[axis] = columns.envelope(first + kSmoothed + axis);
    curves.truth[axis] = columns.envelope(first + kTruth + axis);
  }
  curves.rawError = columns.envelope(first + kRawError);
  curves.filteredError = columns.envelope(first + kFilteredError);
  curves.estimatedError = columns.envelope(first + kEstimatedError);
  curves.smoothedError = columns.envelope(first + kSmoothedError);
  curves.epipolar = columns.envelope(first + kEpipolar);
  curves.rayGap = columns.envelope(first + kRayGap);
  curves.seen = columns.counts(place_ * kCounts + kSeen);
  curves.absent = columns.counts(place_ * kCounts + kAbsent);
  curves.path = path_.get();
  curves.truePath = truePath_.get();
  return curves;
}

}  // namespace analysis
