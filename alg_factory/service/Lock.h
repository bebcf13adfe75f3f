#pragma once

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace algorithm {

/// Mutual exclusion between threads; the thread that holds it may take it again.
///
/// The platform's own lock and no std::recursive_mutex: that may throw std::system_error, where
/// nothing but std::bad_alloc is to cross the interface, and on Windows it comes with a thread
/// library of its own, where a critical section needs nothing but the system.
class Lock {
 public:
  Lock();
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void enter();
  void leave();

 private:
#if defined(_WIN32)
  // The size and alignment of the platform's critical section, kept out of this header.
  alignas(8) unsigned char section_[40];
#else
  pthread_mutex_t mutex_;
#endif
};

/// Holds a lock for a scope, exceptions included.
class LockGuard {
 public:
  explicit LockGuard(Lock& lock) : lock_(lock) { lock_.enter(); }
  ~LockGuard() { lock_.leave(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lock& lock_;
};

}  // namespace algorithm
