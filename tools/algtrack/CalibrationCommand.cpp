#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/HealthJson.h>
#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/rig/StereoRig.h>
#include <alg_kit/text/TextFile.h>
#include <tools/algtrack/CalibrationOutput.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Json.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using calibration::CalibrationHealth;
using calibration::Finding;
using calibration::FitQuality;
using calibration::Geometry;
using calibration::HealthVerdict;
using calibration::LoadedCalibration;
using rig::FieldOfView;

struct CalibrationOptions {
  std::vector<std::string> files;
  std::string recording;
  std::string unit;  ///< empty = as the file says
  std::string outputUnit = "mm";
  std::vector<std::string> outputs;
  std::string imageSize;  ///< as typed; empty = as the file has it
  bool swapCameras = false;
  bool force = false;
  bool json = false;
};

std::string unitOf(const LoadedCalibration& loaded) {
  return loaded.unit.empty() ? "(unit not stated)" : loaded.unit;
}

/// For messages: what was read.
std::string sourceOf(const CalibrationOptions& options) {
  return options.files.empty() ? options.recording : options.files[0];
}

LoadedCalibration load(const CalibrationOptions& options) {
  if (options.files.empty() && options.recording.empty())
    throw std::runtime_error("expected a calibration file or --recording, found neither");
  if (options.files.empty() && !options.unit.empty())
    throw std::runtime_error(
        "--unit: expected a calibration file with it, found none: a recording's is in millimetres");
  if (options.files.empty())
    return recordedCalibration(recording::RecordingReader(options.recording));
  return calibration::readCalibration(
      options.files, options.unit.empty() ? std::nullopt : std::optional(options.unit));
}

void runImport(const CalibrationOptions& options) {
  checkOutputs(options.outputs, options.files, options.force);
  checkCalibrationEndings(options.outputs);
  LoadedCalibration loaded = load(options);
  calibration::requireUsable(loaded, sourceOf(options));
  setImageSize(options.imageSize, loaded);
  if (options.swapCameras) loaded.calibration = calibration::withCamerasSwapped(loaded.calibration);
  const std::vector<Finding> findings = calibration::judge(loaded, calibration::measure(loaded));

  algorithm::StereoCalibration& c = loaded.calibration;
  for (double& t : c.translation) t /= calibration::millimetresPer(options.outputUnit);
  calibration::recomputeFundamental(c);
  // Only what must be said goes beside the bytes.
  const bool streams =
      std::any_of(options.outputs.begin(), options.outputs.end(), isStandardOutput);
  std::ostream& notes = streams ? std::cerr : std::cout;
  const std::string from = calibration::unitOfFile(loaded);
  const std::string conversion = from.compare(0, from.find(' '), options.outputUnit) == 0
                                     ? "in " + from
                                     : "converted from " + from + " to " + options.outputUnit;
  if (!streams)
    std::cout << oneLine(sourceOf(options)) << ": " << loaded.format << ", translation "
              << conversion << ", baseline " << numberText(calibration::baselineOf(c), "%.6g")
              << " " << options.outputUnit << ", F computed from K, R and T\n";
  if (!loaded.left.stated || !loaded.right.stated)
    notes << "Note: the file does not name its lens model; its coefficients are taken as the "
             "equidistant (fisheye) model's.\n";
  for (const Finding& finding : findings)
    if (finding.code != "fundamental")  // computed anew just now
      notes << "Note: " << finding.text << "\n";
  for (const std::string& path : options.outputs) {
    const std::string format =
        writeCalibration(path, {c, options.outputUnit, loaded.width, loaded.height}, options.force);
    if (!streams) std::cout << "Wrote " << oneLine(path) << " (" << format << ")\n";
  }
}

template <std::size_t N>
void printNumbers(const char* name, const double (&values)[N], std::size_t columns) {
  for (std::size_t i = 0; i < N; ++i) {
    if (i % columns == 0) std::printf("%-20s", i == 0 ? name : "");
    std::printf(" %16.9g%s", values[i], i % columns == columns - 1 || i + 1 == N ? "\n" : "");
  }
}

/// The four coefficients of the equidistant model, or all eight where a file gives more.
void printDistortion(const char* name, const double (&distortion)[8]) {
  double first[4];
  std::copy_n(distortion, 4, first);
  const bool more = std::any_of(distortion + 4, distortion + 8, [](double k) { return k != 0; });
  more ? printNumbers(name, distortion, 4) : printNumbers(name, first, 4);
}

