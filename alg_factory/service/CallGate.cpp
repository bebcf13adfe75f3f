#include <alg_factory/service/CallGate.h>

namespace algorithm {

bool CallGate::enter() {
  std::uint32_t state = state_.load(std::memory_order_relaxed);
  for (;;) {
    if ((state & kClosed) != 0) return false;
    if ((state & kForking) != 0) {
      waitForFork();
      state = state_.load(std::memory_order_relaxed);
    } else if (state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
      return true;
    }
  }
}

bool CallGate::leave() {
  const std::uint32_t before = state_.fetch_sub(1, std::memory_order_acq_rel);
  return (before & ~kForking) == (kClosed | 1);
}

#if defined(_WIN32)

void CallGate::waitForFork() {}

bool CallGate::close() {
  return state_.fetch_or(kClosed, std::memory_order_acq_rel) == 0;
}

#else

void CallGate::waitForFork() {
  pthread_mutex_lock(&forkLock_);
  pthread_mutex_unlock(&forkLock_);
}

bool CallGate::close() {
  pthread_mutex_lock(&forkLock_);
  const std::uint32_t before = state_.fetch_or(kClosed, std::memory_order_acq_rel);
  pthread_mutex_unlock(&forkLock_);
  return before == 0;
}

void CallGate::beforeFork() {
  pthread_mutex_lock(&forkLock_);
  quiet_ = (state_.fetch_or(kForking, std::memory_order_acquire) & kInside) == 0;
}

void CallGate::afterForkInParent() {
  state_.fetch_and(~kForking, std::memory_order_release);
  pthread_mutex_unlock(&forkLock_);
}

void CallGate::afterForkInChild() {
  state_.fetch_and(~kForking, std::memory_order_relaxed);
  // The calls that were inside stay counted: the one that forked, if it was one, still leaves.
  if (!quiet_) state_.fetch_or(kClosed | kAbandoned, std::memory_order_relaxed);
  pthread_mutex_unlock(&forkLock_);
}

#endif

}  // namespace algorithm
