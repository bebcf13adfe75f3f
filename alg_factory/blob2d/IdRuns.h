#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/StableSort.h>

namespace algorithm {

/// The blobs of one id, one behind the other in a list that has them id by id.
struct BlobRun {
  Blob2DPoint* first;
  Blob2DPoint* last;  ///< behind the last of them

  std::size_t size() const { return static_cast<std::size_t>(last - first); }
  bool empty() const { return first == last; }
};

/// What of the list that goes on from `from` to `end` has `id`, up to the first that has not.
inline BlobRun runOfId(Blob2DPoint* from, const Blob2DPoint* end, std::int32_t id) {
  BlobRun run{from, from};
  while (run.last != end && run.last->id == id) ++run.last;
  return run;
}

/// The first blob whose id is not negative, or the end.
inline Blob2DPoint* firstWithId(std::vector<Blob2DPoint>& blobs) {
  Blob2DPoint* blob = blobs.data();
  while (blob != blobs.data() + blobs.size() && blob->id < 0) ++blob;
  return blob;
}

/// Sorts by id; stable. A list that is in order already, as most are, is only looked at.
inline void orderById(std::vector<Blob2DPoint>& blobs) {
  const auto before = [](const Blob2DPoint& a, const Blob2DPoint& b) { return a.id < b.id; };
  Blob2DPoint* const first = blobs.data();
  Blob2DPoint* const last = first + blobs.size();
  if (!std::is_sorted(first, last, before)) stableSort(first, last, before);
}

}  // namespace algorithm
