// The parts of `algtrack inspect`.
#pragma once

#include <alg_kit/analysis/CrossCheck.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/recording/Recording.h>
#include <tools/algtrack/MomentJson.h>
#include <tools/algtrack/terminal/Json.h>
#include <tools/algtrack/terminal/Table.h>

#include <optional>
#include <string>

namespace algtrack {

struct InspectOptions {
  std::string file;
  analysis::MomentQuery moment;
  bool explain = false;
  std::optional<int> object;
  analysis::TimeRange range;
  bool json = false;
};

/// What is in the recording, where its blobs ended, where to look first.
void inspectRecording(const InspectOptions& options);

/// When the object was missing, and why.
void inspectObject(const InspectOptions& options);

/// One packet: every byte, or with `explain` what became of every object and blob.
void inspectPacket(const InspectOptions& options);

/// {"compared": 450, "equal": 450, "first_difference": null}
Json crossCheckJson(const analysis::CrossCheck& check);

/// @throws SomethingFound where there is something to say
void requireAgreement(const std::optional<std::string>& problem);

/// A table under its title, behind an empty line.
void printSection(const std::string& title, const Table& table);

}  // namespace algtrack
