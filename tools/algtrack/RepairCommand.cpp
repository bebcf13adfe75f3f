// Saves what can be read of a recording that was cut off, cut or damaged.
#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/Repair.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/OutputFile.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

namespace algtrack {
namespace {

struct RepairOptions {
  std::string file;
  std::string output;
  bool force = false;
};

void repair(const RepairOptions& options) {
  checkOutputs({options.output}, {options.file}, options.force);
  const OutputPlace place = outputPlace(options.output, options.force);
  if (place.kind != OutputPlace::Kind::kFile)
    throw std::runtime_error(options.output + ": expected a file to write, found another output");
  const recording::Repair result = recording::repair(options.file, place.path, options.force);
  std::cout << "Saved: " << result.calls << " calls, " << result.truthRows << " rows of truth\n"
            << "Lost: " << result.lostCalls << " calls, " << result.lostTruthRows
            << " rows of truth"
            << (result.lossKnown ? "\n"
                                 : " that were seen; the file does not say how much it held\n")
            << "Recording: " << options.output
            << (result.complete ? " (complete)\n" : " (marked as not complete)\n");
  if (result.lostCalls > 0 || result.lostTruthRows > 0)
    throw SomethingFound(options.file + ": not everything could be read");
}

}  // namespace

void addRepairCommand(CLI::App& app) {
  const auto options = std::make_shared<RepairOptions>();
  CLI::App* const command = app.add_subcommand(
      "repair",
      "Writes all that can be read of a recording to a new one: of a file that was cut or "
      "damaged,\n"
      "or whose program was killed. A journal (-wal) beside it is worked in; a .partial of an\n"
      "interrupted command is finished. Calls whose checksum does not fit are left out. The file\n"
      "itself stays as it is. Exit status 1 if anything is lost.\n"
      "\n"
      "  algtrack repair broken.algrec -o saved.algrec\n"
      "  algtrack repair walk.algrec.partial -o walk.algrec\n");
  command->add_option("file", options->file, "the recording")->required();
  command->add_option("-o,--output", options->output, "the recording to write")->required();
  command->add_flag("--force", options->force, "replace an existing file");
  command->callback([options] { repair(*options); });
}

}  // namespace algtrack
