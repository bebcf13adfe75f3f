#include <alg_kit/report/ReportPage.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/ReportJson.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace algtrack {
namespace {

using nlohmann::ordered_json;

struct ReportOptions {
  std::string file;
  std::string output;
  ReportRules rules;
  bool force = false;
  bool json = false;
};

/// Text in a recording may be anything: bytes that are no UTF-8 are replaced.
std::string textOf(const ordered_json& json, int indent = -1) {
  return json.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

/// Inside a script element only '<' could end it.
std::string embedded(const ordered_json& json) {
  std::string safe;
  for (const char c : textOf(json)) {
    if (c == '<')
      safe += "\\u003c";
    else
      safe += c;
  }
  return safe;
}

void writePage(const ReportOptions& options, const ordered_json& data) {
  constexpr std::string_view kMark = "@REPORT_DATA@";
  const std::string_view page = report::page();
  const std::size_t mark = page.find(kMark);
  if (mark == std::string_view::npos)
    throw std::logic_error("the page that was built in has no place for the data");
  OutputFile file(options.output, options.force);
  file.stream() << page.substr(0, mark) << embedded(data) << page.substr(mark + kMark.size());
  file.commit();
}

Cell cell(const ordered_json& number, int decimals, double factor = 1) {
  return number.is_null() ? Cell("-") : Cell(factor * number.get<double>(), decimals);
}

/// `key` of a distribution that may be missing.
Cell cell(const ordered_json& distribution, const char* key, int decimals) {
  return distribution.is_null() ? Cell("-") : cell(distribution[key], decimals);
}

void printSummary(const ordered_json& numbers) {
  Table table({"object", "seen, %", "gaps", "longest gap, s", "error, mm (median)",
               "epipolar, px (median)", "ray gap, mm (median)", "jitter at rest, mm", "jumps"});
  for (const ordered_json& object : numbers["objects"]) {
    const ordered_json& presence = object["presence"];
    table.addRow({object["object"].get<int>(), cell(presence["seen_share"], 2, 100),
                  presence["gaps"].get<std::int64_t>(), cell(presence["longest_gap_s"], 3),
                  cell(object["error_mm"]["raw"], "median", 3),
                  cell(object["epipolar_px"], "median", 3), cell(object["ray_gap_mm"], "median", 3),
                  cell(object["jitter_mm"]["raw"], "total", 3),
                  object["jumps"].get<std::int64_t>()});
  }
  table.print(std::cout);
  for (const ordered_json& notice : numbers["notices"])
    std::cout << "Note: " << notice.get<std::string>() << "\n";
}

void makeReport(const ReportOptions& options) {
  if (!options.output.empty()) {
    if (report::page().empty())
      throw std::runtime_error(
          "this build carries no report page (npm could not provide it when the program was "
          "built); --json without -o prints the numbers");
    checkOutputPath(options.output, options.force);
    checkNotInput(options.output, options.file);
  }
  const recording::RecordingReader reader(options.file);
  const ReportData data = gatherReport(reader);
  const ordered_json numbers = numbersOf(data, options.rules);
  if (!options.output.empty()) writePage(options, {{"numbers", numbers}, {"rows", rowsOf(data)}});
  if (options.json) {
    std::cout << textOf(numbers, 2) << "\n";
    return;
  }
  printSummary(numbers);
  std::cout << "Report: " << options.output << "\n";
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
      "  algtrack report walk.algrec --json                the numbers only\n");
  command->add_option("file", options->file, "the recording")->required();
  command->add_option("-o,--output", options->output, "the page to write");
  command
      ->add_option("--jump", options->rules.jumpLimit,
                   "mm per packet; a longer step from one sighting to the next is listed as a jump")
      ->check(numberFrom(0.001, 1e6))
      ->capture_default_str();
  command->add_flag("--force", options->force, "replace an existing page");
  command->add_flag("--json", options->json, "print the numbers as JSON");
  command->callback([options] {
    if (options->output.empty() && !options->json)
      throw CLI::RequiredError("--output (the page) or --json");
    makeReport(*options);
  });
}

}  // namespace algtrack
