#include <alg_factory/api/Constants.h>
#include <alg_kit/bodies/BodyAbsence.h>
#include <alg_kit/bodies/BodyCheck.h>
#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/bodies/BodyMap.h>
#include <alg_kit/bodies/BodyTruth.h>
#include <alg_kit/bodies/Pivot.h>
#include <alg_kit/recording/Recording.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/MomentOptions.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using bodies::Body;
using bodies::BodyPose;
using bodies::BodyRow;
using recording::RecordingReader;

constexpr double kMillimetresPerMetre = 1000;
constexpr double kNearestOnMap = 500, kFarthestOnMap = 4000, kMapStep = 500;  // mm
constexpr double kMapNoise = 0.05;                                            // px

struct BodyOptions {
  std::string file;
  std::string ids = "0,1,2,3,4,5";
  std::string name = "body";
  std::vector<std::string> bodies;
  std::string output, csv, tum;
  double noise = 0;      ///< px; 0 = from the recording's own light
  double tolerance = 1;  ///< mm
  RigOption rig;
  double aheadMs = 0;
  analysis::TimeRange range;  ///< of the packets
  bool smooth = false;
  bool single = false;
  bool force = false;
  bool json = false;
};

/// A text as one field of a table.
std::string csvField(const std::string& text) {
  std::string field = oneLine(text);
  if (field.find_first_of(",\"") == std::string::npos) return field;
  for (std::size_t i = 0; (i = field.find('"', i)) != std::string::npos; i += 2)
    field.insert(i, 1, '"');
  return '"' + field + '"';
}

std::vector<int> idsFrom(const std::string& text) {
  std::vector<std::size_t> counts;
  for (std::size_t n = 3; n <= algorithm::kMaxObjects; ++n) counts.push_back(n);
  std::vector<int> ids;
  for (const double id : numbersOf("--ids", text, counts, 1000)) {
    if (id != std::floor(id) || id < 0 || id >= algorithm::kMaxObjects)
      throw std::runtime_error("--ids: expected whole numbers from 0 to " +
                               std::to_string(algorithm::kMaxObjects - 1) + ", found " +
                               numberText(id));
    ids.push_back(static_cast<int>(id));
  }
  std::sort(ids.begin(), ids.end());
  if (std::adjacent_find(ids.begin(), ids.end()) != ids.end())
    throw std::runtime_error("--ids: expected every id once, found one twice");
  return ids;
}

double noiseFor(const BodyOptions& options, const RecordingReader& reader) {
  return options.noise > 0 ? options.noise : bodies::blobNoiseOf(reader);
}

void writeBody(const std::string& path, const Body& body, bool force) {
  OutputFile file(path, force);
  file.stream() << bodies::bodyText(body);
  file.commit();
}

Json listOf(const Eigen::Vector3d& v) {
  return {v.x(), v.y(), v.z()};
}

Table markerTable(const Body& body) {
  Table table({"id",
               {"x", "x_mm"},
               {"y", "y_mm"},
               {"z", "z_mm"},
               {"+- x", "sd_x_mm"},
               {"+- y", "sd_y_mm"},
               {"+- z", "sd_z_mm"}});
  for (const bodies::BodyMarker& marker : body.markers) {
    std::vector<Cell> row = {marker.id};
    for (const Eigen::Vector3d* const values : {&marker.position, &marker.deviation})
      for (int i = 0; i < 3; ++i) row.emplace_back((*values)[i], 3);
    table.addRow(std::move(row));
  }
  return table;
}

Table distanceTable(const bodies::LearnedBody& learned) {
  Table table({"first", "second", {"distance mm", "distance_mm"}, {"+-", "sd_mm"}, "frames"});
  for (const bodies::MarkerDistance& d : learned.distances)
    table.addRow({d.first, d.second, Cell(d.distance, 3), Cell(d.deviation, 3), d.frames});
  return table;
}

std::string listText(const std::vector<int>& ids) {
  std::string text;
  for (const int id : ids) text += (text.empty() ? "" : ", ") + std::to_string(id);
  return text;
}

