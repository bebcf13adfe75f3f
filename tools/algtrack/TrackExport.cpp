#include <tools/algtrack/TrackExport.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Answers.h>
#include <tools/algtrack/terminal/Json.h>
#include <tools/algtrack/terminal/Table.h>

#include <charconv>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace algtrack {
namespace {

using analysis::Moment;
using nlohmann::ordered_json;
using session::DeliveredBlock;
using session::Entry;

constexpr double kMillimetresPerMetre = 1000;
constexpr int kHeadingObject = 2;  // headings are those of the two-point object

constexpr const char* kDeliveredAxes =
    "as the library delivers: the right camera's frame with y and z negated (x right, y up, z "
    "towards the viewer)";
constexpr const char* kCameraAxes =
    "before the mirroring of y and z: the right camera's frame (x right, y down, z forward)";
constexpr const char* kUnit = "the unit of the calibration's translation, millimetres as a rule";

bool isWanted(const ExportOrigin& origin, int object) {
  return object != algorithm::kNoObject && object == origin.object.value_or(object);
}

std::string clockText(const ExportOrigin& origin) {
  return origin.clock == "simulated"
             ? "seconds since frame 0 in simulated time"
             : "seconds since the recording's first call, at entry of the call, on the recording "
               "host's monotonic clock";
}

std::string originText(const ExportOrigin& origin) {
  return "algtrack replay of " + origin.file + ", library " + origin.libraryVersion;
}

/// As "%.9f".
std::string secondsCell(double seconds) {
  char text[400];  // the largest double has 309 digits before its point
  const auto end = std::to_chars(text, std::end(text), seconds, std::chars_format::fixed, 9);
  return {text, end.ptr};
}

/// A line of values with commas between them. It keeps its storage from one to the next.
class CsvLine {
 public:
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer>>>
  CsvLine& add(Integer value) {
    return addChars([value](char* from, char* to) { return std::to_chars(from, to, value); });
  }
  /// As "%.9g": enough digits to tell every float from its neighbours.
  CsvLine& add(float value) {
    return addChars([value](char* from, char* to) {
      return std::to_chars(from, to, static_cast<double>(value), std::chars_format::general, 9);
    });
  }
  CsvLine& add(std::string_view text) {
    line_.append(text) += ',';
    return *this;
  }
  CsvLine& addEmpty(int count) {
    line_.append(static_cast<std::size_t>(count), ',');
    return *this;
  }

  /// Ends the line.
  void write(std::ostream& out) {
    line_.back() = '\n';
    out.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    line_.clear();
  }

 private:
  template <typename Convert>
  CsvLine& addChars(Convert convert) {
    char text[40];
    return add(
        std::string_view(text, static_cast<std::size_t>(convert(text, std::end(text)).ptr - text)));
  }

  std::string line_;
};

class CsvExport final : public TrackExport {
 public:
  CsvExport(const std::string& path, bool force, const ExportOrigin& origin)
      : file_(path, force), origin_(origin) {
    file_.stream()
        << "# " << oneLine(originText(origin)) << "\n# time_s: " << clockText(origin)
        << "\n# stamp_us: the packet's frame stamp in microseconds of the device's clock; "
           "0 = packet without a stamp; empty in answers"
        << "\n# source: block = delivered position; answer = pose query, with the "
           "filtered position and its rate"
        << "\n# x, y, z: " << kDeliveredAxes << "; " << kUnit
        << "\n# camera_x, camera_y, camera_z: " << kCameraAxes << "; the same unit"
        << "\n# rate_x, rate_y, rate_z: units per second, axes of x, y, z"
        << "\n# bearing_deg: degrees; object 2 of product type 1 only"
        << "\n# packet: number of the device packet, from 0; of an answer, the latest one"
        << "\ncall,time_s,stamp_us,source,object,x,y,z,camera_x,camera_y,camera_z,"
           "rate_x,rate_y,rate_z,bearing_deg,packet\n";
  }

