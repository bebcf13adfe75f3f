#pragma once

#include <cstddef>

namespace algorithm {

/// Resizes lists that are walked side by side. All storage is there before any of them changes:
/// when memory runs out, they still have one size.
template <typename... Lists>
void resizeTogether(std::size_t size, Lists&... lists) {
  (lists.reserve(size), ...);
  (lists.resize(size), ...);
}

}  // namespace algorithm
