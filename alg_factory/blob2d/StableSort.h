#pragma once

namespace algorithm {

/// Insertion sort: stable, so that equals keep their order on every platform, and without the
/// temporary buffer of std::stable_sort. For the short lists of one frame.
template <typename Iterator, typename Before>
void stableSort(Iterator first, Iterator last, Before before) {
  if (first == last) return;
  for (Iterator it = first + 1; it != last; ++it) {
    if (!before(*it, *(it - 1))) continue;
    const auto value = *it;
    Iterator to = it;
    for (; to != first && before(value, *(to - 1)); --to) *to = *(to - 1);
    *to = value;
  }
}

}  // namespace algorithm
