#pragma once

#include <algorithm>
#include <iterator>

namespace algorithm {

/// Insertion sort: stable, so that equals keep their order on every platform, and without the
/// temporary buffer of std::stable_sort. For the short lists of one blob id.
template <typename Iterator, typename Before>
void stableSort(Iterator first, Iterator last, Before before) {
  for (Iterator it = first; it != last; ++it) {
    if (it == first || !before(*it, *std::prev(it))) continue;  // in place already
    std::rotate(std::upper_bound(first, it, *it, before), it, std::next(it));
  }
}

/// Largest diameter first.
template <typename Points>
void sortByDiameter(Points& points) {
  stableSort(points.begin(), points.end(),
             [](const auto& a, const auto& b) { return a.diameter > b.diameter; });
}

}  // namespace algorithm
