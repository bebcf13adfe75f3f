#include <alg_kit/trace/FateText.h>
#include <alg_kit/view/FrameMaker.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Answers.h>
#include <alg_kit/analysis/CheckByte.h>
#include <alg_kit/analysis/ObjectHistory.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace view {
namespace {

using session::Call;
using session::CallKind;

constexpr double kDegrees = 57.29577951308232;

std::string shortened(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (text.size() > Frame::kLongestText) text = text.substr(0, Frame::kLongestText) + "...";
  return text;
}

float errorOf(const analysis::Place& place, const analysis::Place& truth) {
  return static_cast<float>(analysis::distance(place, truth));  // NaN without one of them
}

/// Whether the answer may be for a moment behind the packet's.
bool looksAhead(const Call& call, int productType, int filterMode) {
  std::uint64_t stamp = 0;
  if (filterMode == algorithm::kFilterOff || !algorithm::readsStamp(productType, call.type) ||
      call.payload.size() != sizeof stamp)
    return false;
  std::memcpy(&stamp, call.payload.data(), sizeof stamp);
  return stamp != algorithm::kFilterStateStamp;
}

}  // namespace

FrameMaker::FrameMaker(FrameLog& log, const std::vector<bodies::Body>& bodies, double frameRate)
    : log_(log), estimates_(frameRate), bodies_(bodies, frameRate) {}

void FrameMaker::add(const session::Unit& unit, const TruthOf& truthOf) {
  for (const session::Entry& entry : unit) addEntry(entry, truthOf);
}

void FrameMaker::publish() {
  if (begun_) log_.amend(frame_);
}

void FrameMaker::addEntry(const session::Entry& entry, const TruthOf& truthOf) {
  const Call& call = entry.call;
  const auto at = moments_.next(call);
  if (call.kind == CallKind::kInit) productType_ = call.type;
  if (call.kind == CallKind::kSetFilterMode && call.type == 0) filterMode_ = call.mode;
  const trace::PacketTrace* const packet = trace_.feed(call);
  estimates_.add(call);
  looked_ = bodies_.count() > 0 && bodies_.take(call);
  if (at) beginFrame(entry, packet, *at, truthOf(call.index, at->seconds));
  addMessages(entry);
  if (begun_ && call.kind == CallKind::kHandleEvent) addAnswer(call);
}

void FrameMaker::beginFrame(const session::Entry& entry, const trace::PacketTrace* packet,
                            const analysis::Moment& at, const std::optional<Truth>& truth) {
  publish();
  const double before = begun_ ? frame_.seconds : at.seconds;
  frame_ = Frame();
  frame_.seconds = std::max(at.seconds, before);
  frame_.packet = at.packet;
  frame_.call = at.call;
  frame_.productType = productType_;
  if (entry.call.durationNs) frame_.durationUs = static_cast<float>(*entry.call.durationNs) / 1e3f;
  fillObjects(packet, entry.blocks.empty() ? nullptr : &entry.blocks.back().block, truth);
  fillEstimates();
  fillBodies();
  if (packet != nullptr) {
    views_.add(*packet, frame_.seconds);
    const char* const message = hid::messageOf(packet->status);
    frame_.decoder = message != nullptr ? shortened(message) : "";
    for (const trace::TracedBlob& blob : packet->blobs)
      frame_.blobs.push_back({blob.camera, static_cast<int>(blob.raw.id),
                              static_cast<float>(blob.x), static_cast<float>(blob.y), blob.diameter,
                              blob.fate, blob.other, shortened(trace::reasonOf(*packet, blob))});
  }
  findEvents(entry.call, packet, {at.packet, at.call, frame_.seconds});
  log_.add(frame_);
  begun_ = true;
  for (FrameMessage& message : early_) {
    frame_.events |= setOf(Event::kMessage);
    frame_.messages.push_back(std::move(message));
  }
  early_.clear();
}

void FrameMaker::fillObjects(const trace::PacketTrace* packet, const algorithm::ResultBlock* block,
                             const std::optional<Truth>& truth) {
  const auto count = static_cast<std::size_t>(algorithm::objectCount(productType_));
  frame_.objects.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    FrameObject& object = frame_.objects[i];
    analysis::ObjectEnd end = analysis::objectEnd(packet, block, static_cast<int>(i));
    const bool listed = block != nullptr && block->records[i].id != algorithm::kNoObject;
    object.seen = end.delivered && listed;
    object.held = end.held && object.seen;
    object.key = std::move(end.key);
    object.reason = shortened(std::move(end.detail));
    if (object.seen) object.raw = {block->records[i].x, block->records[i].y, block->records[i].z};
    if (truth && (*truth)[i].markers > 0) object.truth = analysis::placeOf((*truth)[i]);
  }
  if (packet == nullptr) return;
  for (const trace::TracedPoint& point : packet->points) {
    const auto id = static_cast<std::size_t>(point.id);
    if (point.fate < trace::BlobFate::kHeldByJump || id >= count) continue;
    FrameObject& object = frame_.objects[id];
    object.epipolar = std::fmax(object.epipolar, static_cast<float>(point.epipolarDistance));
    object.rayGap = std::fmax(object.rayGap, static_cast<float>(point.rayGap));
  }
}

