#pragma once

namespace session {

/// Counts forks: an object that remembers the number it was made under knows when it is looked at
/// by a child. Threads, locks and connections are not the child's, only copies of their memory.
int processGeneration() noexcept;

}  // namespace session
