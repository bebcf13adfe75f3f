#include <alg_kit/report/ReportJson.h>

#include <alg_kit/analysis/ExplainingCommand.h>
#include <alg_kit/calibration/HealthJson.h>
#include <alg_kit/report/Base64.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

namespace report {
namespace {

using analysis::Envelope;
using nlohmann::ordered_json;

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

ordered_json jsonOf(const analysis::Moment& moment) {
  return {{"time_s", moment.seconds}, {"packet", moment.packet}, {"call", moment.call}};
}

ordered_json jsonOf(const std::optional<analysis::Lag>& lag,
                    const std::optional<double>& interval) {
  if (!lag) return nullptr;
  return {{"packets", lag->packets},
          {"ms", interval ? ordered_json(lag->packets * *interval) : ordered_json(nullptr)},
          {"difference_mm", lag->differenceMm},
          {"shifted_difference_mm", lag->shiftedMm},
          {"samples", lag->samples}};
}

ordered_json jsonOf(const std::optional<analysis::CalibrationFacts>& facts) {
  if (!facts) return nullptr;
  return {{"baseline_mm", facts->baselineMm},
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
  json["journal_missing"] = facts.metadata.journalMissing;
  json["dropped_calls"] = facts.metadata.droppedCalls;
  json["product_types"] = facts.productTypes;
  json["calls"] = facts.calls;
  json["packets"] = facts.packets;
  json["blocks"] = facts.blocks;
  json["seconds"] = facts.seconds;
  json["packets_per_second"] = orNull(facts.packetsPerSecond);
  json["median_interval_ms"] = orNull(facts.medianIntervalMs);
  json["has_truth"] = facts.hasTruth;
  json["frames_lost"] = facts.hasTruth ? ordered_json(facts.framesLost) : ordered_json(nullptr);
  json["calibration"] = jsonOf(facts.calibration);
  json["calibration_health"] = report::jsonOf(facts.health);
  return json;
}

ordered_json jsonOf(const analysis::ReportRules& rules) {
  return {{"jump_mm", rules.jumpMm},
          {"rest_packets", rules.restPackets},
          {"rest_mm", rules.restMm},
          {"swap_separation_mm", rules.swapSeparationMm},
          {"true_separation_mm", rules.trueSeparationMm},
          {"swap_packets", rules.swapPackets},
          {"lonely_packets", rules.lonelyPackets},
          {"bridge_s", rules.bridgeS},
          {"percentile_error", rules.percentileError}};
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
  json["longest_gap"] = nullptr;
  if (const auto& gap = presence.longestGap) {
    json["longest_gap"] = jsonOf(gap->first);
    json["longest_gap"]["packets"] = gap->packets;
    json["longest_gap"]["seconds"] = gap->seconds;
  }
  json["without_s"] = presence.withoutS;
  return json;
}

ordered_json jsonOf(const analysis::ObjectNumbers& object,
                    const analysis::RecordingFacts& recording) {
  ordered_json json;
  json["object"] = object.object;
  json["presence"] = jsonOf(object.presence, recording.hasTruth);
  json["error_mm"] = {{"raw", jsonOf(object.rawErrorMm)},
                      {"filtered", jsonOf(object.filteredErrorMm)},
                      {"estimated", jsonOf(object.estimated.errorMm)},
                      {"smoothed", jsonOf(object.smoothed.errorMm)}};
  json["epipolar_px"] = jsonOf(object.epipolarPx);
  json["ray_gap_mm"] = jsonOf(object.rayGapMm);
  json["jitter_mm"] = {{"rest_known_from_truth", object.restKnownFromTruth},
                       {"raw", jsonOf(object.rawJitterMm)},
                       {"filtered", jsonOf(object.filteredJitterMm)},
                       {"estimated", jsonOf(object.estimated.jitterMm)},
                       {"smoothed", jsonOf(object.smoothed.jitterMm)}};
  json["lag"] = jsonOf(object.lag, recording.medianIntervalMs);
  json["lag_estimated"] = jsonOf(object.estimated.lag, recording.medianIntervalMs);
  json["lag_smoothed"] = jsonOf(object.smoothed.lag, recording.medianIntervalMs);
  json["jumps"] = object.jumps;
  json["outliers"] = object.outliers;
  json["held"] = object.held;
  json["not_finite"] = object.notFinite;
  json["answers"] = {{"asked", object.answers.asked},
                     {"answered", object.answers.answered},
                     {"filtered", object.answers.filtered},
                     {"bridged", object.answers.bridged},
                     {"ahead", object.answers.ahead}};
  return json;
}

ordered_json jsonOf(const analysis::BodyNumbers& body) {
  ordered_json json;
  json["name"] = body.name;
  json["ids"] = body.ids;
  json["packets"] = body.packets;
  json["poses"] = body.poses;
  json["bridged"] = body.bridged;
  json["markers_visible"] = jsonOf(body.markersVisible);
  json["residual_px"] = jsonOf(body.residualPx);
  json["error"] = nullptr;
  if (body.positionErrorMm.count > 0)
    json["error"] = {{"position_mm", jsonOf(body.positionErrorMm)},
                     {"orientation_deg", jsonOf(body.turnErrorDeg)}};
  return json;
}

/// @param write  fills the JSON of an event beyond its moment
template <typename Event, typename MomentOf, typename Write>
ordered_json jsonOf(const analysis::Events<Event>& events, MomentOf momentOf, Write write) {
  auto first = ordered_json::array();
  for (const Event& event : events.first) {
    ordered_json json = jsonOf(momentOf(event));
    write(event, json);
    first.push_back(std::move(json));
  }
  return {{"count", events.count}, {"first", std::move(first)}};
}

ordered_json jumpsOf(const analysis::ReportNumbers& numbers) {
  return jsonOf(
      numbers.jumps, [](const analysis::JumpEvent& event) { return event.jump.at; },
      [](const analysis::JumpEvent& event, ordered_json& json) {
        json["object"] = event.object;
        json["distance_mm"] = event.jump.distanceMm;
        json["packets"] = event.jump.packets;
      });
}

ordered_json outliersOf(const analysis::ReportNumbers& numbers) {
  ordered_json json = jsonOf(
      numbers.outliers, [](const analysis::OutlierEvent& event) { return event.outlier.at; },
      [](const analysis::OutlierEvent& event, ordered_json& found) {
        found["object"] = event.object;
        found["distance_mm"] = event.outlier.distanceMm;
      });
  json["known_from_truth"] = numbers.outliersKnownFromTruth;
  return json;
}

ordered_json swapsOf(const analysis::ReportNumbers& numbers) {
  const bool known = numbers.swapsKnownFromTruth;
  ordered_json json = jsonOf(
      numbers.swaps, [](const analysis::Swap& swap) { return swap.from; },
      [known](const analysis::Swap& swap, ordered_json& found) {
        found["packets"] = known ? ordered_json(swap.packets) : ordered_json(nullptr);
        found["objects"] = {swap.a, swap.b};
      });
  json["known_from_truth"] = known;
  return json;
}

ordered_json worstOf(const analysis::ReportNumbers& numbers, const std::string& path) {
  auto list = ordered_json::array();
  for (const analysis::WorstMoment& moment : numbers.worst) {
    ordered_json json;
    json["kind"] = keyOf(moment.kind);
    json.update(jsonOf(moment.first));
    json["until_s"] = moment.last.seconds;
    json["object"] = moment.object < 0 ? ordered_json(nullptr) : ordered_json(moment.object);
    const bool isGap = moment.kind == analysis::WorstMoment::Kind::kGap;
    const bool isCorrupt = moment.kind == analysis::WorstMoment::Kind::kCorrupt;
    json["seconds"] = isGap ? ordered_json(moment.value) : ordered_json(nullptr);
    json["distance_mm"] = isGap || isCorrupt ? ordered_json(nullptr) : ordered_json(moment.value);
    json["command"] = explainingCommand(moment, path.empty() ? numbers.recording.file : path);
    list.push_back(std::move(json));
  }
  return list;
}

ordered_json jsonOf(const analysis::PacketTimes& times) {
  auto bins = ordered_json::array();
  for (const analysis::HistogramBin& bin : times.histogram)
    bins.push_back({bin.from, bin.to, bin.count});
  return {{"source", times.measuredAnew ? "replayed" : "recorded"},
          {"distribution", jsonOf(times.us)},
          {"histogram", std::move(bins)}};
}

ordered_json rowOf(const std::vector<float>& values) {
  if (std::none_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); }))
    return nullptr;
  return base64Of(values);
}

