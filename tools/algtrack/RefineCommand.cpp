#include <alg_kit/calibration/Refinement.h>
#include <tools/algtrack/CalibrationOutput.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace algtrack {
namespace {

using calibration::LoadedCalibration;
using calibration::Refinement;
using Json = nlohmann::ordered_json;

constexpr std::size_t kFewestWandViews = 20;

struct RefineCommandOptions {
  std::vector<std::string> recordings;
  std::string from;
  std::string unit;
  std::string output;
  std::string imageSize;  ///< as typed; empty = as the calibration has it
  double baseline = 0;    ///< mm; 0 = kept
  double wand = 0;        ///< mm; 0 = not used
  bool intrinsics = false;
  bool force = false;
  bool json = false;
};

/// 27,412
std::string grouped(std::size_t count) {
  std::string text = std::to_string(count);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, ",");
  return text;
}

/// The length of the translation, and where it comes from.
struct Baseline {
  double length = 0;     ///< mm
  double deviation = 0;  ///< mm; 0 = not known
  std::string source;
};

Baseline baselineFor(const RefineCommandOptions& options, const Refinement& result,
                     const std::vector<calibration::TwoPointView>& twoPoints) {
  const double kept = calibration::baselineOf(result.calibration);
  if (options.baseline > 0) return {options.baseline, 0, "as given with --baseline"};
  if (options.wand == 0) return {kept, 0, "kept: blobs do not show it"};
  const calibration::WandLength wand = calibration::wandLength(result.calibration, twoPoints);
  if (wand.views < kFewestWandViews)
    throw std::runtime_error("--wand: expected at least " + std::to_string(kFewestWandViews) +
                             " frames in which both cameras saw two blobs of one id, found " +
                             std::to_string(wand.views));
  const double factor = options.wand / wand.length;
  return {kept * factor, kept * factor * wand.deviation / wand.length,
          "from " + grouped(wand.views) + " views of the two-point object, " +
              numberText(wand.length, "%.3f") + " mm long before"};
}

void line(const std::string& name, const std::string& before, const std::string& after) {
  std::printf("%-37s %10s %10s\n", name.c_str(), before.c_str(), after.c_str());
}

void print(const Refinement& r, const Baseline& baseline) {
  line("pairs " + grouped(r.pairs) + " (" + grouped(r.heldBack) + " held back)", "before", "after");
  line("residual, held back, median px", numberText(r.before.medianResidual, "%.3g"),
       numberText(r.after.medianResidual, "%.3g"));
  line("residual, held back, 95 % below px", numberText(r.before.highResidual, "%.3g"),
       numberText(r.after.highResidual, "%.3g"));
  line("accepted by the library, held back", numberText(100 * r.before.accepted, "%.1f %%"),
       numberText(100 * r.after.accepted, "%.1f %%"));
  const auto angle = [](double value, double deviation) {
    return numberText(value, "%.3f") + " +- " + numberText(deviation, "%.2g") + " degrees" +
           (value <= 2 * deviation ? " (not more than its uncertainty)" : "");
  };
  std::printf("%-48s %s\n", "rotation against the given calibration",
              angle(r.rotation, r.rotationDeviation).c_str());
  std::printf("%-48s %s\n", "direction of translation",
              angle(r.direction, r.directionDeviation).c_str());
  std::printf(
      "%-48s %s mm%s, %s\n", "baseline", numberText(baseline.length, "%.4f").c_str(),
      baseline.deviation > 0 ? (" +- " + numberText(baseline.deviation, "%.2g")).c_str() : "",
      baseline.source.c_str());
  std::printf("%-48s %s px, %s of %s pairs fit nothing\n", "noise of a blob's centre",
              numberText(r.noise, "%.3g").c_str(), grouped(r.outliers).c_str(),
              grouped(r.used + r.outliers).c_str());
  std::string depths, before, after, alone;
  for (const calibration::ExpectedError& e : r.expected) {
    const std::string between = depths.empty() ? "" : " / ";
    depths += between + numberText(e.depth / 1000, "%g");
    before += between + numberText(e.before, "%.3g");
    after += between + numberText(e.after(), "%.3g");
    alone += between + numberText(e.fromCalibration, "%.2g");
  }
  std::printf("%-48s %s\n", ("expected error at " + depths + " m, mm").c_str(), after.c_str());
  std::printf("%-48s %s\n", "  of it from the calibration alone", alone.c_str());
  std::printf("%-48s %s\n", "  by which the given calibration is off", before.c_str());
  if (r.parameters.size() > calibration::kPoseParameters) {
    std::printf("%-48s %12s %12s\n", "parameter", "change", "+-");
    for (const calibration::FittedParameter& p : r.parameters)
      std::printf("  %-46s %12s %12s %s\n", p.name.substr(0, p.name.find(" (")).c_str(),
                  numberText(p.change, "%.4g").c_str(), numberText(p.deviation, "%.2g").c_str(),
                  p.unit.c_str());
  }
  if (r.undetermined.empty()) std::printf("not determined: nothing that was asked for\n");
  for (const std::string& text : r.undetermined) std::printf("not determined: %s\n", text.c_str());
  for (const std::string& text : r.advice) std::printf("  %s\n", text.c_str());
  if (!r.changed)
    std::printf("The given calibration agrees within the uncertainty: it is left as it is.\n");
}