  void add(const Entry& entry, const Moment& at) override {
    for (const DeliveredBlock& delivered : entry.blocks)
      for (const algorithm::TrackedPoint& point : delivered.block.records) {
        if (!wants(point.id)) continue;
        line_.add(entry.call.index).add(secondsCell(at.seconds)).add(delivered.block.header);
        line_.add("block").add(point.id);
        addPosition(point.x, point.y, point.z);
        line_.addEmpty(3).add(point.bearing);
        end(at);
      }
    const auto answer = analysis::poseOf(entry.call);
    if (!answer || !wants(answer->id)) return;
    line_.add(entry.call.index).add(secondsCell(at.seconds)).addEmpty(1);
    line_.add("answer").add(answer->id);
    addPosition(answer->filtered[0], answer->filtered[1], answer->filtered[2]);
    for (const float rate : answer->rate) line_.add(rate);
    line_.addEmpty(1);
    end(at);
  }

  void commit() override { file_.commit(); }
  std::vector<std::string> files() const override { return {file_.path()}; }

 private:
  bool wants(int object) const { return isWanted(origin_, object); }

  void end(const Moment& at) {
    if (at.packet < 0)
      line_.addEmpty(1);
    else
      line_.add(at.packet);
    line_.write(file_.stream());
  }
  void addPosition(float x, float y, float z) {
    for (const float value : {x, y, z, x, -y, -z}) line_.add(value);
  }

  CsvLine line_;
  OutputFile file_;
  ExportOrigin origin_;
};

class JsonLinesExport final : public TrackExport {
 public:
  JsonLinesExport(const std::string& path, bool force, const ExportOrigin& origin)
      : file_(path, force), origin_(origin) {
    ordered_json header;
    header["kind"] = "header";
    header["origin"] = originText(origin);
    header["time_s"] = clockText(origin);
    header["stamp_us"] = "the packet's frame stamp in microseconds of the device's clock; 0 = none";
    header["packet"] = "number of the device packet, from 0; of an answer, the latest one";
    header["unit"] = kUnit;
    header["position"] = kDeliveredAxes;
    header["camera_position"] = kCameraAxes;
    header["rate"] = "units per second, axes of position";
    header["bearing_deg"] = "degrees; object 2 of product type 1 only";
    write(header);
  }

  void add(const Entry& entry, const Moment& at) override {
    for (const session::LogLine& log : entry.logs) {
      ordered_json line = begin(entry, at, "message");
      line["level"] = log.level;
      line["text"] = log.text;
      write(line);
    }
    for (const DeliveredBlock& delivered : entry.blocks) writeBlock(entry, at, delivered);
    const auto answer = analysis::poseOf(entry.call);
    if (answer && wants(answer->id)) writeAnswer(entry, at, *answer);
    const auto heading = analysis::headingOf(entry.call);
    if (heading && wants(kHeadingObject)) writeHeading(entry, at, *heading);
  }

  void commit() override { file_.commit(); }
  std::vector<std::string> files() const override { return {file_.path()}; }

 private:
  bool wants(int object) const { return isWanted(origin_, object); }

  ordered_json begin(const Entry& entry, const Moment& at, const char* kind) const {
    ordered_json line;
    line["kind"] = kind;
    line["call"] = entry.call.index;
    line["time_s"] = at.seconds;
    line["packet"] = at.packet < 0 ? ordered_json(nullptr) : ordered_json(at.packet);
    return line;
  }

  void writeBlock(const Entry& entry, const Moment& at, const DeliveredBlock& delivered) {
    ordered_json line = begin(entry, at, "block");
    line["stamp_us"] = delivered.block.header;
    line["objects"] = ordered_json::array();
    for (const algorithm::TrackedPoint& point : delivered.block.records) {
      if (!wants(point.id)) continue;
      ordered_json object;
      object["object"] = point.id;
      object["position"] = {point.x, point.y, point.z};
      object["camera_position"] = {point.x, -point.y, -point.z};
      object["bearing_deg"] = point.bearing;
      line["objects"].push_back(std::move(object));
    }
    write(line);
  }

