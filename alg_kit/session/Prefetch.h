#pragma once

#include <cstddef>

namespace session {

/// Asks for memory that is about to be written: asked for together, the waits for it overlap.
inline void prefetch(const void* memory, std::size_t bytes) noexcept {
#if defined(__GNUC__)
  constexpr std::size_t kLine = 64;
  for (std::size_t at = 0; at < bytes; at += kLine)
    __builtin_prefetch(static_cast<const char*>(memory) + at, 1);
#else
  static_cast<void>(memory), static_cast<void>(bytes);
#endif
}

}  // namespace session
