// The rows of a recording, checked as they are read.
#pragma once

#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <string>

namespace recording {

/// In the order that `readCall` and `readTruthRow` expect, the checksum last.
std::string callColumns(int version);
std::string truthColumns(int version);
constexpr const char* kLogColumns = "call, step, level, text, threw";
constexpr const char* kBlockColumns = "call, step, block, threw";
constexpr int kCallChecksum = 15;  ///< its column

/// Each throws a RecordingError for a value of a wrong type, size or range. The checksum of a call
/// is left to the caller, who has its messages and blocks.
void readCall(const std::string& path, const Statement& row, session::Call& call);
session::LogLine readLog(const Statement& row);
session::DeliveredBlock readBlock(const std::string& path, const Statement& row);
session::TruthRow readTruthRow(const std::string& path, int version, const Statement& row);

/// "call 17 (InputStream)"
std::string callTitle(const session::Call& call);

/// A count that `meta` holds as a text; 0 for an empty one.
std::int64_t countIn(const std::string& path, const std::string& key, const std::string& text);

[[noreturn]] void refuseDamaged(const std::string& path, const std::string& what);

}  // namespace recording
