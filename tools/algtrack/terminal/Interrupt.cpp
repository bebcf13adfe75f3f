#include <tools/algtrack/terminal/Interrupt.h>

#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Unfinished.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

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
std::vector<std::string> writtenOutputs, begunOutputs;

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

/// The program ends as the signal alone would have ended it, but leaves nothing unfinished.
void endAsSignalled(int signal) {
  removeUnfinished();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void note(int signal) {
  if (interrupted != 0) return endAsSignalled(signal);
  if (noters == 0) endAtOnce();
  interrupted = 1;
}

#if !defined(_WIN32)
/// What the program was started to ignore, as under nohup, it goes on to ignore.
void heedUnlessIgnored(int signal, void (*handler)(int)) {
  if (std::signal(signal, handler) == SIG_IGN) std::signal(signal, SIG_IGN);
}
#endif

std::string listed(const std::vector<std::string>& outputs) {
  std::string list;
  for (const std::string& output : outputs) list += (list.empty() ? "" : ", ") + output;
  return list;
}

}  // namespace

void heedInterrupts() {
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, note);
#if !defined(_WIN32)
  heedUnlessIgnored(SIGHUP, note);
  for (const int signal : {SIGPIPE, SIGQUIT}) heedUnlessIgnored(signal, endAsSignalled);
#endif
}

InterruptsNoted::InterruptsNoted() {
  noters = noters + 1;
}

InterruptsNoted::~InterruptsNoted() {
  noters = noters - 1;
}

void noteBegun(const std::string& output) {
  begunOutputs.push_back(output);
}

void noteWritten(const std::string& output) {
  static const InterruptsNoted forGood;
  begunOutputs.erase(std::remove(begunOutputs.begin(), begunOutputs.end(), output),
                     begunOutputs.end());
  writtenOutputs.push_back(output);
}

void stopIfInterrupted() {
  if (interrupted == 0) return;
  if (writtenOutputs.empty() && begunOutputs.empty())
    throw std::runtime_error(std::string(kNothingWritten));
  std::string left = "interrupted: ";
  if (!writtenOutputs.empty()) left += "written whole: " + listed(writtenOutputs) + "; ";
  if (!begunOutputs.empty()) left += "written in part: " + listed(begunOutputs) + "; ";
  throw std::runtime_error(left + "nothing else was");
}

bool wasInterrupted() {
  return interrupted != 0;
}

}  // namespace algtrack
