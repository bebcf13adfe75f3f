#include <alg_kit/session/ProcessGeneration.h>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>
#endif

namespace session {

std::atomic<int> forksSoFar{0};

#if defined(__unix__) || defined(__APPLE__)
namespace {

// From the start: who asks for the generation asks in every call.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { ++forksSoFar; });

}  // namespace
#endif

}  // namespace session
