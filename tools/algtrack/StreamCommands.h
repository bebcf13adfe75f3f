// The commands that hand recordings to other programs: as those of Commands.h.
#pragma once

namespace CLI {
class App;
}

namespace algtrack {

void addExportCommand(CLI::App& app);
void addStreamCommand(CLI::App& app);  ///< where ALGTRACK_STREAMS is defined

}  // namespace algtrack