void runShow(const CalibrationOptions& options) {
  const LoadedCalibration loaded = load(options);
  const algorithm::StereoCalibration& c = loaded.calibration;
  if (options.json) {
    printJson(calibration::toJson(c, loaded.unit, loaded.width, loaded.height));
    return;
  }
  std::cout << oneLine(sourceOf(options)) << ": " << loaded.format;
  std::cout << ", translation " << calibration::unitOfFile(loaded);
  if (loaded.width > 0) std::cout << ", images of " << loaded.width << " x " << loaded.height;
  std::cout << "\n" << std::flush;
  printNumbers("left K", c.leftIntrinsics, 3);
  printDistortion("left distortion", c.leftDistortion);
  printNumbers("right K", c.rightIntrinsics, 3);
  printDistortion("right distortion", c.rightDistortion);
  printNumbers("R (left to right)", c.rotation, 3);
  printNumbers(("T, " + unitOf(loaded)).c_str(), c.translation, 3);
  printNumbers(loaded.fundamentalInFile ? "F" : "F (computed)", c.fundamental, 3);
  if (std::fflush(stdout) != 0) throw std::runtime_error("standard output: writing failed");
}

Json viewJson(const FieldOfView& view) {
  return {{"horizontal_deg", view.horizontal},
          {"vertical_deg", view.vertical},
          {"diagonal_deg", view.diagonal},
          {"ends_before_the_image", view.folds}};
}

Json geometryJson(const Geometry& g) {
  return {{"baseline", g.baseline},
          {"rotation_deg", g.rotationAngle},
          {"rotation_deviation", g.rotationDeviation},
          {"rotation_determinant", g.rotationDeterminant},
          {"convergence_deg", g.convergence},
          {"image_width_px", g.width},
          {"image_height_px", g.height},
          {"image_size_stated", g.sizeStated},
          {"left_field_of_view", viewJson(g.left)},
          {"right_field_of_view", viewJson(g.right)},
          {"fundamental_error_px", g.fundamentalError}};
}

Json fitJson(const FitQuality& fit) {
  return {{"pairs", fit.pairs},
          {"median_residual_px", fit.medianResidual},
          {"p95_residual_px", fit.highResidual},
          {"accepted_share", fit.accepted},
          {"in_front_share", fit.inFront},
          {"median_depth", fit.medianDepth}};
}

Json findingsJson(const std::vector<Finding>& findings) {
  Json json = Json::array();
  for (const Finding& finding : findings)
    json.push_back({{"code", finding.code}, {"text", finding.text}});
  return json;
}

std::string sideText(const LoadedCalibration& loaded, const Geometry& geometry) {
  if (!geometry.sideBySide) return "the cameras do not stand side by side";
  return loaded.calibration.translation[0] < 0 ? "the left camera is on the left"
                                               : "the left camera is on the RIGHT";
}

std::string lensText(const calibration::Lens& lens) {
  if (lens.stated) return lens.asFound;
  return "not named: taken as equidistant";
}

void printGeometry(const LoadedCalibration& loaded, const Geometry& g) {
  const auto line = [](const std::string& name, const std::string& text) {
    std::cout << "  " << name << std::string(name.size() < 24 ? 24 - name.size() : 1, ' ') << text
              << "\n";
  };
  const auto degrees = [](double value) { return numberText(value, "%.2f") + " degrees"; };
  const auto view = [&](const FieldOfView& v) {
    return numberText(v.horizontal, "%.1f") + " x " + numberText(v.vertical, "%.1f") +
           " degrees, diagonal " + numberText(v.diagonal, "%.1f") +
           (v.folds ? " (the model ends before the image)" : "");
  };
  const double* const t = loaded.calibration.translation;
  line("unit in the file", calibration::unitOfFile(loaded));
  line("baseline", numberText(g.baseline, "%.6g") + " " + unitOf(loaded));
  line("left camera's place", "(" + numberText(t[0], "%.4g") + ", " + numberText(t[1], "%.4g") +
                                  ", " + numberText(t[2], "%.4g") +
                                  ") in the right camera's frame: " + sideText(loaded, g));
  line("rotation", degrees(g.rotationAngle) + " between the cameras");
  line("optical axes", g.convergence >= 0 ? "lean towards each other by " + degrees(g.convergence)
                                          : "lean apart by " + degrees(-g.convergence));
  line("orthonormal", "R R^T differs from the identity by " +
                          numberText(g.rotationDeviation, "%.2g") + ", determinant " +
                          numberText(g.rotationDeterminant, "%.6g"));
  line("images", std::to_string(g.width) + " x " + std::to_string(g.height) +
                     (g.sizeStated ? "" : " (not stated: twice the principal point)"));
  line("lens model",
       lensText(loaded.left) + (lensText(loaded.left) == lensText(loaded.right)
                                    ? ""
                                    : " (left), " + lensText(loaded.right) + " (right)"));
  line("field of view, left", view(g.left));
  line("field of view, right", view(g.right));
  line("F against K, R, T",
       (std::isfinite(g.fundamentalError)
            ? "mean epipolar error " + numberText(g.fundamentalError, "%.3g") + " px"
            : std::string("cannot be compared: R is no rotation")) +
           (loaded.fundamentalInFile ? "" : " (F computed from them)"));
}