void learnBody(const BodyOptions& options) {
  checkOutputs({options.output, options.json ? "-" : ""}, {options.file}, options.force);
  const std::vector<int> ids = idsFrom(options.ids);
  bodies::requireName(options.name, "--name");
  const RecordingReader reader(options.file);
  noteDoubts(reader);
  const double noise = noiseFor(options, reader);
  bodies::LearnedBody learned;
  try {
    learned = bodies::learn(bodies::pointsOf(reader, ids, noise), ids, options.name);
  } catch (const recording::RecordingError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(options.file + ": " + error.what());
  }
  writeBody(options.output, learned.body, options.force);
  Json pairs = Json::array();
  for (const auto& [a, b] : learned.neverTogether) pairs.push_back({a, b});
  if (options.json) {
    printJson({{"file", options.output},
               {"frames", learned.frames},
               {"noise_px", noise},
               {"misfit", learned.misfit},
               {"markers", markerTable(learned.body).json()},
               {"distances", distanceTable(learned).json()},
               {"loose", learned.loose},
               {"not_linked", learned.notLinked},
               {"never_together", pairs}});
    return;
  }
  if (isStandardOutput(options.output)) return;
  std::cout << learned.frames << " frames, blob noise " << numberText(noise, "%.3f")
            << " px, misfit " << numberText(learned.misfit, "%.2f")
            << " (1: rigid, and the noise is what it is)\n";
  markerTable(learned.body).print(std::cout);
  distanceTable(learned).print(std::cout);
  for (const auto& [a, b] : learned.neverTogether)
    std::cout << "Note: markers " << a << " and " << b << " were never seen together.\n";
  if (!learned.notLinked.empty())
    std::cout << "Left out, never seen with three of the others: " << listText(learned.notLinked)
              << "\n";
  if (!learned.loose.empty())
    std::cout << "Left out, not still relative to the rest: " << listText(learned.loose) << "\n";
  std::cout << "Wrote " << oneLine(options.output) << "\n";
}

std::string originOf(const BodyOptions& options, double noise) {
  std::string manner = options.smooth ? "smoothed" : options.single ? "frame by frame" : "live";
  if (options.aheadMs > 0) manner += ", " + numberText(options.aheadMs) + " ms ahead";
  return "algtrack body pose of " +
         oneLine(std::filesystem::path(options.file).filename().string()) + ", " + manner +
         ", blob noise " + numberText(noise, "%.4g") + " px";
}

/// Empty for a body whose orientation is known in whole.
std::string directionCell(const Body& body, const BodyPose& pose) {
  return body.isPair() ? numberText(pose.directionDeviation * bodies::kDegrees) : "";
}

void writeCsv(const BodyOptions& options, const std::vector<Body>& known,
              const std::vector<BodyRow>& rows, const std::string& origin) {
  const bool pairs = std::any_of(known.begin(), known.end(), std::mem_fn(&Body::isPair));
  OutputFile file(options.csv, options.force);
  std::ostream& out = file.stream();
  out << "# " << origin
      << "\n# time_s: of the packet's call, or of the moment ahead, since the recording's first "
         "call"
         "\n# x, y, z: the body's origin, mm; axes as the library delivers (x right, y up, z "
         "towards the viewer)"
         "\n# qx, qy, qz, qw: turns the body's axes into these; sd_*: standard deviations, mm, and "
         "degrees about these axes"
         "\n# markers: used of the packet's; residual_px: their root mean square per number"
         "\n# age_s: since a marker was seen"
         "\n# packet, call: by which it was known\n";
  if (pairs)
    out << "# of two markers: the turn about their line is not known, inf; sd_direction: standard "
           "deviation of the line's direction, degrees per axis across it\n";
  out << "time_s,body,x,y,z,qx,qy,qz,qw,sd_x,sd_y,sd_z,sd_rx,sd_ry,sd_rz,markers,residual_px,"
         "source,age_s,packet,call"
      << (pairs ? ",sd_direction\n" : "\n");
  for (const BodyRow& row : rows) {
    const BodyPose& pose = row.pose.pose;
    const bodies::RigidMotion& m = pose.motion;
    out << numberText(row.time, "%.9f") << "," << csvField(known[row.body].name);
    for (const double value : {m.position.x(), m.position.y(), m.position.z(), m.orientation.x(),
                               m.orientation.y(), m.orientation.z(), m.orientation.w()})
      out << "," << numberText(value);
    for (const double deviation : bodies::deviationsOf(pose)) out << "," << numberText(deviation);
    out << "," << pose.markers << "," << numberText(pose.residual) << "," << nameOf(row.pose.source)
        << "," << numberText(row.pose.age) << "," << row.packet << "," << row.call;
    if (pairs) out << "," << directionCell(known[row.body], pose);
    out << "\n";
  }
  file.commit();
}

