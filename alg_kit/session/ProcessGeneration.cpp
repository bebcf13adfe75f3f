#include <alg_kit/session/ProcessGeneration.h>

#include <atomic>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>
#endif

namespace session {
namespace {

std::atomic<int> forks{0};

}  // namespace

int processGeneration() noexcept {
#if defined(__unix__) || defined(__APPLE__)
  static const int registered = pthread_atfork(nullptr, nullptr, [] { ++forks; });
  static_cast<void>(registered);
#endif
  return forks.load(std::memory_order_relaxed);
}

}  // namespace session
