#include <alg_kit/trace/FateText.h>
#include <alg_kit/view/WindowAnswers.h>

#include <alg_factory/service/ProductTable.h>
#include <alg_kit/report/Base64.h>
#include <alg_kit/report/ReportJson.h>
#include <alg_kit/text/JsonText.h>
#include <alg_kit/view/SceneGeometry.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace view {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t kMostHeatFrames = 20000;
constexpr std::int64_t kMostGapFrames = 5000;
constexpr std::int64_t kMostLogFrames = 200;
constexpr int kHeatCells = 64;  // across
constexpr double kLatestS = 5e9;
constexpr double kToldPerSecond = 1e6;  // times are rounded to such parts

class BadQuestion : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The values of a question, within limits.
class Question {
 public:
  explicit Question(const Json& json) : json_(json) {}

  std::string text(const char* key) const {
    const auto found = json_.find(key);
    return found != json_.end() && found->is_string() ? found->get<std::string>() : std::string();
  }
  bool has(const char* key) const { return json_.contains(key); }
  double number(const char* key, double low, double high) const {
    const auto found = json_.find(key);
    if (found == json_.end() || !found->is_number())
      throw BadQuestion(std::string(key) + ": expected a number");
    const double value = found->get<double>();
    if (!(value >= low && value <= high))
      throw BadQuestion(std::string(key) + ": expected a number from " + std::to_string(low) +
                        " to " + std::to_string(high));
    return value;
  }
  std::int64_t whole(const char* key, std::int64_t low, std::int64_t high) const {
    return static_cast<std::int64_t>(
        number(key, static_cast<double>(low), static_cast<double>(high)));
  }

 private:
  const Json& json_;
};

/// Rounded: the digits behind are below what anybody measures, and cost room.
Json rounded(double value, double scale) {
  return std::isfinite(value) ? Json(std::round(value * scale) / scale) : Json();
}
Json millimetres(float value) {
  return rounded(value, 1e4);
}
Json pixels(float value) {
  return rounded(value, 1e3);
}
Json seconds(double value) {
  return rounded(value, kToldPerSecond);
}

Json jsonOf(const analysis::Place& place) {
  if (!analysis::isSomewhere(place)) return {};
  return Json::array({millimetres(place.x), millimetres(place.y), millimetres(place.z)});
}

Json jsonOf(const Eigen::Vector3d& v) {
  return Json::array({rounded(v.x(), 1e6), rounded(v.y(), 1e6), rounded(v.z(), 1e6)});
}

template <typename Items, typename Each>
Json listOf(const Items& items, Each each) {
  Json list = Json::array();
  for (const auto& item : items) list.push_back(each(item));
  return list;
}

Json jsonOf(const FrameObject& object) {
  Json json = {{"seen", object.seen}, {"raw", jsonOf(object.raw)}};
  // What is not there is left out: most frames are short.
  if (object.held) json["held"] = true;
  if (analysis::isSomewhere(object.filtered)) json["filtered"] = jsonOf(object.filtered);
  if (analysis::isSomewhere(object.estimated)) {
    json["estimated"] = jsonOf(object.estimated);
    json["sd"] = millimetres(object.estimatedDeviation);
    json["velocity"] = listOf(std::array{object.velocity.x, object.velocity.y, object.velocity.z},
                              [](float value) { return rounded(value, 10); });
  }
  if (analysis::isSomewhere(object.truth)) json["truth"] = jsonOf(object.truth);
  if (std::isfinite(object.filteredError))
    json["filtered_error"] = millimetres(object.filteredError);
  if (std::isfinite(object.epipolar)) json["epipolar"] = pixels(object.epipolar);
  if (std::isfinite(object.rayGap)) json["ray_gap"] = millimetres(object.rayGap);
  if (!object.key.empty()) {
    json["key"] = object.key;
    json["reason"] = object.reason;
  }
  return json;
}

