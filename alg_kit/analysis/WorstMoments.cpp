#include <alg_kit/analysis/WorstMoments.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <cmath>

namespace analysis {
namespace {

using Kind = WorstMoment::Kind;
using Point = std::array<double, 3>;

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

void keepWorst(std::vector<WorstMoment>& list, const WorstMoment& moment, std::size_t most) {
  if (!list.empty() && list.size() == most && !(list.back().value < moment.value)) return;
  const auto place = std::find_if(list.begin(), list.end(), [&](const WorstMoment& other) {
    return other.value < moment.value;
  });
  list.insert(place, moment);
  if (list.size() > most) list.pop_back();
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
  auto& list = moment.kind == Kind::kGap ? gaps_ : moment.kind == Kind::kStep ? steps_ : errors_;
  keepWorst(list, moment, ofEachKind_);
}

void WorstMoments::add(const Moment& moment, int productType, const algorithm::ResultBlock* block,
                       const std::vector<session::TruthRow>& truth, bool corrupt) {
  if (corrupt && corrupt_++ < static_cast<std::int64_t>(ofEachKind_))
    corrupts_.push_back({Kind::kCorrupt, -1, moment, moment, 0});
  lastSeconds_ = moment.seconds;
  const int objects = algorithm::objectCount(productType);
  if (tracks_.size() < static_cast<std::size_t>(objects))
    tracks_.resize(static_cast<std::size_t>(objects));
  for (int object = 0; object < objects; ++object) {
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
  std::vector<WorstMoment> gaps = gaps_;
  for (std::size_t object = 0; object < tracks_.size(); ++object) {
    const Track& track = tracks_[object];
    if (!track.firstMissing) continue;  // what goes on at the end is a gap too
    keepWorst(gaps,
              {Kind::kGap, static_cast<int>(object), *track.firstMissing, *track.lastMissing,
               lastSeconds_ - track.lastSeen},
              ofEachKind_);
  }
  std::vector<WorstMoment> all = std::move(gaps);
  for (const auto* list : {&steps_, &errors_, &corrupts_})
    all.insert(all.end(), list->begin(), list->end());
  return all;
}

}  // namespace analysis