Json heldBackJson(const calibration::FitQuality& fit) {
  return {{"median_residual_px", fit.medianResidual},
          {"p95_residual_px", fit.highResidual},
          {"accepted_share", fit.accepted},
          {"in_front_share", fit.inFront}};
}

Json jsonOf(const RefineCommandOptions& options, const Refinement& r, const Baseline& baseline) {
  Json json = {{"recordings", options.recordings},
               {"refusal", r.refusal.empty() ? Json(nullptr) : Json(r.refusal)},
               {"changed", r.changed},
               {"pairs", r.pairs},
               {"pairs_held_back", r.heldBack},
               {"pairs_used", r.used},
               {"outliers", r.outliers},
               {"noise_px", r.noise},
               {"before", heldBackJson(r.before)},
               {"after", heldBackJson(r.after)},
               {"rotation_deg", r.rotation},
               {"rotation_sd_deg", r.rotationDeviation},
               {"direction_deg", r.direction},
               {"direction_sd_deg", r.directionDeviation},
               {"baseline_mm", baseline.length},
               {"baseline_sd_mm", baseline.deviation > 0 ? Json(baseline.deviation) : Json()}};
  json["expected_errors"] = Json::array();
  for (const calibration::ExpectedError& e : r.expected)
    json["expected_errors"].push_back({{"depth_mm", e.depth},
                                       {"given_off_mm", e.before},
                                       {"after_mm", e.after()},
                                       {"from_noise_mm", e.fromNoise},
                                       {"from_calibration_mm", e.fromCalibration}});
  json["parameters"] = Json::array();
  for (const calibration::FittedParameter& p : r.parameters)
    json["parameters"].push_back({{"name", p.name},
                                  {"unit", p.unit},
                                  {"change", p.change},
                                  {"sd", p.deviation},
                                  {"determined", p.determined()}});
  json["undetermined"] = r.undetermined;
  json["advice"] = r.advice;
  return json;
}

/// What is counted twice seems twice as certain.
void requireDifferent(const std::vector<std::string>& recordings) {
  for (std::size_t i = 0; i < recordings.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      std::error_code error;
      if (std::filesystem::equivalent(recordings[i], recordings[j], error))
        throw std::runtime_error(recordings[i] +
                                 ": expected different recordings, found the same file as " +
                                 recordings[j]);
    }
}

