#include <tools/algtrack/ReportJson.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>

namespace algtrack {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostBuckets = 3000;
constexpr std::size_t kMostPathPoints = 3000;
constexpr std::size_t kPresenceBuckets = 1200;
constexpr std::size_t kMostEvents = 200;
constexpr double kLongestBridge = 0.25;  // seconds; a path is drawn on across shorter gaps

/// Three digits behind the point: micrometres, and a thousandth of a pixel.
ordered_json rounded(double value) {
  if (!std::isfinite(value)) return nullptr;
  return std::round(value * 1000) / 1000;
}

ordered_json rounded(const std::vector<double>& values) {
  auto array = ordered_json::array();
  for (const double value : values) array.push_back(rounded(value));
  return array;
}

ordered_json jsonOf(const analysis::Distribution& d) {
  if (d.count == 0) return nullptr;
  return {{"count", d.count},   {"mean", d.mean}, {"rms", d.rootMeanSquare},
          {"median", d.median}, {"p90", d.p90},   {"p95", d.p95},
          {"p99", d.p99},       {"p999", d.p999}, {"largest", d.largest}};
}

ordered_json jsonOf(const analysis::Jitter& jitter) {
  if (jitter.windows == 0) return nullptr;
  return {{"windows", jitter.windows}, {"x", jitter.deviation[0]}, {"y", jitter.deviation[1]},
          {"z", jitter.deviation[2]},  {"total", jitter.total},    {"largest", jitter.largest}};
}

std::vector<double> widened(const std::vector<float>& values) {
  return {values.begin(), values.end()};
}

analysis::Distribution distributionOf(const std::vector<float>& values) {
  return analysis::distributionOf(widened(values));
}

std::vector<double> column(const std::vector<analysis::Place>& places, std::size_t axis) {
  std::vector<double> values;
  values.reserve(places.size());
  for (const analysis::Place& place : places) values.push_back(axisOf(place, axis));
  return values;
}

bool anywhere(const std::vector<analysis::Place>& places) {
  for (const analysis::Place& place : places)
    if (analysis::isSomewhere(place)) return true;
  return false;
}

std::string plural(std::int64_t count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

double medianInterval(const std::vector<double>& times) {
  std::vector<double> intervals;
  for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
  return analysis::distributionOf(std::move(intervals)).median;
}

ordered_json calibrationOf(const ReportData& data) {
  for (auto it = data.configurations.rbegin(); it != data.configurations.rend(); ++it) {
    if (!it->calibration) continue;
    const double* const t = it->calibration->translation;
    return {
        {"baseline", std::hypot(t[0], t[1], t[2])},
        {"left_focal_px", {it->calibration->leftIntrinsics[0], it->calibration->leftIntrinsics[4]}},
        {"right_focal_px",
         {it->calibration->rightIntrinsics[0], it->calibration->rightIntrinsics[4]}}};
  }
  return nullptr;
}

ordered_json recordingOf(const ReportData& data) {
  ordered_json json;
  json["file"] = std::filesystem::path(data.file).filename().string();
  json["library_version"] = data.metadata.libraryVersion;
  json["platform"] = data.metadata.platform;
  json["clock"] = data.metadata.clock;
  json["complete"] = data.metadata.complete;
  json["dropped_calls"] = data.metadata.droppedCalls;
  auto types = ordered_json::array();
  for (const auto& configuration : data.configurations) {
    if (types.empty() || types.back() != configuration.productType)
      types.push_back(configuration.productType);
  }
  json["product_types"] = std::move(types);
  json["calls"] = data.calls;
  json["packets"] = data.times.size();
  json["blocks"] = data.blocks;
  json["seconds"] = data.seconds;
  const double interval = medianInterval(data.times);
  json["packets_per_second"] = interval > 0 ? ordered_json(1 / interval) : ordered_json(nullptr);
  json["has_truth"] = data.hasTruth;
  json["frames_lost"] = data.hasTruth ? ordered_json(data.framesLost) : ordered_json(nullptr);
  json["calibration"] = calibrationOf(data);
  return json;
}

ordered_json noticesOf(const ReportData& data) {
  auto notices = ordered_json::array();
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

ordered_json presenceOf(const ReportData& data, const ObjectTrack& track) {
  std::int64_t packets = 0, seen = 0;
  ordered_json first = nullptr, last = nullptr;
  for (std::size_t packet = 0; packet < track.presence.size(); ++packet) {
    if (track.presence[packet] == analysis::Presence::kNoSuchObject) continue;
    ++packets;
    if (track.presence[packet] != analysis::Presence::kSeen) continue;
    ++seen;
    if (first.is_null()) first = data.times[packet];
    last = data.times[packet];
  }
  const std::vector<analysis::Gap> gaps = analysis::gapsOf(track.presence);
  double longest = 0, total = 0;
  std::size_t longestPackets = 0;
  for (const analysis::Gap& gap : gaps) {
    // From the last time it was seen to the next.
    const double seconds = data.times[gap.first + gap.packets] - data.times[gap.first - 1];
    longest = std::max(longest, seconds);
    longestPackets = std::max(longestPackets, gap.packets);
    total += seconds;
  }
  ordered_json json;
  json["packets"] = packets;
  json["seen"] = seen;
  json["seen_share"] = packets > 0
                           ? ordered_json(static_cast<double>(seen) / static_cast<double>(packets))
                           : ordered_json(nullptr);
  json["visible"] = data.hasTruth ? ordered_json(track.visible) : ordered_json(nullptr);
  json["visible_seen"] = data.hasTruth ? ordered_json(track.visibleSeen) : ordered_json(nullptr);
  json["first_seen_s"] = first;
  json["last_seen_s"] = last;
  json["gaps"] = gaps.size();
  json["longest_gap_packets"] = longestPackets;
  json["longest_gap_s"] = longest;
  json["all_gaps_s"] = total;
  return json;
}

ordered_json jitterOf(const ReportData& data, const ObjectTrack& track) {
  const bool known = data.hasTruth && anywhere(track.truth);
  const auto windows = known ? analysis::restAgainstTruth(track.raw, track.truth)
                             : analysis::suspectedRest(track.raw);
  return {{"rest_known_from_truth", known},
          {"raw", jsonOf(analysis::jitterOf(track.raw, windows))},
          {"filtered", jsonOf(analysis::jitterOf(track.filtered, windows))}};
}

ordered_json objectOf(const ReportData& data, const ObjectTrack& track, std::size_t jumps) {
  ordered_json json;
  json["object"] = track.object;
  json["presence"] = presenceOf(data, track);
  json["error_mm"] = {{"raw", jsonOf(distributionOf(track.rawError))},
                      {"filtered", jsonOf(distributionOf(track.filteredError))}};
  json["epipolar_px"] = jsonOf(distributionOf(track.epipolar));
  json["ray_gap_mm"] = jsonOf(distributionOf(track.rayGap));
  json["jitter_mm"] = jitterOf(data, track);
  json["jumps"] = jumps;
  json["held"] = track.held;
  json["not_finite"] = track.notFinite;
  json["answers"] = {{"count", track.answers},
                     {"filtered", track.answersFiltered},
                     {"bridged", track.answersBridged}};
  return json;
}

ordered_json swapsOf(const ReportData& data) {
  std::vector<std::vector<analysis::Place>> places, truths;
  for (const ObjectTrack& track : data.objects) {
    places.push_back(track.raw);
    truths.push_back(track.truth);
  }
  const auto swaps = data.hasTruth ? analysis::swapsAgainstTruth(places, truths)
                                   : analysis::suspectedSwaps(places);
  auto events = ordered_json::array();
  for (const analysis::Swap& swap : swaps) {
    if (events.size() == kMostEvents) break;
    events.push_back({{"time_s", data.times[swap.first]},
                      {"packet", swap.first},
                      {"packets", swap.packets},
                      {"objects", {swap.a, swap.b}}});
  }
  return {{"known_from_truth", data.hasTruth}, {"count", swaps.size()}, {"first", events}};
}

ordered_json timesOf(const ReportData& data) {
  auto bins = ordered_json::array();
  for (const analysis::HistogramBin& bin : analysis::logarithmicHistogram(data.packetTimes))
    bins.push_back({bin.from, bin.to, bin.count});
  return {{"source", data.measuredAnew ? "replayed" : "recorded"},
          {"distribution", jsonOf(analysis::distributionOf(data.packetTimes))},
          {"histogram", std::move(bins)}};
}

ordered_json pathOf(const ReportData& data, const std::vector<analysis::Place>& places) {
  auto x = ordered_json::array(), y = ordered_json::array(), z = ordered_json::array();
  std::size_t last = 0;
  double present = 0;  // the time up to which the object was there
  const std::vector<std::size_t> packets = analysis::pathPackets(places, kMostPathPoints);
  for (const std::size_t packet : packets) {
    // Look through the packets that are not drawn: only a true gap ends a line.
    bool broken = false;
    for (std::size_t between = last + 1; !x.empty() && between <= packet; ++between) {
      if (!analysis::isSomewhere(places[between])) continue;
      broken = broken || data.times[between] - present > kLongestBridge;
      present = data.times[between];
    }
    present = data.times[packet];
    last = packet;
    if (broken)
      for (auto* row : {&x, &y, &z}) row->push_back(nullptr);
    x.push_back(rounded(axisOf(places[packet], 0)));
    y.push_back(rounded(axisOf(places[packet], 1)));
    z.push_back(rounded(axisOf(places[packet], 2)));
  }
  return {{"x", std::move(x)}, {"y", std::move(y)}, {"z", std::move(z)}};
}

ordered_json seriesOf(const analysis::Buckets& buckets, const std::vector<double>& values) {
  const analysis::Envelope envelope = buckets.envelopeOf(values);
  if (!buckets.shared()) return {{"values", rounded(envelope.low)}};
  return {{"low", rounded(envelope.low)}, {"high", rounded(envelope.high)}};
}

ordered_json placesOf(const analysis::Buckets& buckets,
                      const std::vector<analysis::Place>& places) {
  if (!anywhere(places)) return nullptr;
  return {{"x", seriesOf(buckets, column(places, 0))},
          {"y", seriesOf(buckets, column(places, 1))},
          {"z", seriesOf(buckets, column(places, 2))}};
}

}  // namespace

ordered_json numbersOf(const ReportData& data, const ReportRules& rules) {
  ordered_json json;
  json["recording"] = recordingOf(data);
  json["notices"] = noticesOf(data);
  auto objects = ordered_json::array(), jumpEvents = ordered_json::array();
  std::size_t jumpCount = 0;
  for (const ObjectTrack& track : data.objects) {
    const std::vector<analysis::Jump> jumps = analysis::jumpsOf(track.raw, rules.jumpLimit);
    jumpCount += jumps.size();
    for (const analysis::Jump& jump : jumps) {
      if (jumpEvents.size() == kMostEvents) break;
      jumpEvents.push_back({{"time_s", data.times[jump.packet]},
                            {"packet", jump.packet},
                            {"object", track.object},
                            {"distance_mm", jump.distance},
                            {"packets", jump.packets}});
    }
    objects.push_back(objectOf(data, track, jumps.size()));
  }
  json["objects"] = std::move(objects);
  json["jumps"] = {
      {"limit_mm", rules.jumpLimit}, {"count", jumpCount}, {"first", std::move(jumpEvents)}};
  json["swaps"] = swapsOf(data);
  json["packet_time_us"] = timesOf(data);
  auto messages = ordered_json::array();
  for (const ReportMessage& message : data.messages)
    messages.push_back({{"level", message.level},
                        {"text", message.text},
                        {"count", message.count},
                        {"first_call", message.firstCall}});
  json["messages"] = std::move(messages);
  return json;
}

ordered_json rowsOf(const ReportData& data) {
  const analysis::Buckets buckets(data.times, kMostBuckets);
  const analysis::Buckets coarse(data.times, kPresenceBuckets);
  ordered_json json;
  json["times"] = rounded(buckets.times());
  json["bucket_s"] = buckets.width();
  json["presence_times"] = rounded(coarse.times());
  auto objects = ordered_json::array();
  for (const ObjectTrack& track : data.objects) {
    ordered_json object;
    object["raw"] = placesOf(buckets, track.raw);
    object["filtered"] = placesOf(buckets, track.filtered);
    object["truth"] = placesOf(buckets, track.truth);
    object["raw_error"] = seriesOf(buckets, widened(track.rawError));
    object["filtered_error"] = seriesOf(buckets, widened(track.filteredError));
    object["epipolar"] = seriesOf(buckets, widened(track.epipolar));
    object["ray_gap"] = seriesOf(buckets, widened(track.rayGap));
    object["seen"] = coarse.count(
        [&](std::size_t packet) { return track.presence[packet] == analysis::Presence::kSeen; });
    object["absent"] = coarse.count(
        [&](std::size_t packet) { return track.presence[packet] == analysis::Presence::kAbsent; });
    object["path"] = pathOf(data, track.raw);
    object["true_path"] = pathOf(data, track.truth);
    objects.push_back(std::move(object));
  }
  json["objects"] = std::move(objects);
  return json;
}

}  // namespace algtrack
