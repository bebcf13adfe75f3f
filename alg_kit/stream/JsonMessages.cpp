#include <alg_kit/stream/JsonMessages.h>

#include <alg_kit/stream/Schemas.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace stream {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t kNsPerSecond = 1000000000;
constexpr double kMarkerMetres = 0.03;  // a sphere that is seen across a room
constexpr double kLabelMetres = 0.06;

// A viewer that gets no more messages shows nothing stale for longer than this.
const Json kLifetime = {{"sec", 1}, {"nsec", 0}};

// The colours that objects have in the report.
constexpr std::array<std::array<double, 3>, algorithm::kMaxObjects> kColours = {
    {{0x2F / 255.0, 0x6F / 255.0, 0xDB / 255.0},
     {0xD9 / 255.0, 0x73 / 255.0, 0x0D / 255.0},
     {0x1F / 255.0, 0x9D / 255.0, 0x6B / 255.0},
     {0xB8 / 255.0, 0x3F / 255.0, 0x95 / 255.0},
     {0x7B / 255.0, 0x57 / 255.0, 0xD1 / 255.0},
     {0x0E / 255.0, 0x8F / 255.0, 0xA8 / 255.0}}};

std::uint64_t messageTime(const Place& place) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(place.hostNs, 0));
}

Json timeOf(const Place& place) {
  const auto ns = static_cast<std::int64_t>(messageTime(place));
  return {{"sec", ns / kNsPerSecond}, {"nsec", ns % kNsPerSecond}};
}

Json known(std::int64_t number) {
  return number < 0 ? Json(nullptr) : Json(number);
}

/// What every message begins with.
Json headOf(const Place& place, const std::string& unit, const char* frame) {
  return {{"version", kVersion},
          {"timestamp", timeOf(place)},
          {"frame_number", known(place.frame)},
          {"call", place.call},
          {"unit", unit},
          {"frame_id", frame}};
}

Json vector(double x, double y, double z) {
  return {{"x", x}, {"y", y}, {"z", z}};
}

Json quaternion(double x, double y, double z, double w) {
  return {{"x", x}, {"y", y}, {"z", z}, {"w", w}};
}

/// Of a rotation matrix, by its largest part.
Json quaternion(const double (&r)[9]) {
  const std::array<double, 4> squares = {1 + r[0] - r[4] - r[8], 1 - r[0] + r[4] - r[8],
                                         1 - r[0] - r[4] + r[8], 1 + r[0] + r[4] + r[8]};
  const auto largest = std::max_element(squares.begin(), squares.end());
  const double d = std::sqrt(*largest) * 2;
  switch (largest - squares.begin()) {
    case 0:
      return quaternion(d / 4, (r[1] + r[3]) / d, (r[2] + r[6]) / d, (r[7] - r[5]) / d);
    case 1:
      return quaternion((r[1] + r[3]) / d, d / 4, (r[5] + r[7]) / d, (r[2] - r[6]) / d);
    case 2:
      return quaternion((r[2] + r[6]) / d, (r[5] + r[7]) / d, d / 4, (r[3] - r[1]) / d);
    default:
      return quaternion((r[7] - r[5]) / d, (r[2] - r[6]) / d, (r[3] - r[1]) / d, d / 4);
  }
}

std::string nameOf(const Object& object) {
  return "object_" + std::to_string(object.id);
}

Json metres(const Object& object, const LengthUnit& unit) {
  return vector(object.position[0] * unit.metres, object.position[1] * unit.metres,
                object.position[2] * unit.metres);
}

std::string nameOf(const BodyPlace& body) {
  return "body_" + body.name;
}

Json metres(const BodyPlace& body) {
  constexpr double kMetre = 1000;  // mm
  return vector(body.position[0] / kMetre, body.position[1] / kMetre, body.position[2] / kMetre);
}

Json orientationOf(const BodyPlace& body) {
  const auto& q = body.orientation;
  return quaternion(q[0], q[1], q[2], q[3]);
}

Json colourOf(const Object& object, double alpha) {
  const auto& rgb = kColours[static_cast<std::size_t>(object.id) % kColours.size()];
  return {{"r", rgb[0]}, {"g", rgb[1]}, {"b", rgb[2]}, {"a", alpha}};
}

