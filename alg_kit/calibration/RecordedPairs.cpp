#include <alg_kit/calibration/RecordedPairs.h>

#include <cstdint>
#include <optional>

namespace calibration {
namespace {

bool stands(const trace::TracedBlob& blob) {
  return blob.fate != trace::BlobFate::kNoWeight && blob.fate != trace::BlobFate::kMerged;
}

}  // namespace

void RecordedViews::add(const trace::PacketTrace& packet, double time) {
  if (packets_++ % stride_ != 0) return;
  for (int id = 0; id < packet.blobIdCount; ++id) {
    const trace::TracedBlob* seen[2][2] = {};
    int counts[2] = {};
    for (const trace::TracedBlob& blob : packet.blobs) {
      if (blob.raw.id != id || !stands(blob)) continue;
      int& count = counts[blob.camera];
      if (count < 2) seen[blob.camera][count] = &blob;
      ++count;
    }
    const auto pixel = [&](int camera, int i) {
      return algorithm::ImagePoint{seen[camera][i]->x, seen[camera][i]->y};
    };
    if (counts[0] == 1 && counts[1] == 1)
      pairs.push_back(
          {pixel(0, 0), pixel(1, 0), seen[0][0]->diameter, seen[1][0]->diameter, id, time});
    if (counts[0] == 2 && counts[1] == 2)
      twoPoints.push_back({{pixel(0, 0), pixel(0, 1)}, {pixel(1, 0), pixel(1, 1)}});
  }
  if (pairs.size() > most_ || twoPoints.size() > most_) thin();
}

/// Keeps every second packet, of those that come too.
void RecordedViews::thin() {
  stride_ *= 2;
  std::size_t kept = 0, moment = 0;
  double last = pairs.empty() ? 0 : pairs.front().time;
  for (const ObservedPair& pair : pairs) {
    if (pair.time != last) ++moment;
    last = pair.time;
    if (moment % 2 == 0) pairs[kept++] = pair;
  }
  // Where time stands still every moment is one: then every second pair goes.
  if (kept == pairs.size()) kept = pairs.size() / 2;
  pairs.resize(kept);
  for (std::size_t i = 0; 2 * i < twoPoints.size(); ++i) twoPoints[i] = twoPoints[2 * i];
  twoPoints.resize((twoPoints.size() + 1) / 2);
}

RecordedViews recordedViews(const recording::RecordingReader& reader) {
  RecordedViews views;
  trace::PipelineTrace trace;
  std::optional<std::int64_t> beginNs;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    if (!beginNs) beginNs = entry.call.startNs;
    if (const trace::PacketTrace* const packet = trace.feed(entry.call))
      views.add(*packet,
                (static_cast<double>(entry.call.startNs) - static_cast<double>(*beginNs)) * 1e-9);
  }
  return views;
}

std::vector<ObservedPair> observedPairs(const recording::RecordingReader& reader) {
  return recordedViews(reader).pairs;
}

}  // namespace calibration
