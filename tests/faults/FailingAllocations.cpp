#include <tests/faults/FailingAllocations.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* memory);
}

namespace {

constexpr long kNever = -1;
thread_local long countdown = kNever;
thread_local bool hit = false;
thread_local bool spared = false;
std::atomic<bool> noMemoryElsewhere{false};
std::atomic<long> live{0};  // what one thread makes another may free

bool fails() {
  if (noMemoryElsewhere && !spared) return true;
  if (countdown == 0) {
    countdown = kNever;
    hit = true;
    return true;
  }
  if (countdown > 0) --countdown;
  return false;
}

void* counted(void* memory) {
  if (memory != nullptr) ++live;
  return memory;
}

void* allocate(std::size_t size) {
  return fails() ? nullptr : counted(__real_malloc(size == 0 ? 1 : size));
}

void release(void* memory) {
  if (memory == nullptr) return;
  --live;
  __real_free(memory);
}

void* allocateOrThrow(std::size_t size) {
  if (void* memory = allocate(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

extern "C" {
void* __wrap_malloc(std::size_t size) {
  return allocate(size);
}
// Compilers turn a malloc that is filled with zeros into a calloc.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : counted(__real_calloc(count, size));
}
void __wrap_free(void* memory) {
  release(memory);
}
}

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
// Without it memory of this kind would come from elsewhere and be released here.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}

namespace testing_support {

NoMemoryElsewhere::NoMemoryElsewhere() {
  spared = true;
  noMemoryElsewhere = true;
}

NoMemoryElsewhere::~NoMemoryElsewhere() {
  noMemoryElsewhere = false;
  spared = false;
}

FailingAllocation::FailingAllocation(long failing) {
  hit = false;
  countdown = failing;
}

FailingAllocation::~FailingAllocation() {
  countdown = kNever;
}

bool FailingAllocation::struck() const {
  return hit;
}

long liveAllocations() {
  return live;
}

}  // namespace testing_support
