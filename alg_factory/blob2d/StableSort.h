#pragma once

#include <vector>

#include <alg_factory/blob2d/IdGroups.h>

namespace algorithm {

/// Insertion sort: stable, so that equals keep their order on every platform, and without the
/// temporary buffer of std::stable_sort. For the short lists of one blob id.
template <typename Iterator, typename Before>
void stableSort(Iterator first, Iterator last, Before before) {
  for (Iterator it = first; it != last; ++it) {
    const auto value = *it;
    Iterator to = it;
    for (; to != first && before(value, *(to - 1)); --to) *to = *(to - 1);
    *to = value;
  }
}

/// Sorts the indices of `group` by the diameters of their blobs, largest first.
template <typename Blob>
void sortByDiameter(const std::vector<Blob>& blobs, IndexSpan group) {
  stableSort(group.begin(), group.end(), [&](std::uint32_t a, std::uint32_t b) {
    return blobs[a].diameter > blobs[b].diameter;
  });
}

}  // namespace algorithm
