#include <alg_kit/analysis/TruthTrack.h>

#include <algorithm>
#include <utility>

namespace analysis {
namespace {

constexpr double kAhead = algorithm::kMaxExtrapolation + 0.1;  // seconds to read ahead
constexpr std::size_t kMostFrames = 1000;                      // kept, whatever times a file holds

constexpr std::size_t kMostRows = 64;  // kept of a frame, likewise

}  // namespace

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
    const auto object = static_cast<std::size_t>(next_->object);
    if (!frame.call) frame.call = next_->call;
    if (next_->object >= 0 && object < kObjects) {
      TruePlace& place = frame.objects[object];
      place.x += next_->position[0];
      place.y -= next_->position[1];
      place.z -= next_->position[2];
      ++place.markers;
      place.visible = place.visible || (next_->inLeft && next_->inRight);
    }
    if (frame.rows.size() < kMostRows) frame.rows.push_back(*next_);
    if (!cursor_->next(*next_)) next_.reset();
  }
  for (TruePlace& place : frame.objects) {
    if (place.markers == 0) continue;
    place.x /= place.markers;
    place.y /= place.markers;
    place.z /= place.markers;
  }
  framesLost_ += frame.call ? 0 : 1;
  return true;
}

void TruthTrack::goTo(std::int64_t call, double timeS) {
  while (next_) {
    const bool isFarAhead = !frames_.empty() && frames_.back().timeS > timeS + kAhead &&
                            (!frames_.back().call || *frames_.back().call > call);
    if (isFarAhead) break;
    Frame frame;
    if (!readFrame(frame)) break;
    frames_.push_back(frame);
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
