#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/trace/PipelineTrace.h>

namespace calibration {

std::vector<ObservedPair> observedPairs(const recording::RecordingReader& reader) {
  std::vector<ObservedPair> pairs;
  trace::PipelineTrace trace;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    const trace::PacketTrace* const packet = trace.feed(entry.call);
    if (packet == nullptr) continue;
    for (int id = 0; id < packet->blobIdCount; ++id) {
      const trace::TracedBlob* seen[2] = {};
      int counts[2] = {};
      for (const trace::TracedBlob& blob : packet->blobs) {
        const bool stands =
            blob.fate != trace::BlobFate::kNoWeight && blob.fate != trace::BlobFate::kMerged;
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

}  // namespace calibration
