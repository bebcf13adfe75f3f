#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/trace/PipelineTrace.h>

namespace calibration {
namespace {

bool stands(const trace::TracedBlob& blob) {
  return blob.fate != trace::BlobFate::kNoWeight && blob.fate != trace::BlobFate::kMerged;
}

}  // namespace

RecordedViews recordedViews(const recording::RecordingReader& reader) {
  RecordedViews views;
  trace::PipelineTrace trace;
  std::optional<std::int64_t> beginNs;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    if (!beginNs) beginNs = entry.call.startNs;
    const trace::PacketTrace* const packet = trace.feed(entry.call);
    if (packet == nullptr) continue;
    const double time = static_cast<double>(entry.call.startNs - *beginNs) * 1e-9;
    for (int id = 0; id < packet->blobIdCount; ++id) {
      const trace::TracedBlob* seen[2][2] = {};
      int counts[2] = {};
      for (const trace::TracedBlob& blob : packet->blobs) {
        if (blob.raw.id != id || !stands(blob)) continue;
        int& count = counts[blob.camera];
        if (count < 2) seen[blob.camera][count] = &blob;
        ++count;
      }
      const auto pixel = [&](int camera, int i) {
        return algorithm::ImagePoint{seen[camera][i]->x, seen[camera][i]->y};
      };
      if (counts[0] == 1 && counts[1] == 1)
        views.pairs.push_back(
            {pixel(0, 0), pixel(1, 0), seen[0][0]->diameter, seen[1][0]->diameter, id, time});
      if (counts[0] == 2 && counts[1] == 2)
        views.twoPoints.push_back({{pixel(0, 0), pixel(0, 1)}, {pixel(1, 0), pixel(1, 1)}});
    }
  }
  return views;
}

std::vector<ObservedPair> observedPairs(const recording::RecordingReader& reader) {
  return recordedViews(reader).pairs;
}

}  // namespace calibration
