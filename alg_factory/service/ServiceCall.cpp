#include <alg_factory/service/ServiceCall.h>

#include <atomic>
#include <new>

#include <alg_factory/service/CallGate.h>
#include <alg_factory/service/Lock.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

namespace {

// Neither has a destructor that would run at exit, before the last call has left.
CallGate gate;
std::atomic<StereoService*> theService{nullptr};

alignas(Lock) unsigned char creationLockStorage[sizeof(Lock)];
Lock& creationLock = *new (creationLockStorage) Lock;

void clearUp() {
  delete theService.exchange(nullptr);
  creationLock.~Lock();
}

/// Lives from library load to unload.
struct Library {
  Library() {
#if !defined(_WIN32)
    pthread_atfork([] { gate.beforeFork(); }, [] { gate.afterForkInParent(); },
                   [] { gate.afterForkInChild(); });
#endif
  }
  ~Library() {
    if (gate.close()) clearUp();
  }
} library;

}  // namespace

StereoService* StereoService::instance() {
  if (StereoService* service = theService.load(std::memory_order_acquire)) return service;
  LockGuard guard(creationLock);
  if (theService.load(std::memory_order_relaxed) == nullptr) {
    theService.store(new StereoService, std::memory_order_release);
  }
  return theService.load(std::memory_order_relaxed);
}

ServiceCall::Admission::Admission() : admitted(gate.enter()) {}

ServiceCall::Admission::~Admission() {
  if (admitted && gate.leave()) clearUp();
}

ServiceCall::ServiceCall() {
  if (admission_.admitted) service_ = StereoService::instance();
}

}  // namespace algorithm
