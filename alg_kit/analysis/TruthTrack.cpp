#include <alg_kit/analysis/TruthTrack.h>

#include <algorithm>
#include <utility>

namespace analysis {
namespace {

constexpr double kAhead = algorithm::kMaxExtrapolation + 0.1;  // seconds to read ahead
constexpr std::size_t kMostFrames = 1000;                      // kept, whatever times a file holds

constexpr std::size_t kMostRows = 64;  // kept of a frame, likewise

using Places = std::array<TruePlace, TruthTrack::kObjects>;

void addMarker(const session::TruthRow& row, Places& places) {
  const auto object = static_cast<std::size_t>(row.object);
  if (row.object < 0 || object >= places.size()) return;
  TruePlace& place = places[object];
  place.x += row.position[0];
  place.y -= row.position[1];
  place.z -= row.position[2];
  ++place.markers;
  place.visible = place.visible || (row.inLeft && row.inRight);
}

/// Sums become means.
void finish(Places& places) {
  for (TruePlace& place : places) {
    if (place.markers == 0) continue;
    place.x /= place.markers;
    place.y /= place.markers;
    place.z /= place.markers;
  }
}

}  // namespace

Places truePlacesOf(const std::vector<session::TruthRow>& rows) {
  Places places;
  for (const session::TruthRow& row : rows) addMarker(row, places);
  finish(places);
  return places;
}

Place placeOf(const TruePlace& place) {
  return {static_cast<float>(place.x), static_cast<float>(place.y), static_cast<float>(place.z)};
}

TruthTrack::TruthTrack(std::optional<recording::TruthCursor> rows, std::int64_t firstNs)
    : cursor_(std::move(rows)), firstNs_(firstNs) {
  session::TruthRow row;
  if (cursor_ && cursor_->next(row)) next_ = row;
}

bool TruthTrack::readFrame(Frame& frame) {
  if (!next_) return false;
  frame.number = next_->frame;
  frame.timeS = (static_cast<double>(next_->timeNs) - static_cast<double>(firstNs_)) / 1e9;
  while (next_ && next_->frame == frame.number) {
    if (!frame.call) frame.call = next_->call;
    addMarker(*next_, frame.objects);
    if (frame.rows.size() < kMostRows) frame.rows.push_back(*next_);
    if (!cursor_->next(*next_)) next_.reset();
  }
  analysis::finish(frame.objects);
  framesLost_ += frame.call ? 0 : 1;
  return true;
}

void TruthTrack::goTo(std::int64_t call, double timeS) {
  while (next_) {
    const bool isFarAhead = !frames_.empty() && frames_.back().timeS > timeS + kAhead &&
                            (!frames_.back().call || *frames_.back().call > call);
    if (isFarAhead) break;
    Frame frame;
    if (!frames_.empty()) frame.rows.reserve(frames_.back().rows.size());
    if (!readFrame(frame)) break;
    frames_.push_back(std::move(frame));
    if (frames_.size() > kMostFrames) frames_.pop_front();
  }
  const auto found = std::find_if(frames_.begin(), frames_.end(),
                                  [call](const Frame& frame) { return frame.call == call; });
  const bool known = found != frames_.end();
  if (known) frames_.erase(frames_.begin(), found);
  current_ = known ? &frames_.front() : nullptr;
}

const std::vector<session::TruthRow>& TruthTrack::rows() const {
  static const std::vector<session::TruthRow> kNone;
  return current_ != nullptr ? current_->rows : kNone;
}

const TruePlace* TruthTrack::at(std::size_t object) const {
  return current_ != nullptr && object < kObjects && current_->objects[object].markers > 0
             ? &current_->objects[object]
             : nullptr;
}

std::optional<TruePlace> TruthTrack::ahead(double seconds, std::size_t object) const {
  if (current_ == nullptr) return std::nullopt;
  const double timeS = current_->timeS + seconds;
  const Frame* before = nullptr;
  for (const Frame& after : frames_) {
    const TruePlace& b = after.objects[object];
    if (b.markers == 0) continue;
    if (before != nullptr && after.timeS >= timeS && before->timeS < timeS) {
      const TruePlace& a = before->objects[object];
      const double share = (timeS - before->timeS) / (after.timeS - before->timeS);
      return TruePlace{a.x + share * (b.x - a.x), a.y + share * (b.y - a.y),
                       a.z + share * (b.z - a.z), a.markers, false};
    }
    before = &after;
  }
  return std::nullopt;
}

void TruthTrack::finish() {
  for (Frame frame; readFrame(frame);) frame = {};
}

}  // namespace analysis
