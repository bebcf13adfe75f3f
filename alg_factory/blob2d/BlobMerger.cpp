#include <alg_factory/blob2d/BlobMerger.h>

namespace algorithm {

void sortByDiameter(BlobRun run, std::uint32_t* names) {
  for (Blob2DPoint* blob = run.first + 1; blob != run.last; ++blob) {
    if (blob->diameter <= (blob - 1)->diameter) continue;
    Blob2DPoint* to = blob - 1;
    while (to != run.first && blob->diameter > (to - 1)->diameter) --to;
    std::rotate(to, blob, blob + 1);
    std::rotate(names + (to - run.first), names + (blob - run.first),
                names + (blob - run.first) + 1);
  }
}

}  // namespace algorithm
