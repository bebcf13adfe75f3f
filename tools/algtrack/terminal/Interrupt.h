#pragma once

#include <string>

namespace algtrack {

/// From here on Ctrl-C (and SIGTERM) ends the program, with one line that says what is left: at
/// once while nothing is begun that would have to be taken away, else at the command's next step,
/// as InterruptsNoted has it.
void heedInterrupts();

/// While one lives, an interrupt is noted, for the command to end in order: outputs that are not
/// complete are removed. A second interrupt ends the program all the same.
class InterruptsNoted {
 public:
  InterruptsNoted();
  ~InterruptsNoted();
  InterruptsNoted(const InterruptsNoted&) = delete;
  InterruptsNoted& operator=(const InterruptsNoted&) = delete;
};

/// An output is complete under its name: from here on interrupts are noted, and what ends the
/// program names it.
void noteWritten(const std::string& output);

/// @throws std::runtime_error, in one line that says what is left, once there was one
void stopIfInterrupted();

/// Whether there was one, for a command that Ctrl-C is the way to end.
bool wasInterrupted();

}  // namespace algtrack
