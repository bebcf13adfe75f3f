#include <tools/algtrack/PipelineTrace.h>
#include <tools/algtrack/RecordedPairs.h>

namespace algtrack {

std::vector<calibration::ObservedPair> observedPairs(const recording::RecordingReader& reader) {
  std::vector<calibration::ObservedPair> pairs;
  PipelineTrace trace;
  auto entries = reader.entries();
  for (recording::Entry entry; entries.next(entry);) {
    const PacketTrace* const packet = trace.feed(entry.call);
    if (packet == nullptr) continue;
    for (int id = 0; id < packet->blobIdCount; ++id) {
      const TracedBlob* seen[2] = {};
      int counts[2] = {};
      for (const TracedBlob& blob : packet->blobs) {
        const bool stands = blob.fate != BlobFate::kNoWeight && blob.fate != BlobFate::kMerged;
        if (blob.raw.id != id || !stands) continue;
        seen[blob.camera] = &blob;
        ++counts[blob.camera];
      }
      if (counts[0] != 1 || counts[1] != 1) continue;
      pairs.push_back({{seen[0]->x, seen[0]->y},
                       {seen[1]->x, seen[1]->y},
                       seen[0]->diameter,
                       seen[1]->diameter});
    }
  }
  return pairs;
}

}  // namespace algtrack