void printFit(const FitQuality& fit, const LoadedCalibration& loaded) {
  std::cout << "  pairs                   " << fit.pairs
            << " (both cameras saw one blob of an id)\n";
  if (fit.pairs == 0) return;
  std::cout << "  epipolar residual       median " << numberText(fit.medianResidual, "%.3g")
            << " px, 95 % below " << numberText(fit.highResidual, "%.3g") << " px\n"
            << "  accepted by the library " << numberText(100 * fit.accepted, "%.1f") << " %\n"
            << "  in front of the cameras " << numberText(100 * fit.inFront, "%.1f")
            << " %, median depth " << numberText(fit.medianDepth, "%.4g") << " " << unitOf(loaded)
            << "\n";
}

void printHealth(const CalibrationHealth& health) {
  std::cout << "  health                  " << health.text << "\n";
  if (!health.trend.empty()) {
    Table table({"from s", "to s", "pairs", "residual px", "refined px", "rotation degrees", "+-"});
    for (const calibration::HealthPoint& point : health.trend)
      table.addRow({Cell(point.from, 1), Cell(point.to, 1), static_cast<std::int64_t>(point.pairs),
                    Cell(point.residual, 3), Cell(point.residualRefined, 3),
                    Cell(point.rotation, 3), Cell(point.rotationDeviation, 3)});
    table.print(std::cout);
  }
  std::cout << "What this recording cannot tell:\n";
  for (const std::string& text : health.unseen) std::cout << "  - " << text << "\n";
}

Json healthJson(const CalibrationHealth& health) {
  return {{"verdict", calibration::nameOf(health.verdict)},
          {"text", health.text},
          {"rotation_deg", health.refinement.rotation},
          {"direction_deg", health.refinement.direction},
          {"unseen", health.unseen},
          {"trend", calibration::toJson(health.trend)}};
}

/// The mistakes with a name come first: only what they leave is a matter of health.
void judgeHealth(const CalibrationHealth& health, std::vector<Finding>& findings) {
  if (health.verdict != HealthVerdict::kStale && health.verdict != HealthVerdict::kDrifts) return;
  findings.clear();
  findings.push_back(
      {calibration::nameOf(health.verdict), "As the recording shows it, " + health.text + "."});
}

void runCheck(const CalibrationOptions& options) {
  const LoadedCalibration loaded = load(options);
  const Geometry geometry = calibration::measure(loaded);
  std::vector<Finding> findings = calibration::judge(loaded, geometry);
  std::optional<FitQuality> fit;
  std::optional<CalibrationHealth> health;
  if (!options.recording.empty()) {
    const recording::RecordingReader reader(options.recording);
    noteMissingJournal(reader);
    const auto pairs = calibration::observedPairs(reader);
    fit = calibration::fit(loaded.calibration, pairs);
    calibration::judgeWithPairs(loaded, pairs, findings);
    const bool nameless = std::all_of(findings.begin(), findings.end(), [](const Finding& finding) {
      return finding.code == "recording-unexplained";
    });
    if (nameless && loaded.unit == "mm") {
      health = calibration::healthOf(loaded, pairs);
      judgeHealth(*health, findings);
    }
  }

  if (options.json) {
    Json json = {{"file", sourceOf(options)},
                 {"format", loaded.format},
                 {"unit", loaded.unit.empty() ? Json(nullptr) : Json(loaded.unit)},
                 {"geometry", geometryJson(geometry)}};
    if (fit) json["recording"] = fitJson(*fit);
    if (health) json["health"] = healthJson(*health);
    json["findings"] = findingsJson(findings);
    printJson(json);
  } else {
    std::cout << oneLine(sourceOf(options)) << ": " << loaded.format << "\n";
    printGeometry(loaded, geometry);
    if (fit) {
      std::cout << oneLine(options.recording) << ": recording\n";
      printFit(*fit, loaded);
      if (health) printHealth(*health);
    }
    std::cout << (findings.empty() ? "Nothing seems wrong.\n" : "What seems wrong:\n");
    for (const Finding& finding : findings) std::cout << "  * " << finding.text << "\n";
  }
  if (findings.empty()) return;
  std::string codes;
  for (const Finding& finding : findings)
    if (codes.find(finding.code) == std::string::npos)
      codes += (codes.empty() ? "" : ", ") + finding.code;
  throw SomethingFound(sourceOf(options) + ": something seems wrong with it: " + codes);
}

