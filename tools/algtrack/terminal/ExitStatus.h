// What the program's exit status means, in the way of diff: scripts can tell an answer from a
// failure.
#pragma once

#include <stdexcept>

namespace algtrack {

enum ExitStatus : int {
  kFine = 0,    ///< done; what was compared is the same, what was checked is in order
  kFound = 1,   ///< done; something differs, or something was found
  kFailed = 2,  ///< not done: wrong usage, a file that cannot be read or written
};

/// Thrown where a command did what was asked and the answer is status kFound. `what()` is one line.
/// Every other exception is kFailed.
class SomethingFound : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace algtrack