void runRefine(const RefineCommandOptions& options) {
  requireDifferent(options.recordings);
  std::vector<std::string> inputs = options.recordings;
  inputs.push_back(options.from);
  if (isStandardOutput(options.output))
    throw std::runtime_error(
        "-o: expected a file, found the standard output, which has the figures");
  checkOutputs({options.output}, inputs, options.force);
  checkCalibrationEndings({options.output});

  LoadedCalibration given;
  calibration::RecordedViews views;
  for (const std::string& path : options.recordings) {
    const recording::RecordingReader reader(path);
    noteMissingJournal(reader);
    if (options.from.empty() && given.format.empty()) given = recordedCalibration(reader);
    calibration::RecordedViews more = calibration::recordedViews(reader);
    views.pairs.insert(views.pairs.end(), more.pairs.begin(), more.pairs.end());
    views.twoPoints.insert(views.twoPoints.end(), more.twoPoints.begin(), more.twoPoints.end());
  }
  if (!options.from.empty()) {
    given = calibration::readCalibration(
        {options.from}, options.unit.empty() ? std::nullopt : std::optional(options.unit));
    calibration::requireUsable(given, options.from);
  }

  setImageSize(options.imageSize, given);
  calibration::RefineOptions refineOptions;
  refineOptions.intrinsics = options.intrinsics;
  Refinement result = calibration::refine(given, views.pairs, refineOptions);
  Baseline baseline;
  if (result.refusal.empty()) {
    baseline = baselineFor(options, result, views.twoPoints);
    if (baseline.length != calibration::baselineOf(result.calibration))
      result.calibration = calibration::withBaseline(result.calibration, baseline.length);
  }
  if (options.json) {
    std::cout << printable(jsonOf(options, result, baseline)) << "\n" << std::flush;
  } else if (result.refusal.empty()) {
    print(result, baseline);
  } else {
    for (const std::string& text : result.undetermined)
      std::printf("not determined: %s\n", text.c_str());
    for (const std::string& text : result.advice) std::printf("  %s\n", text.c_str());
  }
  if (std::fflush(stdout) != 0) throw std::runtime_error("standard output: writing failed");
  if (!result.refusal.empty())
    throw std::runtime_error(options.recordings[0] + ": not refined: " + result.refusal);
  const std::string format = writeCalibration(
      options.output, {result.calibration, "mm", given.width, given.height}, options.force);
  if (!options.json)
    std::printf("Wrote %s (%s)\n", oneLine(options.output).c_str(), format.c_str());
}

}  // namespace

void addRefineCommand(CLI::App& app) {
  const auto options = std::make_shared<RefineCommandOptions>();
  auto* const command = app.add_subcommand(
      "refine",
      "Puts a calibration right by what the cameras saw in recordings of moving markers.\n"
      "\n"
      "  algtrack calibration refine walk.algrec -o healed.json\n"
      "  algtrack calibration refine a.algrec b.algrec --from rig.bin --wand 68 -o healed.bin\n");
  command->add_option("recordings", options->recordings, "Recordings of one and the same rig")
      ->required()
      ->expected(1, 1000);
  auto* const from = command->add_option("--from", options->from,
                                         "Calibration to begin with (that of the first recording)");
  command->add_option("--unit", options->unit, "Unit of that file's translation")
      ->check(oneOf({"mm", "cm", "m", "in"}))
      ->needs(from);
  command
      ->add_option("-o,--output", options->output,
                   std::string("Calibration to write: ") + kCalibrationEndings)
      ->required();
  command->add_option("--image-size", options->imageSize,
                      "WIDTH,HEIGHT in pixels, where the calibration does not state it");
  auto* const baseline =
      command
          ->add_option("--baseline", options->baseline,
                       "mm, distance of the cameras, where it is known better than the calibration "
                       "has it")
          ->check(numberFrom(1, 100000));
  command
      ->add_option("--wand", options->wand,
                   "mm, true distance of the two-point object's markers: gives the baseline")
      ->check(numberFrom(1, 100000))
      ->excludes(baseline);
  command->add_flag("--intrinsics", options->intrinsics,
                    "Fit focal lengths, centres and distortion too, as far as the data go");
  command->add_flag("--force", options->force, "Overwrite an existing file");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] { runRefine(*options); });
}

}  // namespace algtrack