std::string textOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json entityOf(const Frame& frame, const Object& object, const LengthUnit& unit) {
  const Json none = Json::array();
  const Json pose = {{"position", metres(object, unit)}, {"orientation", quaternion(0, 0, 0, 1)}};
  Json above = pose;
  above["position"]["y"] = object.position[1] * unit.metres + kLabelMetres;
  const Json sphere = {{"pose", pose},
                       {"size", vector(kMarkerMetres, kMarkerMetres, kMarkerMetres)},
                       {"color", colourOf(object, 1)}};
  const Json label = {{"pose", above},
                      {"billboard", true},
                      {"font_size", kLabelMetres},
                      {"scale_invariant", false},
                      {"color", colourOf(object, 1)},
                      {"text", std::to_string(object.id)}};
  Json metadata = Json::array();
  metadata.push_back({{"key", "frame_number"}, {"value", std::to_string(frame.place.frame)}});
  metadata.push_back({{"key", "call"}, {"value", std::to_string(frame.place.call)}});
  metadata.push_back({{"key", "unit"}, {"value", "m"}});
  return {{"timestamp", timeOf(frame.place)},
          {"frame_id", kDeliveredFrame},
          {"id", nameOf(object)},
          {"lifetime", kLifetime},
          {"frame_locked", true},
          {"metadata", metadata},
          {"arrows", none},
          {"cubes", none},
          {"spheres", Json::array({sphere})},
          {"cylinders", none},
          {"lines", none},
          {"triangles", none},
          {"texts", Json::array({label})},
          {"models", none}};
}

/// The whole scene each time, so that a viewer may begin at any message and miss any.
Json sceneOf(const Frame& frame, const LengthUnit& unit) {
  Json json = headOf(frame.place, "m", kDeliveredFrame);
  Json deletions = Json::array(), entities = Json::array();
  for (const Object& object : frame.objects) {
    if (object.seen)
      entities.push_back(entityOf(frame, object, unit));
    else
      deletions.push_back(
          {{"timestamp", timeOf(frame.place)}, {"type", 0}, {"id", nameOf(object)}});
  }
  json["deletions"] = std::move(deletions);
  json["entities"] = std::move(entities);
  return json;
}

Json transformsOf(const Frame& frame, const LengthUnit& unit) {
  Json transforms = Json::array();
  const auto add = [&](const char* parent, const std::string& child, Json translation,
                       Json rotation) {
    transforms.push_back({{"timestamp", timeOf(frame.place)},
                          {"parent_frame_id", parent},
                          {"child_frame_id", child},
                          {"translation", std::move(translation)},
                          {"rotation", std::move(rotation)}});
  };
  // Half a turn about x mirrors y and z.
  add(kDeliveredFrame, kRightCamera, vector(0, 0, 0), quaternion(1, 0, 0, 0));
  const Context& context = frame.context;
  if (context.calibrated)
    add(kRightCamera, kLeftCamera,
        vector(context.calibration.translation[0] * unit.metres,
               context.calibration.translation[1] * unit.metres,
               context.calibration.translation[2] * unit.metres),
        quaternion(context.calibration.rotation));
  for (const Object& object : frame.objects)
    if (object.seen)
      add(kDeliveredFrame, nameOf(object), metres(object, unit), quaternion(0, 0, 0, 1));
  for (const BodyPlace& body : frame.bodies)
    if (body.known) add(kDeliveredFrame, nameOf(body), metres(body), orientationOf(body));
  Json json = headOf(frame.place, "m", kDeliveredFrame);
  json["transforms"] = std::move(transforms);
  return json;
}

Json blockOf(const Frame& frame, const LengthUnit& unit) {
  Json objects = Json::array();
  for (const Object& object : frame.objects) {
    const auto& p = object.position;
    Json item = {{"id", object.id},
                 {"seen", object.seen},
                 {"position", object.seen ? vector(p[0], p[1], p[2]) : Json(nullptr)}};
    if (frame.context.productType == 1 && object.id == 2) item["bearing_deg"] = object.bearing;
    if (object.id < 2) {
      const auto& q = object.hostOrientation;
      item["host_position"] =
          vector(object.hostPosition[0], object.hostPosition[1], object.hostPosition[2]);
      item["host_orientation"] = quaternion(q[0], q[1], q[2], q[3]);
    }
    objects.push_back(std::move(item));
  }
  Json json = headOf(frame.place, unit.name, kDeliveredFrame);
  json["stamp_us"] = frame.stampUs == 0 ? Json(nullptr) : Json(frame.stampUs);
  json["product_type"] = known(frame.context.productType);
  json["objects"] = std::move(objects);
  return json;
}

