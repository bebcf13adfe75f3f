#pragma once

#include <cstdint>

namespace qor {

/// The platform's high-resolution counter, monotonic.
std::int64_t performanceCounter();

/// Its ticks per second.
std::int64_t performanceFrequency();

}  // namespace qor
