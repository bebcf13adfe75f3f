#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Tracks.h>
#include <alg_kit/estimate/Estimator.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Json.h>
#include <tools/algtrack/terminal/MomentOptions.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace algtrack {
namespace {

constexpr double kMillimetresPerMetre = 1000;

struct TracksOptions {
  std::string file, csv, jsonLines, tum;
  bool force = false;
  double aheadMs = 0;
  analysis::TrackOptions tracks;
  std::optional<int> object;
  analysis::TimeRange range;  ///< of the packets
};

/// What is written of a row.
struct Line {
  double time = 0;  ///< seconds since the recording's first call
  int object = 0;
  estimate::Source source = estimate::Source::kNone;
  double age = 0;
  std::int64_t packet = 0, call = 0;
  std::array<double, 3> position{}, deviation{}, velocity{};
};

std::string secondsText(double seconds) {
  return numberText(seconds, "%.9f");
}

Line lineOf(const analysis::TrackRow& row, std::int64_t firstNs) {
  Line line;
  line.time = static_cast<double>(row.timeNs - firstNs) / 1e9;
  line.object = row.object;
  line.source = row.estimate.source;
  line.age = row.estimate.age;
  line.packet = row.packet;
  line.call = row.call;
  for (std::size_t i = 0; i < 3; ++i) {
    line.position[i] = row.estimate.position[i];
    line.velocity[i] = row.estimate.velocity[i];
    line.deviation[i] = std::sqrt(row.estimate.covariance[i][i]);
  }
  return line;
}

std::string originOf(const TracksOptions& options, double noise) {
  std::string text = options.tracks.smooth ? "smoothed" : "estimated live";
  if (options.aheadMs > 0) text += ", " + numberText(options.aheadMs) + " ms ahead";
  return "algtrack tracks of " + std::filesystem::path(options.file).filename().string() + ", " +
         text + ", blob noise " + numberText(noise) + " px" +
         (options.tracks.noise > 0 ? "" : " (from the light)");
}

void writeCsv(const TracksOptions& options, const std::string& origin,
              const std::vector<Line>& lines) {
  OutputFile file(options.csv, options.force);
  file.stream() << "# " << oneLine(origin)
                << "\n# time_s: of the packet's call, or of the moment ahead, since the "
                   "recording's first call"
                   "\n# x, y, z: as the library delivers: the right camera's frame with y and z "
                   "negated; the unit of the calibration's translation, millimetres as a rule"
                   "\n# camera_x, camera_y, camera_z: before the mirroring of y and z"
                   "\n# sd_x, sd_y, sd_z: standard deviations of x, y, z"
                   "\n# rate_x, rate_y, rate_z: per second, axes of x, y, z"
                   "\n# age_s: since the object was seen"
                   "\n# packet, call: by which it was estimated"
                   "\ntime_s,object,x,y,z,camera_x,camera_y,camera_z,sd_x,sd_y,sd_z,"
                   "rate_x,rate_y,rate_z,source,age_s,packet,call\n";
  for (const Line& line : lines) {
    const auto& p = line.position;
    file.stream() << secondsText(line.time) << "," << line.object;
    for (const double value : {p[0], p[1], p[2], p[0], -p[1], -p[2]})
      file.stream() << "," << numberText(value);
    for (const auto* const values : {&line.deviation, &line.velocity})
      for (const double value : *values) file.stream() << "," << numberText(value);
    file.stream() << "," << nameOf(line.source) << "," << numberText(line.age) << "," << line.packet
                  << "," << line.call << "\n";
  }
  file.commit();
}

void writeJsonLines(const TracksOptions& options, const std::string& origin,
                    const std::vector<Line>& lines) {
  OutputFile file(options.jsonLines, options.force);
  Json header;
  header["kind"] = "header";
  header["origin"] = origin;
  header["unit"] = "of the calibration's translation, millimetres as a rule";
  file.stream() << compact(header) << "\n";
  for (const Line& line : lines) {
    const auto& p = line.position;
    Json json;
    json["kind"] = "track";
    json["time_s"] = line.time;
    json["packet"] = line.packet;
    json["call"] = line.call;
    json["object"] = line.object;
    json["position"] = p;
    json["camera_position"] = {p[0], -p[1], -p[2]};
    json["deviation"] = line.deviation;
    json["rate"] = line.velocity;
    json["source"] = nameOf(line.source);
    json["age_s"] = line.age;
    file.stream() << compact(json) << "\n";
  }
  file.commit();
}

std::string tumPath(const TracksOptions& options, int object) {
  return options.tum + "-object" + std::to_string(object) + ".tum";
}

void writeTum(const TracksOptions& options, const std::string& origin,
              const std::vector<Line>& lines) {
  std::map<int, std::unique_ptr<OutputFile>> files;
  for (const Line& line : lines) {
    auto& file = files[line.object];
    if (!file) {
      file = std::make_unique<OutputFile>(tumPath(options, line.object), options.force);
      file->stream() << "# " << oneLine(origin) << "; object " << line.object
                     << "\n# t in seconds since the recording's first call; x, y, z in metres, "
                        "delivered axes; no orientation\n# t x y z qx qy qz qw\n";
    }
    file->stream() << secondsText(line.time);
    for (const double value : line.position)
      file->stream() << " " << numberText(value / kMillimetresPerMetre);
    file->stream() << " 0 0 0 1\n";
  }
  for (auto& [object, file] : files) file->commit();
}

void writeTracks(TracksOptions options) {
  if (options.csv.empty() && options.jsonLines.empty() && options.tum.empty())
    throw std::runtime_error("tracks: expected an output, --csv, --jsonl or --tum, found none");
  checkTimeRange(options.range);
  if (options.tracks.smooth && options.aheadMs > 0)
    throw std::runtime_error(
        "--ahead: expected a live estimate, found --smooth, which knows what came");
  checkPrefix("--tum", options.tum);
  std::vector<std::string> outputs = {options.csv, options.jsonLines};
  for (int object = 0; !options.tum.empty() && object < algorithm::kMaxObjects; ++object)
    outputs.push_back(tumPath(options, object));
  checkOutputs(outputs, {options.file}, options.force);

  options.tracks.ahead = options.aheadMs / 1e3;
  const recording::RecordingReader reader(options.file);
  if (options.object) requireTracked(reader, *options.object);
  session::Entry first;
  const std::int64_t firstNs = reader.entries().next(first) ? first.call.startNs : 0;
  const std::int64_t aheadNs = std::llround(options.tracks.ahead * 1e9);
  std::vector<Line> lines;
  bool anywhere = false;
  const double noise = estimateTracks(reader, options.tracks, [&](const analysis::TrackRow& row) {
    const double seconds = static_cast<double>(row.timeNs - aheadNs - firstNs) / 1e9;
    if (row.object != options.object.value_or(row.object)) return;
    anywhere = true;
    if (options.range.contains(seconds)) lines.push_back(lineOf(row, firstNs));
  });
  if (lines.empty() && options.range.given()) requirePackets(reader, options.range);
  std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) {
    return std::tie(a.time, a.object) < std::tie(b.time, b.object);
  });
  noteDoubts(reader);
  const std::string origin = originOf(options, noise);
  if (!options.csv.empty()) writeCsv(options, origin, lines);
  if (!options.jsonLines.empty()) writeJsonLines(options, origin, lines);
  if (!options.tum.empty()) writeTum(options, origin, lines);
  // A stretch may well be without.
  if (!anywhere) throw SomethingFound(analysis::whyNoTrack(reader, options.object));
}

}  // namespace

