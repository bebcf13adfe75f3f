#pragma once

#include <alg_kit/recording/Recording.h>

namespace algtrack {

/// Says in one line on standard error that a recording's journal is not beside it: what the command
/// gives ends before the recording did.
void noteMissingJournal(const recording::RecordingReader& reader);

/// That, and whether the unit of its latest calibration seems to be another one than millimetres.
void noteDoubts(const recording::RecordingReader& reader);

}  // namespace algtrack
