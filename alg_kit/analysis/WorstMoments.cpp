#include <alg_kit/analysis/WorstMoments.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <cmath>

namespace analysis {
namespace {

using Kind = WorstMoment::Kind;
using Point = std::array<double, 3>;

constexpr double kOneEventS = 1;

constexpr struct {
  const char *key, *description;
} kKinds[] = {{"gap", "longest gap"},
              {"step", "largest step"},
              {"error", "largest error"},
              {"corrupt", "corrupt packet"}};

double distanceOf(const Point& a, const Point& b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

/// The middle of an object's markers, mirrored as the library mirrors positions.
std::optional<Point> truePlace(const std::vector<session::TruthRow>& truth, int object) {
  Point sum{};
  int markers = 0;
  for (const session::TruthRow& row : truth) {
    if (row.object != object) continue;
    sum[0] += row.position[0];
    sum[1] -= row.position[1];
    sum[2] -= row.position[2];
    ++markers;
  }
  if (markers == 0) return std::nullopt;
  for (double& axis : sum) axis /= markers;
  return sum;
}

bool isWorse(const WorstMoment& a, const WorstMoment& b) {
  return a.value != b.value ? a.value > b.value : a.first.packet < b.first.packet;
}

void keepWorst(std::vector<WorstMoment>& list, const WorstMoment& moment, std::size_t most) {
  list.insert(std::upper_bound(list.begin(), list.end(), moment, isWorse), moment);
  if (list.size() > most) list.pop_back();
}

bool isOneEvent(const WorstMoment& a, const WorstMoment& b) {
  return std::abs(a.first.seconds - b.first.seconds) < kOneEventS;
}

}  // namespace

const char* describe(Kind kind) {
  return kKinds[static_cast<int>(kind)].description;
}

const char* keyOf(Kind kind) {
  return kKinds[static_cast<int>(kind)].key;
}

void WorstMoments::keep(const WorstMoment& moment) {
  if (!std::isfinite(moment.value)) return;
  const auto kind = static_cast<std::size_t>(moment.kind);
  std::optional<WorstMoment>& latest =
      tracks_[static_cast<std::size_t>(moment.object)].latest[kind];
  if (latest && isOneEvent(*latest, moment)) {
    if (moment.value > latest->value) latest = moment;
    return;
  }
  if (latest) keepWorst(worst_[kind], *latest, ofEachKind_);
  latest = moment;
}

void WorstMoments::keepLatest() {
  for (const Track& track : tracks_)
    for (std::size_t kind = 0; kind < worst_.size(); ++kind)
      if (const auto& latest = track.latest[kind]) keepWorst(worst_[kind], *latest, ofEachKind_);
}

void WorstMoments::add(const Moment& moment, int productType, const algorithm::ResultBlock* block,
                       const std::vector<session::TruthRow>& truth, bool corrupt) {
  if (corrupt) {
    ++corrupt_;
    const WorstMoment found{Kind::kCorrupt, -1, moment, moment, 0};
    if (corrupts_.size() < ofEachKind_ &&
        (corrupts_.empty() || !isOneEvent(corrupts_.back(), found)))
      corrupts_.push_back(found);
  }
  lastSeconds_ = moment.seconds;
  const int objects = algorithm::objectCount(productType);
  if (tracks_.size() < static_cast<std::size_t>(objects))
    tracks_.resize(static_cast<std::size_t>(objects));
  for (int object = 0; object < objects; ++object) {
    if (object != only_.value_or(object)) continue;
    const algorithm::TrackedPoint* record = block == nullptr ? nullptr : &block->records[object];
    if (record != nullptr && record->id != object) record = nullptr;
    addObject(object, moment, record, truth);
  }
}

void WorstMoments::addObject(int object, const Moment& moment,
                             const algorithm::TrackedPoint* record,
                             const std::vector<session::TruthRow>& truth) {
  Track& track = tracks_[static_cast<std::size_t>(object)];
  if (!track.begun) track.lastSeen = moment.seconds;
  track.begun = true;
  if (record == nullptr) {
    if (!track.firstMissing) track.firstMissing = moment;
    track.lastMissing = moment;
    track.place.reset();
    return;
  }
  if (track.firstMissing)
    keep({Kind::kGap, object, *track.firstMissing, *track.lastMissing,
          moment.seconds - track.lastSeen});
  track.firstMissing.reset();
  track.lastSeen = moment.seconds;
  const Point place = {record->x, record->y, record->z};
  if (track.place) keep({Kind::kStep, object, moment, moment, distanceOf(place, *track.place)});
  track.place = place;
  if (const auto really = truePlace(truth, object))
    keep({Kind::kError, object, moment, moment, distanceOf(place, *really)});
}

std::vector<WorstMoment> WorstMoments::list() const {
  WorstMoments ended = *this;
  for (std::size_t object = 0; object < tracks_.size(); ++object) {
    const Track& track = tracks_[object];
    if (track.firstMissing)  // what goes on at the end is a gap too
      ended.keep({Kind::kGap, static_cast<int>(object), *track.firstMissing, *track.lastMissing,
                  lastSeconds_ - track.lastSeen});
  }
  ended.keepLatest();
  std::vector<WorstMoment> all;
  for (const auto& list : ended.worst_) all.insert(all.end(), list.begin(), list.end());
  all.insert(all.end(), corrupts_.begin(), corrupts_.end());
  return all;
}

}  // namespace analysis