/// `bodies` says of each pose whose it is.
Json posesOf(const Frame& frame) {
  Json poses = Json::array(), facts = Json::array();
  for (const BodyPlace& body : frame.bodies) {
    if (!body.known) continue;
    const auto &p = body.positionDeviation, &r = body.rotationDeviation;
    poses.push_back({{"position", metres(body)}, {"orientation", orientationOf(body)}});
    facts.push_back({{"name", body.name},
                     {"child_frame_id", nameOf(body)},
                     {"seen", body.seen},
                     {"age_s", body.age},
                     {"markers", body.markers},
                     {"residual_px", body.residual},
                     {"position_sd_mm", vector(p[0], p[1], p[2])}});
    if (body.directionDeviation > 0)
      facts.back()["direction_sd_rad"] = body.directionDeviation;
    else
      facts.back()["rotation_sd_rad"] = vector(r[0], r[1], r[2]);
  }
  Json json = headOf(frame.place, "m", kDeliveredFrame);
  json["poses"] = std::move(poses);
  json["bodies"] = std::move(facts);
  return json;
}

constexpr std::array<const char*, kChannels> kTopics = {
    "/alg/scene", "/alg/transforms", "/alg/log",   "/alg/block",
    "/alg/blobs", "/alg/statistics", "/alg/bodies"};

}  // namespace

const ChannelFacts& factsOf(Channel channel) {
  static const std::array<ChannelFacts, kChannels> facts = {
      {{kTopics[0], "foxglove.SceneUpdate", kSceneUpdateSchema},
       {kTopics[1], "foxglove.FrameTransforms", kFrameTransformsSchema},
       {kTopics[2], "foxglove.Log", kLogSchema},
       {kTopics[3], "alg_factory.Block", kBlockSchema},
       {kTopics[4], "alg_factory.Blobs", kBlobsSchema},
       {kTopics[5], "alg_factory.Statistics", kStatisticsSchema},
       {kTopics[6], "foxglove.PosesInFrame", kPosesInFrameSchema}}};
  return facts[static_cast<std::size_t>(channel)];
}

void JsonMessages::onFrame(const Frame& frame) {
  const std::uint64_t time = messageTime(frame.place);
  if (wants(Channel::kBlock)) write(Channel::kBlock, time, textOf(blockOf(frame, unit_)));
  if (wants(Channel::kTransforms))
    write(Channel::kTransforms, time, textOf(transformsOf(frame, unit_)));
  if (!frame.bodies.empty() && wants(Channel::kBodies))
    write(Channel::kBodies, time, textOf(posesOf(frame)));
  if (wants(Channel::kScene)) write(Channel::kScene, time, textOf(sceneOf(frame, unit_)));
}

void JsonMessages::onBlobs(const Blobs& blobs) {
  if (!wants(Channel::kBlobs)) return;
  Json list = Json::array();
  for (const SentBlob& blob : blobs.blobs)
    list.push_back({{"camera", blob.camera == 0 ? "left" : "right"},
                    {"id", blob.id},
                    {"x", blob.x},
                    {"y", blob.y},
                    {"weight", blob.weight}});
  Json json = headOf(blobs.place, "px", "raw_image");
  json["valid"] = blobs.valid;
  json["blobs"] = std::move(list);
  write(Channel::kBlobs, messageTime(blobs.place), textOf(json));
}

void JsonMessages::onMessage(const Message& message) {
  if (!wants(Channel::kLog)) return;
  constexpr int kWarning = 3;  // the library speaks only where something is not in order
  Json json = headOf(message.place, unit_.name, kDeliveredFrame);
  json["level"] = kWarning;
  json["message"] = message.text;
  json["name"] = message.level == algorithm::kDecoderMessage ? "decoder" : "service";
  json["file"] = "";
  json["line"] = 0;
  write(Channel::kLog, messageTime(message.place), textOf(json));
}

void JsonMessages::onStatistics(const Statistics& statistics) {
  if (!wants(Channel::kStatistics)) return;
  const Context& counts = statistics.counts;
  Json json = headOf(statistics.place, unit_.name, kDeliveredFrame);
  json["calls"] = counts.calls;
  json["packets"] = counts.packets;
  json["blocks"] = counts.blocks;
  json["messages"] = counts.messages;
  json["dropped_calls"] = counts.dropped;
  json["packets_per_s"] = statistics.packetsPerSecond;
  json["library_s"] = static_cast<double>(counts.libraryNs) / 1e9;
  json["slowest_call_s"] = static_cast<double>(counts.slowestCallNs) / 1e9;
  write(Channel::kStatistics, messageTime(statistics.place), textOf(json));
}

}  // namespace stream
