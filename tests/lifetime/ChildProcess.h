#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace testing_support {

/// Runs `work` in a forked child, which then exits as a program does that returns from main: static
/// destructors, and the leak checker where there is one.
/// @return "exit 0" when all is well, else the exit status or the signal; SIGALRM (14) ends a child
///         that hangs.
template <typename Work>
std::string endOfChild(Work work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    work();
    std::exit(0);
  }
  int status = 0;
  if (child == -1 || waitpid(child, &status, 0) != child) return "no child";
  return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                           : "signal " + std::to_string(WTERMSIG(status));
}

/// Ends the child at once with a status that names the line.
inline void require(bool condition, int line) {
  if (!condition) _exit(line % 199 + 1);
}

}  // namespace testing_support
