#include <tools/algtrack/RecordingNotes.h>

#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/Table.h>

#include <algorithm>
#include <iostream>

namespace algtrack {

void noteMissingJournal(const recording::RecordingReader& reader) {
  if (!reader.metadata().journalMissing) return;
  const std::string file = oneLine(reader.path());
  std::cerr << "Note: " << file << ": its journal " << file
            << "-wal is not beside it: the latest calls are in there\n";
}

void noteDoubts(const recording::RecordingReader& reader) {
  noteMissingJournal(reader);
  const auto configurations = reader.configurations();
  const auto latest =
      std::find_if(configurations.rbegin(), configurations.rend(),
                   [](const recording::Configuration& c) { return c.calibration.has_value(); });
  if (latest == configurations.rend()) return;
  calibration::LoadedCalibration loaded;
  loaded.calibration = *latest->calibration;
  noteUnit(loaded, reader.path());
}

}  // namespace algtrack