/// @param marked  the body whose place it is
Json jsonOf(const FrameBody& body, const bodies::Body& marked) {
  if (!body.known) return {};
  const auto list = [](const auto& values, double scale) {
    return listOf(values, [scale](float value) { return rounded(value, scale); });
  };
  Json json = {{"p", jsonOf(body.origin)},
               {"q", list(body.orientation, 1e6)},
               {"sd", list(body.deviation, 1e4)},
               {"residual", pixels(body.residual)}};
  if (marked.isPair())
    json["direction_sd"] = rounded(body.directionDeviation, 1e5);
  else
    json["turn_sd"] = list(body.turnDeviation, 1e5);
  if (!body.seen) json["age"] = pixels(body.age);
  json["ends"] = Json::array();
  for (std::size_t i = 0; i < marked.markers.size(); ++i)
    json["ends"].push_back(bodies::nameOf(body.ends[i]));
  return json;
}

Json jsonOf(const FrameBlob& blob) {
  return {{"camera", blob.camera}, {"id", blob.id},      {"x", pixels(blob.x)},
          {"y", pixels(blob.y)},   {"d", blob.diameter}, {"end", trace::keyOf(blob.fate)},
          {"other", blob.other},   {"why", blob.reason}};
}

Json jsonOf(const FrameMessage& message) {
  return {{"call", message.call}, {"level", message.level}, {"text", message.text}};
}

Json jsonOf(EventSet events) {
  Json list = Json::array();
  for (std::size_t i = 0; i < kEvents; ++i)
    if (((events >> i) & 1u) != 0) list.push_back(keyOf(static_cast<Event>(i)));
  return list;
}

Json jsonOf(const Frame& frame, const std::vector<bodies::Body>& marked) {
  Json json = {{"frame", frame.packet},
               {"t", seconds(frame.seconds)},
               {"call", frame.call},
               {"queries", frame.queries},
               {"events", jsonOf(frame.events)},
               {"us", rounded(frame.durationUs, 1e3)},
               {"objects", listOf(frame.objects, [](const auto& o) { return jsonOf(o); })},
               {"blobs", listOf(frame.blobs, [](const auto& b) { return jsonOf(b); })}};
  for (std::size_t i = 0; i < frame.bodies.size(); ++i)
    json["bodies"].push_back(jsonOf(frame.bodies[i], marked[i]));
  if (!frame.decoder.empty()) json["decoder"] = frame.decoder;
  if (!frame.messages.empty())
    json["messages"] = listOf(frame.messages, [](const auto& m) { return jsonOf(m); });
  if (frame.messagesLeftOut > 0) json["messages_left_out"] = frame.messagesLeftOut;
  return json;
}

Json framesOf(const Watcher& watcher, std::int64_t from, std::int64_t to) {
  Json frames = Json::array();
  for (std::int64_t i = from; i <= to; ++i)
    frames.push_back(jsonOf(watcher.log().frame(i), watcher.bodies()));
  return frames;
}

Json aboutBody(const bodies::Body& body) {
  Json json = {{"name", body.name},
               {"markers", listOf(body.markers, [&body](const auto& marker) {
                  return Json{{"id", body.blobIdOf(marker)}, {"p", jsonOf(marker.position)}};
                })}};
  if (body.pivot) json["pivot"] = jsonOf(*body.pivot);
  return json;
}

Json rigOf(const algorithm::StereoCalibration& calibration) {
  const SceneGeometry geometry = geometryOf(calibration);
  const auto camera = [](const SceneCamera& c) {
    return Json{{"centre", jsonOf(c.centre)},
                {"axes", listOf(c.axes, [](const auto& a) { return jsonOf(a); })},
                {"border", listOf(c.border, [](const auto& d) { return jsonOf(d); })}};
  };
  return {{"width", geometry.width},
          {"height", geometry.height},
          {"cameras", listOf(geometry.cameras, camera)}};
}

/// What changes while a file is read or written.
Json stateOf(const Watcher& watcher, const Watcher::Status& status) {
  const FrameLog& log = watcher.log();
  const std::int64_t size = log.size();
  return {{"state", keyOf(status.state)},
          {"problem", status.problem},
          {"share", rounded(status.share, 1e4)},
          {"frames", size},
          {"from", size > 0 ? seconds(log.secondsOf(0)) : Json()},
          {"to", size > 0 ? seconds(log.secondsOf(size - 1)) : Json()},
          {"silent_s", rounded(status.secondsSinceNews, 1e3)},
          {"truth", status.hasTruth},
          {"product_type", status.productType}};
}

