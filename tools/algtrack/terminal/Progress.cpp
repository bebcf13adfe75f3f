#include <tools/algtrack/terminal/Progress.h>

#include <cstdio>
#include <utility>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace algtrack {
namespace {

bool standardErrorIsTerminal() {
#if defined(_WIN32)
  return _isatty(2) != 0;
#else
  return isatty(STDERR_FILENO) != 0;
#endif
}

}  // namespace

Progress::Progress(std::string label, std::int64_t total)
    : label_(std::move(label)), total_(total), terminal_(standardErrorIsTerminal()) {}

Progress::~Progress() {
  if (shown_ >= 0) std::fprintf(stderr, "\r\033[K");  // what follows has the line for itself
}

void Progress::show(std::int64_t done) {
  stopIfInterrupted();
  if (!terminal_ || total_ <= 0) return;
  const int percent = static_cast<int>(100 * done / total_);
  if (percent == shown_) return;
  shown_ = percent;
  std::fprintf(stderr, "\r%s: %3d%%", label_.c_str(), percent);
}

}  // namespace algtrack
