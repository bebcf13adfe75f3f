#pragma once

namespace CLI {
class App;
}

// Each subcommand is a function in a source file of its own name. It declares the subcommand's
// options and, as the callback, what runs when it was chosen. What goes wrong is thrown.
namespace algtrack {

/// Adds the subcommands that this build has.
void addCommands(CLI::App& app);

void addSimulateCommand(CLI::App& app);
void addReplayCommand(CLI::App& app);
void addInspectCommand(CLI::App& app);
void addCalibrationCommand(CLI::App& app);
void addTracksCommand(CLI::App& app);
void addReportCommand(CLI::App& app);
void addRepairCommand(CLI::App& app);
void addRigCommand(CLI::App& app);
void addBodyCommand(CLI::App& app);
void addExportCommand(CLI::App& app);
void addStreamCommand(CLI::App& app);
void addViewCommand(CLI::App& app);

/// A subcommand of `calibration`.
void addRefineCommand(CLI::App& calibration);

}  // namespace algtrack