void addTracksCommand(CLI::App& app) {
  const auto options = std::make_shared<TracksOptions>();
  CLI::App* const command = app.add_subcommand(
      "tracks",
      "Estimates where the objects of a recording were, from its light: better positions than\n"
      "the library's answers, with standard deviations and velocities.\n"
      "\n"
      "  algtrack tracks walk.algrec --csv walk.csv\n"
      "  algtrack tracks walk.algrec --smooth --tum walk\n"
      "  algtrack tracks walk.algrec --ahead 33 --csv ahead.csv\n"
      "  algtrack tracks walk.algrec --csv - --object 1 --from 4 --to 7 | head\n");
  command->add_option("file", options->file, "the recording")->required();
  command->add_flag("--smooth", options->tracks.smooth,
                    "every moment by all that came before and after it; else live, by what came "
                    "before");
  command->add_option("--ahead", options->aheadMs, "ms, predict this far ahead of every packet")
      ->check(numberFrom(0, estimate::kFarthestAhead * 1e3))
      ->capture_default_str();
  command
      ->add_option("--noise", options->tracks.noise,
                   "px, standard deviation of a blob's centre (from the recording's own light)")
      ->check(numberFrom(0.001, 100));
  command->add_option("--csv", options->csv, "write a table");
  command->add_option("--jsonl", options->jsonLines, "write a JSON object per line");
  command->add_option("--tum", options->tum,
                      "write PREFIX-object0.tum and so on: t x y z 0 0 0 1 (seconds, metres)");
  addObjectOption(*command, options->object, "write this object alone");
  addTimeRangeOptions(*command, options->range);
  command->add_flag("--force", options->force, "replace existing files");
  command->callback([options] { writeTracks(*options); });
}

}  // namespace algtrack
