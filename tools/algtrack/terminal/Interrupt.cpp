#include <tools/algtrack/terminal/Interrupt.h>

#include <csignal>
#include <stdexcept>

namespace algtrack {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void note(int signal) {
  interrupted = 1;
  std::signal(signal, SIG_DFL);
}

}  // namespace

void heedInterrupts() {
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, note);
}

void stopIfInterrupted() {
  if (interrupted != 0)
    throw std::runtime_error(
        "interrupted: nothing was written, files that were there are as before");
}

bool wasInterrupted() {
  return interrupted != 0;
}

}  // namespace algtrack
