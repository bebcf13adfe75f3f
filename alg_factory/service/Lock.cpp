#include <alg_factory/service/Lock.h>

#if defined(_WIN32)

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace algorithm {

namespace {
CRITICAL_SECTION* sectionIn(unsigned char* storage) {
  return reinterpret_cast<CRITICAL_SECTION*>(storage);
}
}  // namespace

Lock::Lock() {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof section_, "room for the critical section");
  static_assert(alignof(CRITICAL_SECTION) <= 8, "aligned for the critical section");
  InitializeCriticalSection(sectionIn(section_));
}
Lock::~Lock() {
  DeleteCriticalSection(sectionIn(section_));
}
void Lock::enter() {
  EnterCriticalSection(sectionIn(section_));
}
void Lock::leave() {
  LeaveCriticalSection(sectionIn(section_));
}

}  // namespace algorithm

#else

namespace algorithm {

Lock::Lock() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
}
Lock::~Lock() {
  pthread_mutex_destroy(&mutex_);
}
void Lock::enter() {
  pthread_mutex_lock(&mutex_);
}
void Lock::leave() {
  pthread_mutex_unlock(&mutex_);
}

}  // namespace algorithm

#endif
