// Saves what can be read of a recording that was cut off, cut or damaged.
#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/Repair.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/PartialRecording.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Progress.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

struct RepairOptions {
  std::string file;
  std::string output;
  bool force = false;
};

constexpr std::size_t kMostStretches = 8;         // of lost calls, in one line
constexpr const char* kRepairing = ".repairing";  // a .partial may be what is repaired

/// "calls 3902 to 7203, call 9".
std::string textOf(const std::vector<recording::CallRange>& ranges) {
  std::string text;
  for (std::size_t i = 0; i < std::min(ranges.size(), kMostStretches); ++i) {
    const auto& [first, last] = ranges[i];
    text += text.empty() ? "" : ", ";
    text += first == last ? "call " + std::to_string(first)
                          : "calls " + std::to_string(first) + " to " + std::to_string(last);
  }
  return text + (ranges.size() > kMostStretches ? " and others" : "");
}

/// Why calls are lost.
std::string causeOf(const recording::Repair& result, const std::string& file) {
  if (result.journalMissing) return "its journal " + file + "-wal is not beside it";
  if (result.fileBytes < result.wholeBytes)
    return "the file ends at byte " + std::to_string(result.fileBytes) + " of " +
           std::to_string(result.wholeBytes);
  return "the file is damaged there";
}

/// "lost: calls 3902 to 7203 (the file ends at byte 262144 of 583680)".
std::string lossText(const recording::Repair& result, const std::string& file) {
  std::string text;
  if (result.lostCalls > 0) {
    // The recorder's own gaps look the same: then the number says how many are lost.
    const bool others = result.droppedCalls > 0 || result.missing.empty();
    text = "lost: " + (others ? std::to_string(result.lostCalls) + " calls" : "");
    if (others && !result.missing.empty()) text += " of those missing, which are ";
    text += textOf(result.missing) + " (" + causeOf(result, file) + ")";
  } else if (result.journalMissing) {
    text = "lost: what came later (" + causeOf(result, file) + ")";
  } else {
    text = result.lossKnown ? "nothing is lost" : "nothing is seen to be lost";
  }
  return text;
}

void repair(const RepairOptions& options) {
  checkOutputs({options.output}, {options.file}, options.force);
  checkNotInput(outputPlace(options.output, options.force).path + kRepairing, options.file);
  PartialRecording partial(options.output, options.force, kRepairing);
  Progress progress("repairing", 0);  // of how much, nobody knows
  const recording::Repair result = recording::repair(
      options.file, partial.path(), true, [&](std::int64_t rows) { progress.show(rows); });
  partial.complete();
  std::string line = options.output + ": " + std::to_string(result.calls);
  if (result.lossKnown) line += " of " + std::to_string(result.calls + result.lostCalls);
  line += " calls; " + lossText(result, options.file);
  if (!result.lossKnown) line += "; the file does not say how many it held";
  if (result.lostTruthRows > 0)
    line += "; lost: " + std::to_string(result.lostTruthRows) + " of " +
            std::to_string(result.truthRows + result.lostTruthRows) + " rows of truth";
  if (!isStandardOutput(options.output)) std::cout << oneLine(line) << "\n";
  if (result.lostCalls > 0 || result.lostTruthRows > 0 || result.journalMissing)
    throw SomethingFound(options.file + ": not everything could be read");
}

}  // namespace

void addRepairCommand(CLI::App& app) {
  const auto options = std::make_shared<RepairOptions>();
  CLI::App* const command = app.add_subcommand(
      "repair",
      "Writes all that can be read of a recording to a new one: of a file that was cut or "
      "damaged,\n"
      "or whose program was killed. A journal (-wal) beside it is worked in; a .partial of a\n"
      "killed command is finished. Calls whose checksum does not fit are left out. The file\n"
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
