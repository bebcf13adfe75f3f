#include <tools/algtrack/terminal/Pace.h>

#include <tools/algtrack/terminal/Interrupt.h>

#include <algorithm>
#include <thread>

namespace algtrack {
namespace {

constexpr double kNap = 0.1;  // seconds between two looks at Ctrl-C

}  // namespace

Pace::Pace(std::int64_t firstNs, double speed)
    : firstNs_(firstNs), speed_(speed), begin_(std::chrono::steady_clock::now()) {}

void Pace::wait(std::int64_t recordedNs) const {
  const double due =
      (static_cast<double>(recordedNs) - static_cast<double>(firstNs_)) / 1e9 / speed_;
  for (;;) {
    stopIfInterrupted();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin_;
    if (passed.count() >= due) return;
    std::this_thread::sleep_for(
        std::chrono::duration<double>(std::min(kNap, due - passed.count())));
  }
}

}  // namespace algtrack
