#include <alg_kit/bodies/BodyFile.h>

#include <alg_kit/text/TextFile.h>

#include <Eigen/Geometry>
#include <cmath>
#include <nlohmann/json.hpp>

namespace bodies {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "alg_factory body";
constexpr int kVersion = 1;
constexpr std::size_t kDeepest = 16;         // a body has three
constexpr std::size_t kLargest = 64 * 1024;  // bytes
constexpr double kFarthest = 1e5;            // mm, of a marker or a pivot from the origin
constexpr double kMarkersApart = 0.1;        // mm
constexpr double kOnLine = 1e-3;             // mm

Json listOf(const Eigen::Vector3d& v) {
  return {v.x(), v.y(), v.z()};
}

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}

  [[noreturn]] void fail(const std::string& problem) const {
    throw text::FileError(path_, 0, problem);
  }

  const Json& member(const Json& object, const std::string& name) const {
    if (!object.is_object() || !object.contains(name))
      fail("expected the member " + name + ", found none");
    return object.at(name);
  }

  Eigen::Vector3d vector(const Json& list, const std::string& name) const {
    if (!list.is_array() || list.size() != 3)
      fail("expected three numbers in " + name + ", found others");
    Eigen::Vector3d result;
    for (int i = 0; i < 3; ++i) {
      const Json& value = list[static_cast<std::size_t>(i)];
      if (!value.is_number()) fail("expected three numbers in " + name + ", found others");
      result[i] = value.get<double>();
      if (!(std::abs(result[i]) <= kFarthest))
        fail("expected numbers of at most 100 m in " + name + ", found a larger one");
    }
    return result;
  }

  BodyMarker marker(const Json& object) const {
    BodyMarker marker;
    const Json& id = member(object, "id");
    if (!id.is_number_unsigned() || id.get<std::uint64_t>() >= kMostMarkers)
      fail("expected an id of 0 to 15 at a marker, found another");
    marker.id = id.get<int>();
    marker.position = vector(member(object, "position"), "position");
    if (object.contains("deviation"))
      marker.deviation = vector(object.at("deviation"), "deviation");
    if (marker.deviation.minCoeff() < 0)
      fail("expected standard deviations of 0 or more in deviation, found a negative one");
    if (object.contains("facing")) {
      marker.facing = vector(object.at("facing"), "facing");
      if (!(marker.facing.norm() > 1e-6)) fail("expected a direction in facing, found none");
      marker.facing.normalize();
    }
    return marker;
  }

 private:
  const std::string& path_;
};

void checkMarkers(const Body& body, const Reader& reader) {
  for (std::size_t i = 0; i < body.markers.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const BodyMarker &a = body.markers[j], &b = body.markers[i];
      if (a.id >= b.id)
        reader.fail("expected markers in order of their ids, each once, found id " +
                    std::to_string(b.id) + " behind " + std::to_string(a.id));
      if ((a.position - b.position).norm() < kMarkersApart)
        reader.fail("expected markers apart, found ids " + std::to_string(body.blobIdOf(a)) +
                    " and " + std::to_string(body.blobIdOf(b)) + " in one place");
    }
}

void makePair(Body& body, const Reader& reader) {
  for (const BodyMarker& marker : body.markers)
    if (marker.id != kPairId)
      reader.fail("expected two markers of id 2, or three markers or more, found two and id " +
                  std::to_string(marker.id));
  body.markers[1].id = kSecondOfPair;
}

/// In a line, nothing says how far they are turned about it.
void checkPlane(const Body& body, const Reader& reader) {
  std::vector<Eigen::Vector3d> places;
  for (const BodyMarker& marker : body.markers) places.push_back(marker.position);
  if (!spanPlane(places, kLeastExtent))
    reader.fail("expected markers that span a plane, found them in a line or in one place");
}

/// Off the line, the origin's place would depend on a turn that nobody sees.
void checkLine(const Body& pair, const Reader& reader) {
  if (axisOf(pair).cross(pair.markers[0].position).norm() > kOnLine)
    reader.fail("expected the origin on the line of the two markers, found it elsewhere");
}

/// As a file would have it: JSON holds UTF-8 alone.
std::string asText(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void requireName(const std::string& name, const std::string& where) {
  const std::size_t length = Json::parse(asText(name, -1)).get<std::string>().size();
  if (length > kLongestName)
    throw text::FileError(where, 0,
                          "expected a name of at most " + std::to_string(kLongestName) +
                              " bytes, found " + std::to_string(length));
}

std::string bodyText(const Body& body) {
  Json markers = Json::array();
  for (const BodyMarker& marker : body.markers) {
    Json json = {{"id", body.blobIdOf(marker)}, {"position", listOf(marker.position)}};
    if (!marker.deviation.isZero(0)) json["deviation"] = listOf(marker.deviation);
    if (!marker.facing.isZero(0)) json["facing"] = listOf(marker.facing);
    markers.push_back(json);
  }
  Json json = {{"format", kFormat},
               {"version", kVersion},
               {"name", body.name},
               {"unit", "mm"},
               {"markers", markers}};
  if (body.pivot) json["pivot"] = listOf(*body.pivot);
  return asText(json, 2) + "\n";
}

Body bodyFromText(const std::string& content, const std::string& path, Pairs pairs) {
  const Reader reader(path);
  if (text::nestingOf(content) > kDeepest) reader.fail("expected a body, found deeper nesting");
  const Json json = Json::parse(content, nullptr, false);
  if (json.is_discarded()) reader.fail("expected a body as JSON, found none");
  if (reader.member(json, "format") != kFormat || reader.member(json, "version") != kVersion)
    reader.fail("expected the format \"alg_factory body\", version 1, found another");
  if (reader.member(json, "unit") != "mm") reader.fail("expected the unit mm, found another");
  Body body;
  const Json& name = reader.member(json, "name");
  if (!name.is_string()) reader.fail("expected a text as name, found none");
  body.name = name.get<std::string>();
  requireName(body.name, path);
  const Json& markers = reader.member(json, "markers");
  const bool mayBePair = pairs == Pairs::kTaken && markers.size() == 2;
  if (!markers.is_array() || (markers.size() < 3 && !mayBePair) || markers.size() > kMostMarkers)
    reader.fail("expected 3 to 16 markers, found " +
                (markers.is_array() ? std::to_string(markers.size()) : "no list"));
  for (const Json& marker : markers) body.markers.push_back(reader.marker(marker));
  if (mayBePair) makePair(body, reader);
  checkMarkers(body, reader);
  if (mayBePair)
    checkLine(body, reader);
  else
    checkPlane(body, reader);
  if (json.contains("pivot")) body.pivot = reader.vector(json.at("pivot"), "pivot");
  return body;
}

Body readBody(const std::string& path, Pairs pairs) {
  return bodyFromText(text::readTextFile(path, "a body", kLargest), path, pairs);
}

void requireOwnIds(const std::vector<Body>& bodies, const std::vector<std::string>& names) {
  for (std::size_t i = 0; i < bodies.size(); ++i)
    for (std::size_t other = 0; other < i; ++other)
      for (const BodyMarker& marker : bodies[i].markers)
        if (bodies[other].markerOf(marker.id) != nullptr)
          throw text::FileError(names[i], 0,
                                "expected ids of its own, found id " + std::to_string(marker.id) +
                                    ", which " + names[other] + " has");
}

std::vector<Body> readBodies(const std::vector<std::string>& paths, Pairs pairs) {
  std::vector<Body> result;
  for (const std::string& path : paths) result.push_back(readBody(path, pairs));
  requireOwnIds(result, paths);
  return result;
}

}  // namespace bodies