std::string tumPath(const BodyOptions& options, const Body& body) {
  if (isStandardOutput(options.tum)) return options.tum;
  return options.tum + "-" + body.name + ".tum";
}

void writeTum(const BodyOptions& options, const std::vector<Body>& known,
              const std::vector<BodyRow>& rows, const std::string& origin) {
  for (std::size_t b = 0; b < known.size(); ++b) {
    OutputFile file(tumPath(options, known[b]), options.force);
    file.stream() << "# " << origin
                  << "\n# t in seconds since the recording's first call; metres, delivered axes"
                  << (known[b].isPair() ? "\n# two markers: the turn about their line is not known"
                                        : "")
                  << "\n# t x y z qx qy qz qw\n";
    for (const BodyRow& row : rows) {
      if (row.body != b) continue;
      const bodies::RigidMotion& m = row.pose.pose.motion;
      file.stream() << numberText(row.time, "%.9f");
      for (int i = 0; i < 3; ++i)
        file.stream() << " " << numberText(m.position[i] / kMillimetresPerMetre);
      for (int i = 0; i < 4; ++i) file.stream() << " " << numberText(m.orientation.coeffs()[i]);
      file.stream() << "\n";
    }
    file.commit();
  }
}

void printSummary(const BodyOptions& options, const RecordingReader& reader,
                  const std::vector<Body>& known, const std::vector<BodyRow>& rows) {
  const bool compared = options.aheadMs == 0 && reader.hasTruth();
  Table table({"body", "poses", {"error mm", "error_mm"}, {"error degrees", "error_deg"}});
  for (std::size_t b = 0; b < known.size(); ++b) {
    std::vector<BodyRow> own;
    for (const BodyRow& row : rows)
      if (row.body == b) own.push_back(row);
    const bodies::BodyErrors errors =
        compared ? bodies::errorsOf(known[b], own, bodies::trueMotions(reader, known[b]))
                 : bodies::BodyErrors();
    const auto cell = [&](double value) {
      return errors.packets > 0 ? Cell(value, 3) : Cell::none();
    };
    table.addRow({oneLine(known[b].name), static_cast<std::int64_t>(own.size()),
                  cell(errors.position), cell(errors.turn)});
  }
  table.print(std::cout);
  if (std::any_of(known.begin(), known.end(), std::mem_fn(&Body::isPair)))
    std::cout << "Two markers have a direction; how far they are turned about it is not known.\n";
  if (compared) std::cout << "Errors: root mean square against the recording's truth.\n";
}

/// A body that was nowhere is worth a line: it may be another one's file.
void requirePoses(const BodyOptions& options, const RecordingReader& reader,
                  const std::vector<Body>& known, const std::vector<BodyRow>& rows, double noise) {
  std::string nowhere;
  for (std::size_t b = 0; b < known.size(); ++b) {
    if (std::any_of(rows.begin(), rows.end(), [b](const BodyRow& row) { return row.body == b; }))
      continue;
    nowhere += (nowhere.empty() ? "" : "; ") + options.bodies[b] + ": no pose in " + options.file +
               ": " + bodies::whyNoPose(reader, known[b], noise);
  }
  if (!nowhere.empty()) throw SomethingFound(nowhere);
}

