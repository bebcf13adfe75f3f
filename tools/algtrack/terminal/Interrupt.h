#pragma once

#include <string>

namespace algtrack {

/// From here on Ctrl-C (and SIGTERM, and a terminal that is closed) ends the program, with one line
/// that says what is left: at once while nothing is begun that would have to be taken away, else at
/// the command's next step, as InterruptsNoted has it. Where nobody reads the standard output any
/// more, and on a quit, the signal itself ends it, and what is Unfinished is removed.
void heedInterrupts();

/// While one lives, an interrupt is noted, for the command to end in order: outputs that are not
/// complete are removed. A second interrupt ends the program all the same, at once: then what is
/// Unfinished is removed.
class InterruptsNoted {
 public:
  InterruptsNoted();
  ~InterruptsNoted();
  InterruptsNoted(const InterruptsNoted&) = delete;
  InterruptsNoted& operator=(const InterruptsNoted&) = delete;
};

/// From here on an output that cannot be taken back gets its first bytes: what ends the program
/// names it, until it is complete.
void noteBegun(const std::string& output);

/// An output is complete under its name: from here on interrupts are noted, and what ends the
/// program names it.
void noteWritten(const std::string& output);

/// @throws std::runtime_error, in one line that says what is left, once there was one
void stopIfInterrupted();

/// Whether there was one, for a command that Ctrl-C is the way to end.
bool wasInterrupted();

}  // namespace algtrack