  void writeAnswer(const Entry& entry, const Moment& at, const algorithm::PoseAnswer& answer) {
    ordered_json line = begin(entry, at, "answer");
    const auto &raw = answer.raw, &filtered = answer.filtered;
    line["event"] = entry.call.type;
    line["object"] = answer.id;
    line["raw_position"] = raw;
    line["raw_camera_position"] = {raw[0], -raw[1], -raw[2]};
    line["position"] = filtered;
    line["camera_position"] = {filtered[0], -filtered[1], -filtered[2]};
    line["rate"] = answer.rate;
    write(line);
  }

  void writeHeading(const Entry& entry, const Moment& at, const algorithm::HeadingAnswer& answer) {
    ordered_json line = begin(entry, at, "heading");
    line["yaw_deg"] = answer.yaw;
    line["negated_corrected_yaw_deg"] = answer.negatedCorrectedYaw;
    line["status"] = answer.status;
    line["score"] = answer.score;
    write(line);
  }

  void write(const ordered_json& line) { file_.stream() << compact(line) << "\n"; }

  OutputFile file_;
  ExportOrigin origin_;
};

std::string tumFile(const std::string& prefix, int object) {
  return prefix + "-object" + std::to_string(object) + ".tum";
}

class TumExport final : public TrackExport {
 public:
  TumExport(std::string prefix, bool force, bool cameraAxes, const ExportOrigin& origin)
      : prefix_(std::move(prefix)), force_(force), cameraAxes_(cameraAxes), origin_(origin) {}

  void add(const Entry& entry, const Moment& at) override {
    const std::string time = secondsCell(at.seconds);
    const double sign = cameraAxes_ ? -1 : 1;
    for (const DeliveredBlock& delivered : entry.blocks)
      for (const algorithm::TrackedPoint& point : delivered.block.records) {
        if (!wants(point.id)) continue;
        char line[200];
        std::snprintf(line, sizeof line, " %.9g %.9g %.9g 0 0 0 1\n",
                      point.x / kMillimetresPerMetre, sign * point.y / kMillimetresPerMetre,
                      sign * point.z / kMillimetresPerMetre);
        fileOf(point.id).stream() << time << line;
      }
  }

  void commit() override {
    for (auto& [object, file] : files_) file->commit();
  }

  std::vector<std::string> files() const override {
    std::vector<std::string> paths;
    for (const auto& [object, file] : files_) paths.push_back(file->path());
    return paths;
  }

 private:
  bool wants(int object) const { return isWanted(origin_, object); }

  OutputFile& fileOf(int object) {
    auto& file = files_[object];
    if (file) return *file;
    file = std::make_unique<OutputFile>(tumFile(prefix_, object), force_);
    file->stream() << "# " << oneLine(originText(origin_)) << "; object " << object
                   << "\n# t: " << clockText(origin_)
                   << "\n# x, y, z: metres (the calibration's translation taken as millimetres); "
                   << (cameraAxes_
                           ? std::string(kCameraAxes) + "; --axes delivered gives the other"
                           : std::string(kDeliveredAxes) + "; --axes camera gives the other")
                   << "\n# orientation: not measured, always 0 0 0 1\n# t x y z qx qy qz qw\n";
    return *file;
  }

  std::string prefix_;
  bool force_;
  bool cameraAxes_;
  ExportOrigin origin_;
  std::map<int, std::unique_ptr<OutputFile>> files_;
};

}  // namespace

std::unique_ptr<TrackExport> makeCsvExport(const std::string& path, bool force,
                                           const ExportOrigin& origin) {
  return std::make_unique<CsvExport>(path, force, origin);
}

std::unique_ptr<TrackExport> makeJsonLinesExport(const std::string& path, bool force,
                                                 const ExportOrigin& origin) {
  return std::make_unique<JsonLinesExport>(path, force, origin);
}

std::unique_ptr<TrackExport> makeTumExport(const std::string& prefix, bool force, bool cameraAxes,
                                           const ExportOrigin& origin) {
  return std::make_unique<TumExport>(prefix, force, cameraAxes, origin);
}

std::vector<std::string> tumFiles(const std::string& prefix) {
  std::vector<std::string> files;
  for (int object = 0; object < algorithm::ResultBlock::kRecords; ++object)
    files.push_back(tumFile(prefix, object));
  return files;
}

}  // namespace algtrack