void poseBody(const BodyOptions& options) {
  if (options.csv.empty() && options.tum.empty())
    throw std::runtime_error("body pose: expected an output, --csv or --tum, found none");
  if (options.aheadMs > 0 && (options.smooth || options.single))
    throw std::runtime_error(std::string("--ahead: expected a live pose, found ") +
                             (options.smooth ? "--smooth, which knows what came" : "--single"));
  checkTimeRange(options.range);
  const std::vector<Body> known = bodies::readBodies(options.bodies, bodies::Pairs::kTaken);
  std::vector<std::string> outputs = {options.csv}, inputs = options.bodies;
  const bool tumShown = isStandardOutput(options.tum);
  if (tumShown && known.size() > 1)
    throw std::runtime_error("--tum: expected one body for the standard output, found " +
                             std::to_string(known.size()));
  if (tumShown) outputs.push_back(options.tum);
  for (std::size_t b = 0; b < known.size() && !options.tum.empty() && !tumShown; ++b) {
    const std::string& name = known[b].name;
    if (name.empty() || name.find('/') != std::string::npos || oneLine(name) != name)
      throw std::runtime_error(
          "--tum: expected a body's name that can be part of a file's, found '" + oneLine(name) +
          "'");
    for (std::size_t other = 0; other < b; ++other)
      if (known[other].name == name)
        throw std::runtime_error("--tum: expected bodies of different names, found '" + name +
                                 "' twice");
    outputs.push_back(tumPath(options, known[b]));
  }
  inputs.push_back(options.file);
  checkOutputs(outputs, inputs, options.force);

  bodies::BodyTrackOptions how;
  how.manner = options.smooth   ? bodies::Manner::kSmoothed
               : options.single ? bodies::Manner::kSingle
                                : bodies::Manner::kLive;
  how.ahead = options.aheadMs / 1e3;
  how.noise = options.noise;
  const RecordingReader reader(options.file);
  noteDoubts(reader);
  std::vector<BodyRow> rows;
  const double noise = bodies::trackBodies(reader, known, how, [&](const BodyRow& row) {
    const auto packetNs = std::llround((row.time - how.ahead) * 1e9);
    if (options.range.contains(static_cast<double>(packetNs) / 1e9)) rows.push_back(row);
  });
  if (rows.empty() && options.range.given()) requirePackets(reader, options.range);
  const std::string origin = originOf(options, noise);
  if (!options.csv.empty()) writeCsv(options, known, rows, origin);
  if (!options.tum.empty()) writeTum(options, known, rows, origin);
  if (!isStandardOutput(options.csv) && !tumShown) printSummary(options, reader, known, rows);
  // A stretch may well be without.
  if (!options.range.given()) requirePoses(options, reader, known, rows, noise);
}

void pivotBody(const BodyOptions& options) {
  // The body may get its tip where it is: it is read before.
  checkOutputs({options.output, options.json ? "-" : ""}, {options.file}, options.force);
  Body body = bodies::readBody(options.bodies.front());
  const RecordingReader reader(options.file);
  noteDoubts(reader);
  const std::vector<BodyPose> poses = bodies::posesOf(reader, body, noiseFor(options, reader));
  bodies::PivotFit fit;
  try {
    fit = bodies::pivotOf(poses);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(options.file + ": " + error.what());
  }
  const Eigen::Vector3d deviation = fit.covariance.diagonal().cwiseSqrt();
  body.pivot = fit.tip;
  if (!options.output.empty()) writeBody(options.output, body, options.force);
  if (options.json) {
    printJson({{"tip_mm", listOf(fit.tip)},
               {"sd_mm", listOf(deviation)},
               {"residual_mm", fit.residual},
               {"turned_deg", fit.turned},
               {"poses", fit.poses}});
    return;
  }
  if (isStandardOutput(options.output)) return;
  Table table({{"tip", "axis"}, "mm", {"+-", "sd_mm"}});
  for (int i = 0; i < 3; ++i)
    table.addRow({std::string(1, "xyz"[i]), Cell(fit.tip[i], 3), Cell(deviation[i], 3)});
  table.print(std::cout);
  std::cout << fit.poses << " poses, turned by up to " << numberText(fit.turned, "%.0f")
            << " degrees, residual " << numberText(fit.residual, "%.3f") << " mm\n";
  if (!options.output.empty()) std::cout << "Wrote " << oneLine(options.output) << "\n";
}

