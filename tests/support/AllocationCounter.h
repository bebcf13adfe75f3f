// Counts every allocation of the program that includes it, those of its shared libraries too:
// replaces malloc and its relatives, which operator new ends in. Include it in one source file.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

// The sanitizers bring a malloc of their own, and other C libraries have no second name for theirs.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ALG_COUNTS_ALLOCATIONS 1
#else
#define ALG_COUNTS_ALLOCATIONS 0
#endif

namespace testing_support {

inline std::atomic<long> allocationCount{0};

/// Allocations so far, of all threads.
inline long allocations() {
  return allocationCount.load(std::memory_order_relaxed);
}

}  // namespace testing_support

#if ALG_COUNTS_ALLOCATIONS

extern "C" {

void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* memory, std::size_t size) noexcept;
void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;

void* malloc(std::size_t size) noexcept {
  testing_support::allocationCount.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  testing_support::allocationCount.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
  testing_support::allocationCount.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  testing_support::allocationCount.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}

}  // extern "C"

#endif
