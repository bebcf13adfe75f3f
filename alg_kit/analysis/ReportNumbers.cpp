#include <alg_kit/analysis/ReportNumbers.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

namespace analysis {
namespace {

Distribution distributionOfRow(const std::vector<float>& values) {
  return distributionOf({values.begin(), values.end()});
}

std::string plural(std::int64_t count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

double medianInterval(const std::vector<double>& times) {
  std::vector<double> intervals;
  for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
  return distributionOf(std::move(intervals)).median;
}

std::optional<CalibrationFacts> calibrationOf(const ReportData& data) {
  for (auto it = data.configurations.rbegin(); it != data.configurations.rend(); ++it) {
    if (!it->calibration) continue;
    const double* const t = it->calibration->translation;
    const auto focal = [](const double* k) { return std::array<double, 2>{k[0], k[4]}; };
    return CalibrationFacts{std::hypot(t[0], t[1], t[2]), focal(it->calibration->leftIntrinsics),
                            focal(it->calibration->rightIntrinsics)};
  }
  return std::nullopt;
}

RecordingFacts recordingOf(const ReportData& data) {
  RecordingFacts facts;
  facts.file = std::filesystem::path(data.file).filename().string();
  facts.metadata = data.metadata;
  for (const auto& configuration : data.configurations)
    if (facts.productTypes.empty() || facts.productTypes.back() != configuration.productType)
      facts.productTypes.push_back(configuration.productType);
  facts.calls = data.calls;
  facts.packets = static_cast<std::int64_t>(data.times.size());
  facts.blocks = data.blocks;
  facts.seconds = data.seconds;
  const double interval = medianInterval(data.times);
  if (interval > 0) facts.packetsPerSecond = 1 / interval;
  facts.hasTruth = data.hasTruth;
  facts.framesLost = data.framesLost;
  facts.calibration = calibrationOf(data);
  return facts;
}

std::vector<std::string> noticesOf(const ReportData& data) {
  std::vector<std::string> notices;
  if (!data.metadata.complete)
    notices.push_back(
        "The recording was cut off, or still goes on: what follows its last whole "
        "call is missing.");
  if (data.metadata.droppedCalls > 0)
    notices.push_back(
        plural(data.metadata.droppedCalls, "call was", "calls were") +
        " dropped by the recorder because the disk did not keep up. Gaps may be its own.");
  if (data.blocksDiffering > 0)
    notices.push_back(
        "A replay delivers " + plural(data.blocksDiffering, "block", "blocks") +
        " otherwise than recorded. Positions are the recorded ones; epipolar residual, ray gap "
        "and held positions are those of the replay.");
  if (data.timesBackwards > 0)
    notices.push_back(plural(data.timesBackwards, "packet has", "packets have") +
                      " a time before the packet's before it, and stand at that one's time.");
  if (data.framesLost > 0)
    notices.push_back(plural(data.framesLost, "frame", "frames") +
                      " never reached the library (packets lost on the way). They count in no "
                      "share below.");
  std::int64_t notFinite = 0;
  for (const ObjectTrack& track : data.objects) notFinite += track.notFinite;
  if (notFinite > 0)
    notices.push_back(plural(notFinite, "delivered position is", "delivered positions are") +
                      " not finite.");
  return notices;
}

PresenceNumbers presenceOf(const ReportData& data, const ObjectTrack& track) {
  PresenceNumbers numbers;
  for (std::size_t packet = 0; packet < track.presence.size(); ++packet) {
    if (track.presence[packet] == Presence::kNoSuchObject) continue;
    ++numbers.packets;
    if (track.presence[packet] != Presence::kSeen) continue;
    ++numbers.seen;
    if (!numbers.firstSeenS) numbers.firstSeenS = data.times[packet];
    numbers.lastSeenS = data.times[packet];
  }
  numbers.visible = track.visible;
  numbers.visibleSeen = track.visibleSeen;
  for (const Gap& gap : gapsOf(track.presence)) {
    ++numbers.gaps;
    // From the last time it was seen to the next.
    const double seconds = data.times[gap.first + gap.packets] - data.times[gap.first - 1];
    numbers.longestGapS = std::max(numbers.longestGapS, seconds);
    numbers.longestGapPackets =
        std::max(numbers.longestGapPackets, static_cast<std::int64_t>(gap.packets));
    numbers.allGapsS += seconds;
  }
  return numbers;
}

ObjectNumbers objectOf(const ReportData& data, const ObjectTrack& track) {
  ObjectNumbers numbers;
  numbers.object = track.object;
  numbers.presence = presenceOf(data, track);
  numbers.rawErrorMm = distributionOfRow(track.rawError);
  numbers.filteredErrorMm = distributionOfRow(track.filteredError);
  numbers.epipolarPx = distributionOfRow(track.epipolar);
  numbers.rayGapMm = distributionOfRow(track.rayGap);
  numbers.restKnownFromTruth =
      data.hasTruth && std::any_of(track.truth.begin(), track.truth.end(), isSomewhere);
  const auto windows = numbers.restKnownFromTruth ? restAgainstTruth(track.raw, track.truth)
                                                  : suspectedRest(track.raw);
  numbers.rawJitterMm = jitterOf(track.raw, windows);
  numbers.filteredJitterMm = jitterOf(track.filtered, windows);
  numbers.held = track.held;
  numbers.notFinite = track.notFinite;
  numbers.answers = track.answers;
  numbers.answersFiltered = track.answersFiltered;
  numbers.answersBridged = track.answersBridged;
  return numbers;
}

void addJumps(const ReportData& data, const ObjectTrack& track, ReportNumbers& numbers) {
  const std::vector<Jump> jumps = jumpsOf(track.raw, numbers.rules.jumpMm);
  numbers.objects.back().jumps = static_cast<std::int64_t>(jumps.size());
  numbers.jumpCount += numbers.objects.back().jumps;
  for (const Jump& jump : jumps) {
    if (numbers.jumps.size() == kMostEvents) break;
    numbers.jumps.push_back({data.times[jump.packet], track.object, jump});
  }
}

void addSwaps(const ReportData& data, ReportNumbers& numbers) {
  std::vector<std::vector<Place>> places, truths;
  for (const ObjectTrack& track : data.objects) {
    places.push_back(track.raw);
    truths.push_back(track.truth);
  }
  const auto swaps = data.hasTruth ? swapsAgainstTruth(places, truths) : suspectedSwaps(places);
  numbers.swapsKnownFromTruth = data.hasTruth;
  numbers.swapCount = static_cast<std::int64_t>(swaps.size());
  for (const Swap& swap : swaps) {
    if (numbers.swaps.size() == kMostEvents) break;
    numbers.swaps.push_back({data.times[swap.first], swap});
  }
}

}  // namespace

ReportNumbers numbersOf(const ReportData& data, const ReportRules& rules) {
  ReportNumbers numbers;
  numbers.rules = rules;
  numbers.recording = recordingOf(data);
  numbers.notices = noticesOf(data);
  for (const ObjectTrack& track : data.objects) {
    numbers.objects.push_back(objectOf(data, track));
    addJumps(data, track, numbers);
  }
  addSwaps(data, numbers);
  numbers.packetTimes = {data.measuredAnew, distributionOf(data.packetTimes),
                         logarithmicHistogram(data.packetTimes)};
  numbers.messages = data.messages;
  return numbers;
}

}  // namespace analysis