void checkBody(const BodyOptions& options) {
  const Body body = bodies::readBody(options.bodies.front());
  const RecordingReader reader(options.file);
  noteDoubts(reader);
  std::vector<int> ids;
  for (const bodies::BodyMarker& marker : body.markers) ids.push_back(marker.id);
  bodies::ShapeCheck check;
  try {
    check = bodies::checkShape(body, bodies::pointsOf(reader, ids, noiseFor(options, reader)),
                               options.tolerance);
  } catch (const recording::RecordingError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(options.file + ": " + error.what());
  }
  Table table({"id", {"shift mm", "shift_mm"}, {"+-", "sd_mm"}, "verdict"});
  std::vector<int> moved;
  for (const bodies::MarkerShift& marker : check.markers) {
    const char* const verdict = marker.moved ? "moved" : marker.seen ? "in place" : "not seen";
    table.addRow({marker.id, marker.seen ? Cell(marker.shift, 3) : Cell::none(),
                  marker.seen ? Cell(marker.deviation, 3) : Cell::none(), verdict});
    if (marker.moved) moved.push_back(marker.id);
  }
  if (options.json)
    printJson({{"same", check.same}, {"which_known", check.known}, {"markers", table.json()}});
  else
    table.print(std::cout);
  if (check.same) return;
  throw SomethingFound(options.bodies.front() + ": the shape is another now: " +
                       (check.known ? "moved: marker " + listText(moved)
                                    : "three markers do not tell which one moved"));
}

void mapBody(const BodyOptions& options) {
  const Body body = bodies::readBody(options.bodies.front());
  const rig::StereoRig rig = options.rig.given() ? options.rig.read() : rig::builtInRig();
  const estimate::PixelEquations cameras(rig.calibration);
  std::vector<double> distances;
  for (double distance = kNearestOnMap; distance <= kFarthestOnMap; distance += kMapStep)
    distances.push_back(distance);
  Table table({{"distance mm", "distance_mm"},
               {"across mm", "across_mm"},
               {"depth mm", "depth_mm"},
               {"about the view degrees", "about_view_deg"},
               {"about x and y degrees", "about_across_deg"}});
  const auto rows = bodies::expectedErrors(body, cameras, options.noise, distances);
  if (rows.empty())
    throw std::runtime_error(options.bodies.front() +
                             ": expected a body whose pose both cameras tell at one of 0.5 to 4 m, "
                             "found none");
  for (const bodies::ExpectedErrors& row : rows)
    table.addRow({Cell(row.distance, 0), Cell(row.across, 3), Cell(row.depth, 3),
                  Cell(row.aboutView, 3), Cell(row.aboutAcross, 3)});
  if (options.json) {
    printJson({{"noise_px", options.noise}, {"rows", table.json()}});
    return;
  }
  table.print(std::cout);
  std::cout << "Standard deviations of one frame's pose at " << numberText(options.noise)
            << " px, anyhow turned, all markers seen by both cameras.\n";
}

void addFile(CLI::App& command, BodyOptions& options) {
  command.add_option("file", options.file, "the recording")->required();
  command
      .add_option("--noise", options.noise,
                  "px, standard deviation of a blob's centre (from the recording's own light)")
      ->check(numberFrom(0.001, 100));
}

/// One; what stands behind it is no second one.
void addBodyFile(CLI::App& command, BodyOptions& options, const std::string& description) {
  command.add_option("--body", options.bodies, description)
      ->required()
      ->expected(1)
      ->allow_extra_args(false);
}

}  // namespace