/// For who asks; news, which come with every packet, go without the health of the calibration.
Json wholeStateOf(const Watcher& watcher, const Watcher::Status& status) {
  Json json = stateOf(watcher, status);
  json["calibration_health"] = report::jsonOf(status.health);
  return json;
}

Json aboutFile(const Watcher& watcher) {
  const Watcher::Status status = watcher.status();
  Json json = wholeStateOf(watcher, status);
  json["name"] = std::filesystem::path(watcher.path()).filename().string();
  json["library_version"] = status.metadata.libraryVersion;
  json["platform"] = status.metadata.platform;
  json["clock"] = status.metadata.clock;
  json["complete"] = status.metadata.complete;
  json["dropped_calls"] = status.metadata.droppedCalls;
  json["disk_bytes"] = watcher.log().bytesOnDisk();
  if (const auto* const product = algorithm::findProduct(status.productType)) {
    json["objects"] = algorithm::objectCount(status.productType);
    json["depth_limit"] = product->maxDepth;
  }
  json["bodies"] = listOf(watcher.bodies(), aboutBody);
  if (status.calibration) json["rig"] = rigOf(*status.calibration);
  return json;
}

Json seriesOf(const FrameLog& log, const Question& question) {
  const std::int64_t size = log.size();
  if (size == 0) return {{"frames_each", 1}, {"times", Json::array()}};
  const std::int64_t from = log.at(question.number("from", -kLatestS, kLatestS));
  const std::int64_t to = log.at(question.number("to", -kLatestS, kLatestS));
  const std::int64_t most = question.whole("columns", 8, kMostColumns);
  const FrameLog::Series series = log.series(std::min(from, to), std::max(from, to), most);
  const auto& columns = series.columns;
  Json json = {{"frames_each", series.framesEach},
               {"from", seconds(columns.empty() ? 0 : columns.front().from)},
               {"to", seconds(columns.empty() ? 0 : columns.back().to)},
               {"first", series.first}};
  json["times"] = listOf(columns, [](const Summary& s) { return seconds((s.from + s.to) / 2); });
  for (std::size_t i = 0; i < kEvents; ++i)
    json["events"][keyOf(static_cast<Event>(i))] =
        listOf(columns, [i](const Summary& s) { return s.events[i]; });
  const auto row = [&](std::size_t i) -> Json {
    std::vector<float> low, high;
    bool any = false;
    for (const Summary& s : columns) {
      low.push_back(s.low[i]);
      high.push_back(s.high[i]);
      any = any || std::isfinite(s.low[i]);
    }
    if (!any) return {};
    if (series.framesEach == 1) return {{"values", report::base64Of(low)}};
    return {{"low", report::base64Of(low)}, {"high", report::base64Of(high)}};
  };
  json["objects"] = Json::array();
  for (std::size_t o = 0; o < kObjects; ++o) {
    Json object = {{"seen", listOf(columns, [o](const Summary& s) { return s.seen[o]; })},
                   {"absent", listOf(columns, [o](const Summary& s) { return s.absent[o]; })}};
    for (std::size_t r = 0; r < kObjectRows; ++r)
      object["rows"][keyOf(static_cast<ObjectRow>(r))] = row(rowOf(o, static_cast<ObjectRow>(r)));
    json["objects"].push_back(std::move(object));
  }
  for (std::size_t r = 0; r < kFrameRows; ++r)
    json["rows"][keyOf(static_cast<FrameRow>(r))] = row(rowOf(static_cast<FrameRow>(r)));
  return json;
}

EventSet eventsIn(const std::string& names) {
  EventSet events = 0;
  for (std::size_t i = 0; i < kEvents; ++i)
    if (("," + names + ",").find("," + std::string(keyOf(static_cast<Event>(i))) + ",") !=
        std::string::npos)
      events |= setOf(static_cast<Event>(i));
  return events != 0 ? events : kAllEvents & static_cast<EventSet>(~setOf(Event::kQuery));
}

std::int64_t frameIn(const FrameLog& log, const Question& question) {
  const std::int64_t size = log.size();
  if (size == 0) throw BadQuestion("no frame is there yet");
  return question.whole("frame", 0, size - 1);
}

