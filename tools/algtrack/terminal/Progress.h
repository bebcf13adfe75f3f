#pragma once

#include <tools/algtrack/terminal/Interrupt.h>

#include <cstdint>
#include <string>

namespace algtrack {

/// A percentage on stderr while something long goes on; silent unless stderr is a terminal. Ctrl-C
/// ends it at the next step.
class Progress {
 public:
  Progress(std::string label, std::int64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// @throws std::runtime_error after Ctrl-C
  void show(std::int64_t done);

 private:
  InterruptsNoted interrupts_;
  std::string label_;
  std::int64_t total_;
  bool terminal_;
  int shown_ = -1;  ///< percent
};

}  // namespace algtrack
