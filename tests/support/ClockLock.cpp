// GCC 12's thread sanitizer does not know pthread_mutex_clocklock, by which std::timed_mutex waits,
// and takes every unlock after it for a mistake. Under it we wait by a call that it knows.
#if defined(__SANITIZE_THREAD__)

#include <pthread.h>
#include <time.h>

extern "C" int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                       const timespec* until) noexcept {
  constexpr long kSecond = 1000000000;
  timespec now{}, due{};
  clock_gettime(clock, &now);
  clock_gettime(CLOCK_REALTIME, &due);
  due.tv_sec += until->tv_sec - now.tv_sec;
  due.tv_nsec += until->tv_nsec - now.tv_nsec;
  if (due.tv_nsec < 0) {
    due.tv_nsec += kSecond;
    --due.tv_sec;
  } else if (due.tv_nsec >= kSecond) {
    due.tv_nsec -= kSecond;
    ++due.tv_sec;
  }
  return pthread_mutex_timedlock(mutex, &due);
}

#endif
