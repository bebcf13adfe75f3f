#pragma once

namespace algtrack {

/// From here on Ctrl-C (and SIGTERM) ends a command at its next step, in order: outputs that are
/// not complete are removed. A second one ends the program at once.
void heedInterrupts();

/// @throws std::runtime_error, in one line that says what is left, once there was one
void stopIfInterrupted();

/// Whether there was one, for a command that Ctrl-C is the way to end.
bool wasInterrupted();

}  // namespace algtrack
