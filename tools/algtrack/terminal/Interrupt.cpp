#include <tools/algtrack/terminal/Interrupt.h>

#include <tools/algtrack/terminal/ExitStatus.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace algtrack {
namespace {

constexpr std::string_view kNothingWritten =
    "interrupted: nothing was written, files that were there are as before";

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t noters = 0;  // written by the thread that runs the command alone
std::string writtenOutputs;

/// What a signal's handler may do and no more.
void endAtOnce() {
  constexpr std::string_view kPieces[] = {"algtrack: ", kNothingWritten, "\n"};
  for (const std::string_view piece : kPieces) {
#if defined(_WIN32)
    if (_write(2, piece.data(), static_cast<unsigned>(piece.size())) < 0) break;
#else
    if (write(STDERR_FILENO, piece.data(), piece.size()) < 0) break;
#endif
  }
  std::_Exit(kFailed);
}

void note(int signal) {
  if (noters == 0) endAtOnce();
  interrupted = 1;
  std::signal(signal, SIG_DFL);
}

}  // namespace

void heedInterrupts() {
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, note);
}

InterruptsNoted::InterruptsNoted() {
  noters = noters + 1;
}

InterruptsNoted::~InterruptsNoted() {
  noters = noters - 1;
}

void noteWritten(const std::string& output) {
  static const InterruptsNoted forGood;
  writtenOutputs += (writtenOutputs.empty() ? "" : ", ") + output;
}

void stopIfInterrupted() {
  if (interrupted == 0) return;
  throw std::runtime_error(writtenOutputs.empty() ? std::string(kNothingWritten)
                                                  : "interrupted: written whole: " +
                                                        writtenOutputs + "; nothing else was");
}

bool wasInterrupted() {
  return interrupted != 0;
}

}  // namespace algtrack