Json rayOfBlob(const Watcher& watcher, const Question& question) {
  const Frame frame = watcher.log().frame(frameIn(watcher.log(), question));
  const Watcher::Status status = watcher.status();
  const auto* const product = algorithm::findProduct(status.productType);
  if (frame.blobs.empty() || !status.calibration || product == nullptr)
    throw BadQuestion("no blob, or no calibration");
  const auto blob = static_cast<std::size_t>(
      question.whole("blob", 0, static_cast<std::int64_t>(frame.blobs.size()) - 1));
  const FrameBlob& from = frame.blobs[blob];
  const PixelRay ray = rayOf(*status.calibration, from.camera, from.x, from.y, product->maxDepth);
  return {{"blob", blob},
          {"ray", listOf(ray.ends, [](const auto& v) { return jsonOf(v); })},
          {"line", listOf(ray.otherImage, [](const auto& p) {
             return Json::array({rounded(p.x(), 1e3), rounded(p.y(), 1e3)});
           })}};
}

/// How often blobs were where, in squares of the image.
Json heatOf(const Watcher& watcher, const Question& question) {
  const FrameLog& log = watcher.log();
  const Watcher::Status status = watcher.status();
  if (log.size() == 0 || !status.calibration) throw BadQuestion("no frame, or no calibration");
  const SceneGeometry geometry = geometryOf(*status.calibration);
  const std::int64_t from = log.at(question.number("from", -kLatestS, kLatestS));
  const std::int64_t to = std::max(from, log.at(question.number("to", -kLatestS, kLatestS)));
  const std::int64_t each = (to - from) / kMostHeatFrames + 1;
  const double cell = static_cast<double>(geometry.width) / kHeatCells;
  const int rows = static_cast<int>(std::ceil(geometry.height / cell));
  std::array<std::vector<int>, 2> counts;
  for (auto& count : counts) count.resize(static_cast<std::size_t>(rows) * kHeatCells);
  std::int64_t frames = 0;
  for (std::int64_t i = from; i <= to; i += each, ++frames)
    for (const FrameBlob& blob : log.frame(i).blobs) {
      const double column = std::floor(blob.x / cell), row = std::floor(blob.y / cell);
      if (!(column >= 0 && column < kHeatCells && row >= 0 && row < rows)) continue;
      ++counts[blob.camera == 0 ? 0 : 1]
              [static_cast<std::size_t>(row) * kHeatCells + static_cast<std::size_t>(column)];
    }
  return {{"cell", cell},     {"columns", kHeatCells}, {"rows", rows},
          {"frames", frames}, {"every", each},         {"counts", counts}};
}

/// The stretch without an object around a frame, and the reasons in it.
Json gapOf(const FrameLog& log, const Question& question) {
  const std::int64_t at = frameIn(log, question);
  const auto object = static_cast<std::size_t>(
      question.whole("object", 0, static_cast<std::int64_t>(kObjects) - 1));
  struct Reason {
    std::int64_t packets = 0;
    std::string text;
  };
  std::map<std::string, Reason> reasons;
  std::int64_t left = kMostGapFrames;
  const auto isMissing = [&](std::int64_t i) {
    if (i < 0 || i >= log.size() || left-- <= 0) return false;
    const Frame frame = log.frame(i);
    if (object >= frame.objects.size() || frame.objects[object].seen) return false;
    Reason& reason = reasons[frame.objects[object].key];
    ++reason.packets;
    if (reason.text.empty()) reason.text = frame.objects[object].reason;
    return true;
  };
  if (!isMissing(at)) return {{"missing", false}};
  std::int64_t first = at, last = at;
  while (isMissing(first - 1)) --first;
  while (isMissing(last + 1)) ++last;
  std::vector<std::pair<std::string, Reason>> sorted(reasons.begin(), reasons.end());
  std::sort(sorted.begin(), sorted.end(),
            [](const auto& a, const auto& b) { return a.second.packets > b.second.packets; });
  return {{"missing", true},
          {"object", object},
          {"first", first},
          {"last", last},
          {"from", seconds(log.secondsOf(first))},
          {"to", seconds(log.secondsOf(last))},
          {"cut", left <= 0},
          {"reasons", listOf(sorted, [](const auto& r) {
             return Json{{"key", r.first}, {"packets", r.second.packets}, {"text", r.second.text}};
           })}};
}