/// @param shared  the columns span more than one packet
ordered_json jsonOf(const Envelope& envelope, bool shared) {
  ordered_json low = rowOf(envelope.low);
  if (low.is_null()) return nullptr;
  if (!shared) return {{"values", std::move(low)}};
  return {{"low", std::move(low)}, {"high", rowOf(envelope.high)}};
}

ordered_json jsonOf(const analysis::PlaceCurves& curves, bool shared) {
  ordered_json x = jsonOf(curves[0], shared);
  if (x.is_null()) return nullptr;
  return {{"x", std::move(x)}, {"y", jsonOf(curves[1], shared)}, {"z", jsonOf(curves[2], shared)}};
}

ordered_json jsonOf(const analysis::Path& path) {
  std::array<std::vector<float>, analysis::kAxes> rows;
  for (const analysis::Place& place : path)
    for (std::size_t axis = 0; axis < analysis::kAxes; ++axis)
      rows[axis].push_back(static_cast<float>(axisOf(place, axis)));
  return {{"x", base64Of(rows[0])}, {"y", base64Of(rows[1])}, {"z", base64Of(rows[2])}};
}

}  // namespace

ordered_json jsonOf(const std::optional<analysis::HealthFacts>& facts) {
  if (!facts) return nullptr;
  return {{"verdict", facts->verdict},
          {"text", facts->text},
          {"trend", calibration::toJson(facts->trend)}};
}