void FrameMaker::fillEstimates() {
  for (std::size_t i = 0; i < frame_.objects.size(); ++i) {
    const estimate::Estimate estimate = estimates_.estimateOf(static_cast<int>(i));
    if (estimate.source == estimate::Source::kNone) continue;
    const auto place = [](const double(&v)[3]) {
      return analysis::Place{static_cast<float>(v[0]), static_cast<float>(v[1]),
                             static_cast<float>(v[2])};
    };
    const auto& covariance = estimate.covariance;
    FrameObject& object = frame_.objects[i];
    object.estimated = place(estimate.position);
    object.estimatedDeviation =
        static_cast<float>(std::sqrt(covariance[0][0] + covariance[1][1] + covariance[2][2]));
    object.velocity = place(estimate.velocity);
  }
}

void FrameMaker::fillBodies() {
  frame_.bodies.resize(bodies_.count());
  for (std::size_t i = 0; looked_ && i < bodies_.count(); ++i) {
    const bodies::TrackedPose tracked = bodies_.at(i);
    const bodies::BodyPose& pose = tracked.pose;
    FrameBody& body = frame_.bodies[i];
    body.known = tracked.source != estimate::Source::kNone;
    if (!body.known) continue;
    body.seen = tracked.source == estimate::Source::kMeasured;
    const Eigen::Vector3f origin = pose.motion.position.cast<float>();
    body.origin = {origin.x(), origin.y(), origin.z()};
    for (int k = 0; k < 4; ++k)
      body.orientation[static_cast<std::size_t>(k)] =
          static_cast<float>(pose.motion.orientation.coeffs()[k]);
    for (int k = 0; k < 3; ++k) {
      const auto at = static_cast<std::size_t>(k);
      body.deviation[at] = static_cast<float>(std::sqrt(pose.covariance(k, k)));
      body.turnDeviation[at] =
          static_cast<float>(kDegrees * std::sqrt(pose.covariance(3 + k, 3 + k)));
    }
    body.directionDeviation = static_cast<float>(kDegrees * pose.directionDeviation);
    body.age = static_cast<float>(tracked.age);
    body.residual = static_cast<float>(pose.residual);
    body.ends = pose.ends;
  }
}

void FrameMaker::findEvents(const Call& call, const trace::PacketTrace* packet,
                            const analysis::Moment& at) {
  if (packet == nullptr || analysis::deviceCheckByteRight(call, *packet) == false)
    frame_.events |= setOf(Event::kCorrupt);
  for (std::size_t i = 0; i < frame_.objects.size(); ++i) {
    Track& track = tracks_[i];
    const FrameObject& object = frame_.objects[i];
    if (!object.seen && track.seen) frame_.events |= setOf(Event::kGap);
    track.seen = object.seen;
    if (track.jumps.add(at, object.raw)) frame_.events |= setOf(Event::kJump);
    const auto outlier = track.outliers.add(at, object.raw);
    if (!outlier) continue;
    if (outlier->at.packet == at.packet)
      frame_.events |= setOf(Event::kOutlier);
    else
      log_.mark(outlier->at.packet, Event::kOutlier);
  }
}

void FrameMaker::addMessages(const session::Entry& entry) {
  for (const session::LogLine& line : entry.logs) {
    std::vector<FrameMessage>& messages = begun_ ? frame_.messages : early_;
    if (begun_) frame_.events |= setOf(Event::kMessage);
    if (messages.size() < Frame::kMostMessages)
      messages.push_back({entry.call.index, line.level, shortened(line.text)});
    else if (begun_)
      ++frame_.messagesLeftOut;
  }
}

void FrameMaker::addAnswer(const Call& call) {
  ++frame_.queries;
  frame_.events |= setOf(Event::kQuery);
  const auto answer = analysis::poseOf(call);
  const auto id = static_cast<std::size_t>(call.type);
  if (!answer || id >= frame_.objects.size() || !frame_.objects[id].seen) return;
  FrameObject& object = frame_.objects[id];
  object.filtered = {answer->filtered[0], answer->filtered[1], answer->filtered[2]};
  object.filteredError =
      looksAhead(call, productType_, filterMode_) ? kNone : errorOf(object.filtered, object.truth);
}

}  // namespace view
