#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/analysis/ExplainingCommand.h>
#include <alg_kit/analysis/ReportMaker.h>
#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/report/ReportJson.h>
#include <alg_kit/report/ReportPage.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/terminal/Json.h>
#include <tools/algtrack/terminal/MomentOptions.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Progress.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

struct ReportOptions {
  std::string file;
  std::string output;
  analysis::ReportRules rules;
  analysis::ReportRange range;
  std::vector<std::string> bodies;
  bool force = false;
  bool json = false;
};

/// The percentages of one step after the other.
class Steps {
 public:
  void operator()(const std::string& step, std::int64_t done, std::int64_t total) {
    if (step != step_) progress_ = std::make_unique<Progress>(step_ = step, total);
    progress_->show(done);
  }

 private:
  std::string step_;
  std::unique_ptr<Progress> progress_;
};

analysis::Report reportOn(const recording::RecordingReader& reader, const ReportOptions& options) {
  // Kept: the library has no release operation.
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  const std::vector<bodies::Body> known = bodies::readBodies(options.bodies, bodies::Pairs::kTaken);
  Steps steps;
  return analysis::makeReport(reader, options.rules, options.range, known, *library,
                              std::ref(steps));
}

Cell cell(std::int64_t count, double number, int decimals) {
  return count == 0 ? Cell("-") : Cell(number, decimals);
}

Cell median(const analysis::Distribution& distribution) {
  return cell(distribution.count, distribution.median, 3);
}

Table worstTable(const analysis::ReportNumbers& numbers, const std::string& path) {
  Table table({"what", "object", "value", "time, s", "packet", "call", "explained by"});
  for (const analysis::WorstMoment& moment : numbers.worst) {
    using Kind = analysis::WorstMoment::Kind;
    const char* const unit = moment.kind == Kind::kGap ? " s" : " mm";
    char value[64];
    std::snprintf(value, sizeof value, "%.3f%s", moment.value, unit);
    table.addRow(
        {analysis::describe(moment.kind), moment.object < 0 ? Cell("-") : Cell(moment.object),
         moment.kind == Kind::kCorrupt ? Cell("-") : Cell(value), Cell(moment.first.seconds, 3),
         moment.first.packet, moment.first.call, analysis::explainingCommand(moment, path)});
  }
  return table;
}

Table bodyTable(const analysis::ReportNumbers& numbers) {
  Table table({"body", "with a pose, %", "markers visible (mean)", "error, mm (rms)",
               "error, degrees (rms)", "residual, px (rms)"});
  const auto rms = [](const analysis::Distribution& values) {
    return cell(values.count, values.rootMeanSquare, 3);
  };
  for (const analysis::BodyNumbers& body : numbers.bodies)
    table.addRow(
        {oneLine(body.name),
         cell(body.packets,
              100 * (static_cast<double>(body.poses) / static_cast<double>(body.packets)), 2),
         cell(body.markersVisible.count, body.markersVisible.mean, 2), rms(body.positionErrorMm),
         rms(body.turnErrorDeg), rms(body.residualPx)});
  return table;
}

void printSummary(const analysis::ReportNumbers& numbers, const std::string& path) {
  Table table({"object", "seen, %", "gaps", "longest gap, s", "error, mm (median)",
               "epipolar, px (median)", "ray gap, mm (median)", "jitter at rest, mm", "jumps",
               "outliers"});
  for (const analysis::ObjectNumbers& object : numbers.objects) {
    const analysis::PresenceNumbers& presence = object.presence;
    table.addRow(
        {object.object,
         cell(presence.packets,
              100 * (static_cast<double>(presence.seen) / static_cast<double>(presence.packets)),
              2),
         presence.gaps, presence.longestGap ? Cell(presence.longestGap->seconds, 3) : Cell("-"),
         median(object.rawErrorMm), median(object.epipolarPx), median(object.rayGapMm),
         cell(object.rawJitterMm.windows, object.rawJitterMm.total, 3), object.jumps,
         object.outliers});
  }
  table.print(std::cout);
  if (!numbers.bodies.empty()) {
    std::cout << "\nBodies, live\n";
    bodyTable(numbers).print(std::cout);
  }
  if (!numbers.worst.empty()) {
    std::cout << "\nWorst moments\n";
    worstTable(numbers, path).print(std::cout);
    std::cout << "\n";
  }
  for (const std::string& notice : numbers.notices) std::cout << "Note: " << notice << "\n";
}

void writeReport(const ReportOptions& options) {
  checkTimeRange(options.range.time);
  if (!options.output.empty()) {
    if (!report::hasPage())
      throw std::runtime_error(
          "this build carries no report page (npm could not provide it when the program was "
          "built); --json without -o prints the numbers");
    std::vector<std::string> inputs = options.bodies;
    inputs.push_back(options.file);
    checkOutputs({options.output, options.json ? "-" : ""}, inputs, options.force);
  }
  const recording::RecordingReader reader(options.file);
  if (options.range.object) requireTracked(reader, *options.range.object);
  if (options.range.time.given()) requirePackets(reader, options.range.time);
  const analysis::Report report = reportOn(reader, options);
  if (!options.output.empty()) {
    OutputFile file(options.output, options.force);
    report::writePage(file.stream(), report.numbers, report.curves);
    file.commit();
  }
  if (options.json) {
    printJson(report::jsonOf(report.numbers, options.file));
    return;
  }
  if (isStandardOutput(options.output)) return;
  printSummary(report.numbers, options.file);
  std::cout << "Report: " << oneLine(options.output) << "\n";
}

}  // namespace

void addReportCommand(CLI::App& app) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App* const command = app.add_subcommand(
      "report",
      "Makes one page, which needs no network, of a recording: paths, positions, errors, epipolar\n"
      "residuals, jitter, gaps, jumps, time per packet.\n"
      "\n"
      "  algtrack report walk.algrec -o walk.html\n"
      "  algtrack report walk.algrec -o walk.html --jump 40 --force\n"
      "  algtrack report walk.algrec -o walk.html --object 3 --from 12 --to 25\n"
      "  algtrack report work.algrec -o work.html --body tool.json\n"
      "  algtrack report walk.algrec --json                the numbers only\n");
  command->add_option("file", options->file, "the recording")->required();
  command->add_option("-o,--output", options->output, "the page to write");
  command
      ->add_option("--jump", options->rules.jumpMm,
                   "mm per packet; a longer step from one sighting to the next is listed as a jump")
      ->check(numberFrom(0.001, 1e6))
      ->capture_default_str();
  addObjectOption(*command, options->range.object, "report this object only");
  addTimeRangeOptions(*command, options->range.time);
  addBodyFiles(*command, options->bodies);
  command->add_flag("--force", options->force, "replace an existing page");
  command->add_flag("--json", options->json, "print the numbers as JSON");
  command->callback([options] {
    if (options->output.empty() && !options->json)
      throw CLI::RequiredError("--output (the page) or --json");
    writeReport(*options);
  });
}

}  // namespace algtrack