/// The messages of the last frames with any, up to a frame.
Json logOf(const FrameLog& log, const Question& question) {
  Json lines = Json::array();
  std::optional<std::int64_t> at = frameIn(log, question) + 1;
  const std::int64_t most = question.whole("most", 1, kMostLogFrames);
  for (std::int64_t n = 0; n < most; ++n) {
    at = log.next(*at, false, setOf(Event::kMessage));
    if (!at) break;
    const Frame frame = log.frame(*at);
    for (const FrameMessage& message : frame.messages) {
      Json line = jsonOf(message);
      line["frame"] = frame.packet;
      line["t"] = seconds(frame.seconds);
      lines.push_back(std::move(line));
    }
  }
  return {{"lines", std::move(lines)}, {"more", at.has_value()}};
}

}  // namespace

std::string WindowAnswers::answer(std::string_view said) const {
  Json reply = Json::object();
  try {
    const Json json = Json::parse(said, nullptr, false);
    if (!json.is_object()) throw BadQuestion("expected a JSON object");
    const Question question(json);
    if (question.has("id")) reply["id"] = question.whole("id", 0, std::int64_t{1} << 52);
    const std::string op = question.text("op");
    const std::size_t file = question.has("file")
                                 ? static_cast<std::size_t>(question.whole(
                                       "file", 0, static_cast<std::int64_t>(watchers_.size()) - 1))
                                 : 0;
    const Watcher& watcher = *watchers_[file];
    const FrameLog& log = watcher.log();
    reply["file"] = file;
    if (op == "about") {
      reply["files"] = listOf(watchers_, [](const auto& w) { return aboutFile(*w); });
    } else if (op == "state") {
      reply["files"] =
          listOf(watchers_, [](const auto& w) { return wholeStateOf(*w, w->status()); });
    } else if (op == "at") {
      // Who asks for the time of a packet as it was told, rounded, means that packet.
      const std::int64_t at =
          log.at(question.number("t", -kLatestS, kLatestS) + 0.5 / kToldPerSecond);
      reply["frame"] = at;
      if (at >= 0) reply["t"] = seconds(log.secondsOf(at));
      if (at >= 0) reply["frames"] = framesOf(watcher, at, at);
    } else if (op == "frames") {
      const std::int64_t last = log.size() - 1;
      const std::int64_t from = question.whole("from", 0, std::int64_t{1} << 52);
      const std::int64_t to =
          std::min({last, from + kMostFrames - 1, question.whole("to", -1, std::int64_t{1} << 52)});
      reply["from"] = from;
      reply["frames"] = framesOf(watcher, from, to);
    } else if (op == "series") {
      reply["series"] = seriesOf(log, question);
    } else if (op == "next") {
      const auto found =
          log.next(question.whole("frame", -1, std::int64_t{1} << 52),
                   question.number("step", -1, 1) > 0, eventsIn(question.text("events")));
      reply["frame"] = found ? Json(*found) : Json();
      if (found) reply["t"] = seconds(log.secondsOf(*found));
    } else if (op == "ray") {
      reply["ray"] = rayOfBlob(watcher, question);
    } else if (op == "heat") {
      reply["heat"] = heatOf(watcher, question);
    } else if (op == "gap") {
      reply["gap"] = gapOf(log, question);
    } else if (op == "log") {
      reply["log"] = logOf(log, question);
    } else {
      throw BadQuestion("op: expected about, state, at, frames, series, next, ray, heat, gap, log");
    }
  } catch (const std::exception& problem) {
    reply["error"] = problem.what();
  }
  return text::ofJson(reply);
}

std::string WindowAnswers::news(std::size_t file, std::int64_t from) const {
  const FrameLog& log = watchers_[file]->log();
  const std::int64_t last = log.size() - 1;
  const std::int64_t first = std::max(from, last - kMostFrames + 1);
  return text::ofJson(
      {{"news", true},
       {"file", file},
       {"from", std::max<std::int64_t>(first, 0)},
       {"frames", framesOf(*watchers_[file], std::max<std::int64_t>(first, 0), last)},
       {"files", listOf(watchers_, [](const auto& w) { return stateOf(*w, w->status()); })}});
}

}  // namespace view
