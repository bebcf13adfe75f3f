#pragma once

#include <string>
#include <utility>
#include <vector>

#include <alg_factory/api/LogSink.h>

namespace testing_support {

/// Keeps every message with its level.
class RecordingLog : public algorithm::LogSink {
 public:
  bool Log(int level, const char* message) override {
    lines.emplace_back(level, message);
    return true;
  }

  std::vector<std::string> texts() const {
    std::vector<std::string> result;
    for (const auto& line : lines) result.push_back(line.second);
    return result;
  }

  std::vector<std::pair<int, std::string>> lines;
};

}  // namespace testing_support
