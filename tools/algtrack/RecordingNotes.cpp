#include <tools/algtrack/RecordingNotes.h>

#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/Table.h>

#include <algorithm>
#include <cstring>
#include <iostream>

namespace algtrack {

namespace {

constexpr auto kJournalTakes = std::chrono::seconds(1);  // at most, to come after its file

void sayJournalIsMissing(const std::string& path) {
  const std::string file = oneLine(path);
  std::cerr << "Note: " << file << ": its journal " << file
            << "-wal is not beside it: the latest calls are in there\n";
}

}  // namespace

void noteMissingJournal(const recording::RecordingReader& reader) {
  if (reader.metadata().journalMissing) sayJournalIsMissing(reader.path());
}

void LateJournalNote::look(const std::string& file, const recording::Metadata& metadata) {
  const auto now = std::chrono::steady_clock::now();
  if (!metadata.journalMissing) missingSince_.reset();
  if (said_ || !metadata.journalMissing) return;
  if (!missingSince_) missingSince_ = now;
  if (now - *missingSince_ < kJournalTakes) return;
  sayJournalIsMissing(file);
  said_ = true;
}

void noteUnit(const recording::RecordingReader& reader) {
  const auto configurations = reader.configurations();
  const auto latest =
      std::find_if(configurations.rbegin(), configurations.rend(),
                   [](const recording::Configuration& c) { return c.calibration.has_value(); });
  if (latest == configurations.rend()) return;
  calibration::LoadedCalibration loaded;
  loaded.calibration = *latest->calibration;
  noteUnit(loaded, reader.path());
}

void noteUnit(const session::Call& call, const std::string& file) {
  calibration::LoadedCalibration loaded;
  if (call.kind != session::CallKind::kInit || call.payload.size() != sizeof loaded.calibration)
    return;
  std::memcpy(&loaded.calibration, call.payload.data(), sizeof loaded.calibration);
  noteUnit(loaded, file);
}

void noteDoubts(const recording::RecordingReader& reader) {
  noteMissingJournal(reader);
  noteUnit(reader);
}

}  // namespace algtrack
