// A host's life as a file: every call across the interface and everything that came back. The same
// calls must give the same bytes after a change of the library's insides and on another platform.
#pragma once

#include <alg_factory/api/AlgFactory.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

struct LogLine {
  std::int32_t level = 0;
  std::string text;
  bool operator==(const LogLine& other) const { return level == other.level && text == other.text; }
};

/// What came back from one call.
struct Outcome {
  bool result = false;
  std::vector<std::uint8_t> answer;            ///< of HandleEvent
  std::vector<algorithm::ResultBlock> blocks;  ///< delivered during the call
  std::vector<LogLine> logLines;               ///< logged during the call
};

enum class Operation : std::uint8_t { kInit, kInputStream, kSetFilterMode, kHandleEvent };

struct Call {
  Operation operation = Operation::kInit;
  std::int32_t selector = 0;          ///< product type, stream type, mode or event type
  std::vector<std::uint8_t> payload;  ///< calibration, stream payload or event input
};

struct FixedStream {
  std::vector<Call> calls;
  std::vector<Outcome> outcomes;  ///< one per call
};

/// Makes the calls on a fresh pipeline (one per process).
std::vector<Outcome> run(const std::vector<Call>& calls);

/// Throw std::runtime_error naming the file and what is wrong with it.
FixedStream readFixedStream(const std::string& path);
void writeFixedStream(const std::string& path, const FixedStream& stream);

}  // namespace testing_support
