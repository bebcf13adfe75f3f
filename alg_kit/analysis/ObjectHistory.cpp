#include <alg_kit/analysis/ObjectHistory.h>
#include <alg_kit/trace/FateText.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace analysis {
namespace {

using trace::BlobFate;
using trace::PacketTrace;
using trace::TracedBlob;

constexpr const char* kCameras[] = {"left", "right"};

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

bool isHeld(BlobFate fate) {
  return fate == BlobFate::kHeldByJump || fate == BlobFate::kHeldByRatio;
}

/// The blob of the object that came farthest: fates are in the order of the stages.
std::optional<std::size_t> farthestBlob(const PacketTrace& packet, int object) {
  std::optional<std::size_t> farthest;
  for (std::size_t i = 0; i < packet.blobs.size(); ++i)
    if (packet.blobs[i].raw.id == object &&
        (!farthest || packet.blobs[i].fate > packet.blobs[*farthest].fate))
      farthest = i;
  return farthest;
}

std::array<bool, 2> camerasThatSaw(const PacketTrace& packet, int object) {
  std::array<bool, 2> saw{};
  for (const TracedBlob& blob : packet.blobs)
    if (blob.raw.id == object) saw[static_cast<std::size_t>(blob.camera)] = true;
  return saw;
}

ObjectEnd missing(std::string key, std::string reason) {
  ObjectEnd end;
  end.key = std::move(key);
  end.reason = std::move(reason);
  end.detail = end.reason;
  return end;
}

ObjectEnd endOfBlob(const PacketTrace& packet, std::size_t index) {
  const TracedBlob& blob = packet.blobs[index];
  ObjectEnd end = missing(trace::keyOf(blob.fate), trace::describe(blob.fate));
  const std::string name = "blob " + std::to_string(index);
  if (blob.fate == BlobFate::kEpipolar) {
    end.reason = "its pair was " + end.reason;
    end.detail = "its pair was refused: blobs " + std::to_string(index) + " and " +
                 std::to_string(blob.other) + " are " + number(blob.value) +
                 " px from each other's epipolar lines, not below their mean diameter of " +
                 number(blob.limit);
  } else {
    end.detail = name + ": " + trace::reasonOf(packet, blob);
  }
  return end;
}

}  // namespace

ObjectEnd objectEnd(const PacketTrace* packet, const algorithm::ResultBlock* block, int object) {
  ObjectEnd end;
  if (packet == nullptr) {
    end = missing("not-decoded", "the packet was not decoded");
  } else if (const auto blob = farthestBlob(*packet, object)) {
    const auto saw = camerasThatSaw(*packet, object);
    const std::size_t seeing = saw[0] ? 0 : 1;
    end = saw[0] && saw[1]
              ? endOfBlob(*packet, *blob)
              : missing(std::string("only-") + kCameras[seeing],
                        std::string("only the ") + kCameras[seeing] + " camera saw it");
    end.held = isHeld(packet->blobs[*blob].fate);
  } else {
    end = missing("unseen", "no camera saw id " + std::to_string(object));
  }
  if (block != nullptr)
    for (const algorithm::TrackedPoint& record : block->records)
      end.delivered = end.delivered || record.id == object;
  if (end.delivered && !end.held) end.key = end.reason = end.detail = "";
  return end;
}

void ObjectHistory::add(const Moment& moment, const PacketTrace* packet,
                        const algorithm::ResultBlock* block) {
  const ObjectEnd end = objectEnd(packet, block, object_);
  ++packets_;
  seen_ += end.delivered ? 1 : 0;
  held_ += end.delivered && end.held ? 1 : 0;
  if (end.delivered) {
    isMissing_ = false;
    return;
  }
  if (!isMissing_) missing_.push_back({moment, moment, 0, {}});
  isMissing_ = true;
  MissingRun& run = missing_.back();
  run.last = moment;
  ++run.packets;
  auto reason = std::find_if(run.reasons.begin(), run.reasons.end(),
                             [&](const MissingRun::Reason& known) { return known.key == end.key; });
  if (reason == run.reasons.end()) reason = run.reasons.insert(reason, {end.key, end.reason, 0});
  ++reason->packets;
  while (reason != run.reasons.begin() && reason->packets > (reason - 1)->packets) {
    std::iter_swap(reason, reason - 1);
    --reason;
  }
}

}  // namespace analysis
