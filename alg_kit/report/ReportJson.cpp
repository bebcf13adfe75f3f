#include <alg_kit/report/ReportJson.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace report {
namespace {

using analysis::Envelope;
using nlohmann::ordered_json;

ordered_json rounded(double value) {
  if (!std::isfinite(value)) return nullptr;
  return std::round(value * 1000) / 1000;
}

ordered_json rounded(const std::vector<double>& values) {
  auto array = ordered_json::array();
  for (const double value : values) array.push_back(rounded(value));
  return array;
}

template <typename T>
ordered_json orNull(const std::optional<T>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
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

ordered_json jsonOf(const std::optional<analysis::CalibrationFacts>& facts) {
  if (!facts) return nullptr;
  return {{"baseline", facts->baselineMm},
          {"left_focal_px", facts->leftFocalPx},
          {"right_focal_px", facts->rightFocalPx}};
}

ordered_json jsonOf(const analysis::RecordingFacts& facts) {
  ordered_json json;
  json["file"] = facts.file;
  json["library_version"] = facts.metadata.libraryVersion;
  json["platform"] = facts.metadata.platform;
  json["clock"] = facts.metadata.clock;
  json["complete"] = facts.metadata.complete;
  json["dropped_calls"] = facts.metadata.droppedCalls;
  json["product_types"] = facts.productTypes;
  json["calls"] = facts.calls;
  json["packets"] = facts.packets;
  json["blocks"] = facts.blocks;
  json["seconds"] = facts.seconds;
  json["packets_per_second"] = orNull(facts.packetsPerSecond);
  json["has_truth"] = facts.hasTruth;
  json["frames_lost"] = facts.hasTruth ? ordered_json(facts.framesLost) : ordered_json(nullptr);
  json["calibration"] = jsonOf(facts.calibration);
  return json;
}

ordered_json jsonOf(const analysis::ReportRules& rules) {
  return {{"jump_mm", rules.jumpMm},
          {"rest_packets", rules.restPackets},
          {"rest_mm", rules.restMm},
          {"swap_separation_mm", rules.swapSeparationMm},
          {"true_separation_mm", rules.trueSeparationMm},
          {"bridge_s", rules.bridgeS}};
}

ordered_json jsonOf(const analysis::PresenceNumbers& presence, bool hasTruth) {
  const auto known = [&](std::int64_t count) {
    return hasTruth ? ordered_json(count) : ordered_json(nullptr);
  };
  ordered_json json;
  json["packets"] = presence.packets;
  json["seen"] = presence.seen;
  json["seen_share"] =
      presence.packets > 0
          ? ordered_json(static_cast<double>(presence.seen) / static_cast<double>(presence.packets))
          : ordered_json(nullptr);
  json["visible"] = known(presence.visible);
  json["visible_seen"] = known(presence.visibleSeen);
  json["first_seen_s"] = orNull(presence.firstSeenS);
  json["last_seen_s"] = orNull(presence.lastSeenS);
  json["gaps"] = presence.gaps;
  json["longest_gap_packets"] = presence.longestGapPackets;
  json["longest_gap_s"] = presence.longestGapS;
  json["all_gaps_s"] = presence.allGapsS;
  return json;
}

ordered_json jsonOf(const analysis::ObjectNumbers& object, bool hasTruth) {
  ordered_json json;
  json["object"] = object.object;
  json["presence"] = jsonOf(object.presence, hasTruth);
  json["error_mm"] = {{"raw", jsonOf(object.rawErrorMm)},
                      {"filtered", jsonOf(object.filteredErrorMm)}};
  json["epipolar_px"] = jsonOf(object.epipolarPx);
  json["ray_gap_mm"] = jsonOf(object.rayGapMm);
  json["jitter_mm"] = {{"rest_known_from_truth", object.restKnownFromTruth},
                       {"raw", jsonOf(object.rawJitterMm)},
                       {"filtered", jsonOf(object.filteredJitterMm)}};
  json["jumps"] = object.jumps;
  json["held"] = object.held;
  json["not_finite"] = object.notFinite;
  json["answers"] = {{"count", object.answers},
                     {"filtered", object.answersFiltered},
                     {"bridged", object.answersBridged}};
  return json;
}

ordered_json jumpsOf(const analysis::ReportNumbers& numbers) {
  auto events = ordered_json::array();
  for (const analysis::JumpEvent& event : numbers.jumps)
    events.push_back({{"time_s", event.timeS},
                      {"packet", event.jump.packet},
                      {"object", event.object},
                      {"distance_mm", event.jump.distance},
                      {"packets", event.jump.packets}});
  return {{"limit_mm", numbers.rules.jumpMm},
          {"count", numbers.jumpCount},
          {"first", std::move(events)}};
}

ordered_json swapsOf(const analysis::ReportNumbers& numbers) {
  auto events = ordered_json::array();
  for (const analysis::SwapEvent& event : numbers.swaps)
    events.push_back({{"time_s", event.timeS},
                      {"packet", event.swap.first},
                      {"packets", event.swap.packets},
                      {"objects", {event.swap.a, event.swap.b}}});
  return {{"known_from_truth", numbers.swapsKnownFromTruth},
          {"count", numbers.swapCount},
          {"first", std::move(events)}};
}

ordered_json jsonOf(const analysis::PacketTimes& times) {
  auto bins = ordered_json::array();
  for (const analysis::HistogramBin& bin : times.histogram)
    bins.push_back({bin.from, bin.to, bin.count});
  return {{"source", times.measuredAnew ? "replayed" : "recorded"},
          {"distribution", jsonOf(times.us)},
          {"histogram", std::move(bins)}};
}

/// @param shared  the columns span more than one packet
ordered_json jsonOf(const Envelope& envelope, bool shared) {
  if (!shared) return {{"values", rounded(envelope.low)}};
  return {{"low", rounded(envelope.low)}, {"high", rounded(envelope.high)}};
}

ordered_json jsonOf(const analysis::PlaceCurves& curves, bool shared) {
  if (curves[0].low.empty()) return nullptr;
  return {{"x", jsonOf(curves[0], shared)},
          {"y", jsonOf(curves[1], shared)},
          {"z", jsonOf(curves[2], shared)}};
}

ordered_json jsonOf(const analysis::Path& path) {
  ordered_json json;
  const char* const kNames[] = {"x", "y", "z"};
  for (std::size_t axis = 0; axis < analysis::kAxes; ++axis) {
    auto row = ordered_json::array();
    for (const analysis::Place& place : path) row.push_back(rounded(axisOf(place, axis)));
    json[kNames[axis]] = std::move(row);
  }
  return json;
}

}  // namespace

ordered_json jsonOf(const analysis::ReportNumbers& numbers) {
  ordered_json json;
  json["rules"] = jsonOf(numbers.rules);
  json["recording"] = jsonOf(numbers.recording);
  json["notices"] = numbers.notices;
  auto objects = ordered_json::array();
  for (const analysis::ObjectNumbers& object : numbers.objects)
    objects.push_back(jsonOf(object, numbers.recording.hasTruth));
  json["objects"] = std::move(objects);
  json["jumps"] = jumpsOf(numbers);
  json["swaps"] = swapsOf(numbers);
  json["packet_time_us"] = jsonOf(numbers.packetTimes);
  auto messages = ordered_json::array();
  for (const analysis::ReportMessage& message : numbers.messages)
    messages.push_back({{"level", message.level},
                        {"text", message.text},
                        {"count", message.count},
                        {"first_call", message.firstCall}});
  json["messages"] = std::move(messages);
  return json;
}

ordered_json jsonOf(const analysis::ReportCurves& curves) {
  const bool shared = curves.bucketS > 0;
  ordered_json json;
  json["times"] = rounded(curves.times);
  json["bucket_s"] = curves.bucketS;
  json["presence_times"] = rounded(curves.presenceTimes);
  auto objects = ordered_json::array();
  for (const analysis::ObjectCurves& object : curves.objects)
    objects.push_back({{"raw", jsonOf(object.raw, shared)},
                       {"filtered", jsonOf(object.filtered, shared)},
                       {"truth", jsonOf(object.truth, shared)},
                       {"raw_error", jsonOf(object.rawError, shared)},
                       {"filtered_error", jsonOf(object.filteredError, shared)},
                       {"epipolar", jsonOf(object.epipolar, shared)},
                       {"ray_gap", jsonOf(object.rayGap, shared)},
                       {"seen", object.seen},
                       {"absent", object.absent},
                       {"path", jsonOf(object.path)},
                       {"true_path", jsonOf(object.truePath)}});
  json["objects"] = std::move(objects);
  return json;
}

std::string textOf(const ordered_json& json, int indent) {
  return json.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace report
