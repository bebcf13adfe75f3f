// The tables of a recording, in each version of the format.
#pragma once

#include <cstddef>
#include <string>

namespace recording {

class Database;

/// More than any recorder writes. A damaged table may give the same row again and again.
constexpr std::size_t kMostFacts = 1000;

/// The statements that make the tables of the present version.
std::string schemaStatements();

/// Refuses every table, index, view and trigger but those of the version: what a stranger put into
/// a file would run whenever it is read.
/// @throws RecordingError
void checkSchema(Database& database, int version);

}  // namespace recording