void addInput(CLI::App& command, CalibrationOptions& options, bool required) {
  auto* const files = command.add_option(
      "files", options.files, "Calibration: one file, or OpenCV's intrinsics and extrinsics");
  files->expected(1, 2);
  if (required) files->required();
  command
      .add_option("--unit", options.unit,
                  "Unit of the file's translation (Kalibr: m, record: mm; OpenCV's files say none)")
      ->check(oneOf({"mm", "cm", "m", "in"}));
}

}  // namespace

void addCalibrationCommand(CLI::App& app) {
  auto* const command = app.add_subcommand(
      "calibration",
      "Reads, converts and judges stereo calibrations.\n"
      "\n"
      "  algtrack calibration import camchain.yaml -o rig.bin -o rig.json\n"
      "  algtrack calibration import intrinsics.yml extrinsics.yml --unit m -o rig.bin\n"
      "  algtrack calibration show rig.bin\n"
      "  algtrack calibration check rig.bin --recording walk.algrec\n"
      "  algtrack calibration refine walk.algrec -o healed.json\n"
      "\n"
      "Formats: Kalibr's camera chain, OpenCV's FileStorage (K1 D1 K2 D2 R T, or M1 M2),\n"
      "our 920-byte record, our JSON.\n");
  command->require_subcommand(1);
  const auto options = std::make_shared<CalibrationOptions>();
  constexpr const char* kRecordingHelp = "Recording: its own calibration, where no file is given";

  auto* const import = command->add_subcommand(
      "import",
      "Writes a calibration as the 920-byte record that Init takes, or for other programs.\n"
      "\n"
      "  algtrack calibration import camchain.yaml -o rig.bin\n"
      "  algtrack calibration import stereo.yml --unit m -o rig.bin -o rig.json\n"
      "  algtrack calibration import rig.json -o opencv.yml -o camchain.yaml\n");
  addInput(*import, *options, true);
  import
      ->add_option("-o,--output", options->outputs,
                   std::string("File to write; the ending decides: ") + kCalibrationEndings)
      ->required()
      ->expected(1)
      ->take_all();
  import
      ->add_option("--output-unit", options->outputUnit,
                   "Unit to write the translation in; the library's limits are made for mm")
      ->check(oneOf({"mm", "cm", "m", "in"}))
      ->capture_default_str();
  import->add_option("--image-size", options->imageSize,
                     "WIDTH,HEIGHT in pixels, where the file does not state it");
  import->add_flag("--swap-cameras", options->swapCameras, "Exchange left and right");
  import->add_flag("--force", options->force, "Overwrite existing files");
  import->callback([options] { runImport(*options);
});

auto* const show = command->add_subcommand(
    "show", "Prints a calibration.\n\n  algtrack calibration show rig.bin --json\n");
addInput(*show, *options, false);
show->add_option("--recording", options->recording, kRecordingHelp);
show->add_flag("--json", options->json, "Print JSON");
show->callback([options] { runShow(*options); });

auto* const check = command->add_subcommand(
    "check",
    "Prints what a person can judge, and says what seems wrong. Exit code 0 if nothing does.\n"
    "\n"
    "  algtrack calibration check camchain.yaml\n"
    "  algtrack calibration check rig.bin --recording walk.algrec\n");
addInput(*check, *options, false);
check->add_option("--recording", options->recording,
                  std::string(kRecordingHelp) + "; its blobs are held against the calibration");
check->add_flag("--json", options->json, "Print JSON");
check->callback([options] { runCheck(*options); });

addRefineCommand(*command);
}  // namespace algtrack

}  // namespace algtrack
