#include <alg_kit/calibration/RigMap.h>
#include <alg_kit/calibration/RigMapPage.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using calibration::NamedMap;

struct RigOptions {
  RigOption rig;
  std::vector<std::string> compared;
  calibration::RigMapOptions map;
  std::string page;
  std::string csv;
  bool force = false;
  bool json = false;
};

NamedMap mapFrom(const RigOption& rig, const calibration::RigMapOptions& options) {
  return {std::filesystem::path(rig.file).filename().string(),
          calibration::mapOf(rig.read(), options)};
}

void printTable(const NamedMap& named) {
  Table table({"depth, mm", "seen, mm", "x +- mm", "y +- mm", "z +- mm", "distance +- mm"});
  for (const calibration::MapDistance& line : named.map.table) {
    if (line.width == 0) continue;
    table.addRow({Cell(line.depth, 0),
                  std::to_string(static_cast<int>(line.width)) + " x " +
                      std::to_string(static_cast<int>(line.height)),
                  Cell(line.deviation.x(), 3), Cell(line.deviation.y(), 3),
                  Cell(line.deviation.z(), 3), Cell(line.distanceDeviation, 3)});
  }
  char volume[64];
  std::snprintf(volume, sizeof volume, "%.3g", named.map.volume);
  std::cout << oneLine(named.name) << ": both cameras see " << volume << " m^3 down to "
            << named.map.maxDepth / 1000 << " m; medians of one point, before smoothing\n";
  table.print(std::cout);
}

void runMap(RigOptions options) {
  checkOutputs(
      {options.page, options.csv, options.json ? "-" : ""},
      [&] {
        std::vector<std::string> inputs = options.compared;
        inputs.push_back(options.rig.file);
        return inputs;
      }(),
      options.force);
  std::vector<NamedMap> maps;
  if (options.rig.given() && !options.compared.empty())
    throw std::runtime_error("--compare: expected without --calibration, found both");
  if (options.compared.empty()) {
    if (!options.rig.given())
      throw std::runtime_error("expected --calibration FILE or --compare A B, found neither");
    maps.push_back(mapFrom(options.rig, options.map));
  }
  for (const std::string& file : options.compared)
    maps.push_back(mapFrom({file, options.rig.unit}, options.map));

  if (!options.page.empty()) {
    OutputFile file(options.page, options.force);
    calibration::writePage(file.stream(), maps);
    file.commit();
  }
  if (!options.csv.empty()) {
    OutputFile file(options.csv, options.force);
    calibration::writeCsv(file.stream(), maps);
    file.commit();
  }
  if (options.json) {
    std::cout << printable(calibration::figuresOf(maps)) << "\n";
    return;
  }
  if (isStandardOutput(options.page) || isStandardOutput(options.csv)) return;
  for (const NamedMap& named : maps) printTable(named);
}

}  // namespace

void addRigCommand(CLI::App& app) {
  auto* const command = app.add_subcommand(
      "rig",
      "What a camera pair can see, and how exactly.\n"
      "\n"
      "  algtrack rig map --calibration rig.json --noise 0.05 -o map.html --csv map.csv\n"
      "  algtrack rig map --compare short.json long.json -o designs.html\n");
  command->require_subcommand(1);
  const auto options = std::make_shared<RigOptions>();
  auto* const map = command->add_subcommand(
      "map",
      "Maps the room that both cameras see, with the standard deviations of a marker's place.\n"
      "\n"
      "  algtrack rig map --calibration rig.json -o map.html\n"
      "  algtrack rig map --compare short.json long.json --noise 0.1 -o designs.html\n");
  addRigOption(*map, options->rig,
               "the camera pair, in any format that `algtrack calibration` reads");
  map->get_option("--unit")->remove_needs(
      map->get_option("--calibration"));  // --compare has it too
  map->add_option("--compare", options->compared, "two camera pairs, side by side")->expected(2);
  map->add_option("--noise", options->map.noise, "px, standard deviation of a blob's centre")
      ->check(numberFrom(0, 100))
      ->capture_default_str();
  map->add_option("--marker-size", options->map.markerDiameter, "mm, diameter of the markers")
      ->check(numberFrom(0.1, 1000))
      ->capture_default_str();
  map->add_option("--product-type", options->map.productType,
                  "0, 1 or 2: decides the largest depth")
      ->check(oneOf({"0", "1", "2"}))
      ->capture_default_str();
  map->add_option("-o,--output", options->page, "the page to write: one HTML file");
  map->add_option("--csv", options->csv, "all places as rows to write");
  map->add_flag("--json", options->json, "print the table as JSON");
  map->add_flag("--force", options->force, "replace existing files");
  map->callback([options] { runMap(*options); });
}

}  // namespace algtrack
