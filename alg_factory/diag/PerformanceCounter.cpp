#include <alg_factory/diag/PerformanceCounter.h>

#if defined(_WIN32)

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace qor {

std::int64_t performanceCounter() {
  LARGE_INTEGER ticks;
  QueryPerformanceCounter(&ticks);
  return ticks.QuadPart;
}

std::int64_t performanceFrequency() {
  LARGE_INTEGER ticksPerSecond;
  QueryPerformanceFrequency(&ticksPerSecond);
  return ticksPerSecond.QuadPart;
}

}  // namespace qor

#else

#include <time.h>

namespace qor {

namespace {
constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
}

std::int64_t performanceCounter() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec;
}

std::int64_t performanceFrequency() {
  return kNanosecondsPerSecond;
}

}  // namespace qor

#endif