void addBodyCommand(CLI::App& app) {
  CLI::App* const body = app.add_subcommand(
      "body",
      "Markers that belong together give a pose: position and orientation.\n"
      "\n"
      "  algtrack body learn tool.algrec --ids 0,1,2,3 -o tool.json\n"
      "  algtrack body pose work.algrec --body tool.json --csv poses.csv --from 4 --to 7\n"
      "  algtrack body pose work.algrec --body tool.json --smooth --tum work\n"
      "  algtrack body pivot spot.algrec --body tool.json -o tool.json --force\n"
      "  algtrack body map --body plan.json --calibration camchain.yaml\n"
      "  algtrack body check later.algrec --body tool.json\n");
  body->require_subcommand(1);

  const auto learning = std::make_shared<BodyOptions>();
  CLI::App* const learn =
      body->add_subcommand("learn", "Finds a body's shape from an ordinary recording.");
  addFile(*learn, *learning);
  learn->add_option("--ids", learning->ids, "the body's blob ids")->capture_default_str();
  learn->add_option("--name", learning->name, "what it is called")->capture_default_str();
  learn->add_option("-o,--output", learning->output, "the body to write, JSON")->required();
  learn->add_flag("--force", learning->force, "replace an existing file");
  learn->add_flag("--json", learning->json, "print the result as JSON");
  learn->callback([learning] { learnBody(*learning); });

  const auto posing = std::make_shared<BodyOptions>();
  CLI::App* const pose = body->add_subcommand(
      "pose", "Writes where bodies were, with standard deviations: live, by what came before.");
  addFile(*pose, *posing);
  addBodyFiles(*pose, posing->bodies)->required();
  CLI::Option* const smooth = pose->add_flag("--smooth", posing->smooth,
                                             "every moment by all that came before and after it");
  pose->add_flag("--single", posing->single, "every packet by itself")->excludes(smooth);
  pose->add_option("--ahead", posing->aheadMs, "ms, predict this far ahead of every packet")
      ->check(numberFrom(0, bodies::kFarthestAhead * 1e3))
      ->capture_default_str();
  addTimeRangeOptions(*pose, posing->range);
  pose->add_option("--csv", posing->csv, "write a table");
  pose->add_option(
      "--tum", posing->tum,
      "write PREFIX-NAME.tum for every body: t x y z qx qy qz qw (seconds, metres); - is "
      "the standard output, of one body");
  pose->add_flag("--force", posing->force, "replace existing files");
  pose->callback([posing] { poseBody(*posing); });

  const auto pivoting = std::make_shared<BodyOptions>();
  CLI::App* const pivot = body->add_subcommand(
      "pivot", "Finds a pointer's tip from a recording in which it turns about its tip.");
  addFile(*pivot, *pivoting);
  addBodyFile(*pivot, *pivoting, "the body");
  pivot->add_option("-o,--output", pivoting->output, "write the body with its tip");
  pivot->add_flag("--force", pivoting->force, "replace an existing file");
  pivot->add_flag("--json", pivoting->json, "print the result as JSON");
  pivot->callback([pivoting] { pivotBody(*pivoting); });

  const auto mapping = std::make_shared<BodyOptions>();
  mapping->noise = kMapNoise;
  CLI::App* const map =
      body->add_subcommand("map", "How well a camera pair can know a body's pose, by distance.");
  addBodyFile(*map, *mapping, "the body, built or planned");
  addRigOption(*map, mapping->rig,
               "the camera pair, in any format that `algtrack calibration` reads (built in)");
  map->add_option("--noise", mapping->noise, "px, standard deviation of a blob's centre")
      ->check(numberFrom(0.001, 100))
      ->capture_default_str();
  map->add_flag("--json", mapping->json, "print the result as JSON");
  map->callback([mapping] { mapBody(*mapping); });

  const auto checking = std::make_shared<BodyOptions>();
  CLI::App* const check = body->add_subcommand(
      "check",
      "Is a body still the same shape? Names the markers that moved; status 1 if one did.");
  addFile(*check, *checking);
  addBodyFile(*check, *checking, "the body");
  check->add_option("--tolerance", checking->tolerance, "mm, shifts below it do not count")
      ->check(numberFrom(0.01, 1000))
      ->capture_default_str();
  check->add_flag("--json", checking->json, "print the result as JSON");
  check->callback([checking] { checkBody(*checking); });
}

}  // namespace algtrack
