// Writes a recording in the formats of other programs.
#include <alg_kit/recording/Recording.h>
#include <alg_kit/stream/McapExport.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Progress.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace algtrack {
namespace {

struct ExportOptions {
  std::string file, mcap;
  stream::SceneOptions scene;
  bool force = false;
};

void exportRecording(const ExportOptions& options) {
  std::vector<std::string> inputs = options.scene.bodies;
  inputs.push_back(options.file);
  checkOutputs({options.mcap}, inputs, options.force);
  const recording::RecordingReader reader(options.file);
  noteDoubts(reader);
  Progress progress("exporting", reader.callCount());
  OutputFile file(options.mcap, options.force);
  const stream::McapExport result = stream::exportMcap(
      reader, file.stream(), options.scene, [&](std::int64_t calls) { progress.show(calls); });
  file.commit();
  if (!isStandardOutput(options.mcap))
    std::cout << "Written: " << result.messages << " messages of " << result.calls << " calls\n";
}

}  // namespace

void addExportCommand(CLI::App& app) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App* const command = app.add_subcommand(
      "export",
      "Writes a recording in a format of other programs. MCAP opens in viewers of robot data:\n"
      "the objects in 3D, every value as a plot, the messages.\n"
      "\n"
      "  algtrack export walk.algrec --mcap walk.mcap\n"
      "  algtrack export work.algrec --mcap work.mcap --body tool.json\n");
  command->add_option("file", options->file, "the recording")->required();
  command->add_option("--mcap", options->mcap, "the file to write; - is the standard output")
      ->required();
  addBodyFiles(*command, options->scene.bodies);
  command->add_flag("--force", options->force, "replace an existing file");
  command->callback([options] { exportRecording(*options); });
}

}  // namespace algtrack