ordered_json jsonOf(const analysis::ReportNumbers& numbers, const std::string& path) {
  ordered_json json;
  json["rules"] = jsonOf(numbers.rules);
  json["range"] = {{"object", orNull(numbers.range.object)},
                   {"from_s", orNull(numbers.range.time.from)},
                   {"to_s", orNull(numbers.range.time.to)}};
  json["recording"] = jsonOf(numbers.recording);
  json["notices"] = numbers.notices;
  json["worst"] = worstOf(numbers, path);
  auto objects = ordered_json::array();
  for (const analysis::ObjectNumbers& object : numbers.objects)
    objects.push_back(jsonOf(object, numbers.recording));
  json["objects"] = std::move(objects);
  auto bodies = ordered_json::array();
  for (const analysis::BodyNumbers& body : numbers.bodies) bodies.push_back(jsonOf(body));
  json["bodies"] = std::move(bodies);
  json["jumps"] = jumpsOf(numbers);
  json["outliers"] = outliersOf(numbers);
  json["swaps"] = swapsOf(numbers);
  json["corrupt_packets"] = numbers.corruptPackets;
  json["packet_time_us"] = jsonOf(numbers.packetTimes);
  auto messages = ordered_json::array();
  for (const analysis::ReportMessage& message : numbers.messages)
    messages.push_back({{"level", message.level},
                        {"text", message.text},
                        {"count", message.count},
                        {"first", jsonOf(message.first)}});
  json["messages"] = std::move(messages);
  json["messages_left_out"] = numbers.messagesLeftOut;
  return json;
}

ordered_json jsonOf(const analysis::ReportCurves& curves) {
  const bool shared = curves.columnS > 0;
  ordered_json json;
  json["times"] = curves.times;
  json["column_s"] = curves.columnS;
  json["packets"] = curves.packets;
  json["calls"] = curves.calls;
  auto objects = ordered_json::array();
  for (const analysis::ObjectCurves& object : curves.objects)
    objects.push_back({{"raw", jsonOf(object.raw, shared)},
                       {"filtered", jsonOf(object.filtered, shared)},
                       {"smoothed", jsonOf(object.smoothed, shared)},
                       {"truth", jsonOf(object.truth, shared)},
                       {"raw_error", jsonOf(object.rawError, shared)},
                       {"filtered_error", jsonOf(object.filteredError, shared)},
                       {"estimated_error", jsonOf(object.estimatedError, shared)},
                       {"smoothed_error", jsonOf(object.smoothedError, shared)},
                       {"epipolar", jsonOf(object.epipolar, shared)},
                       {"ray_gap", jsonOf(object.rayGap, shared)},
                       {"seen", object.seen},
                       {"absent", object.absent},
                       {"path", jsonOf(object.path)},
                       {"true_path", jsonOf(object.truePath)}});
  json["objects"] = std::move(objects);
  auto bodies = ordered_json::array();
  for (const analysis::BodyCurves& body : curves.bodies)
    bodies.push_back({{"position_error", jsonOf(body.positionError, shared)},
                      {"orientation_error", jsonOf(body.turnError, shared)},
                      {"residual", jsonOf(body.residual, shared)},
                      {"visible", jsonOf(body.visible, shared)}});
  json["bodies"] = std::move(bodies);
  return json;
}

}  // namespace report
