#include <tools/algtrack/RecordingSurvey.h>

#include <algorithm>
#include <limits>

namespace algtrack {

std::string streamName(int streamType) {
  constexpr const char* kNames[] = {"device packets",
                                    "auxiliary vectors",
                                    "stamped packets",
                                    "inertial samples of device 0",
                                    "inertial samples of device 1",
                                    "side hints"};
  const bool known = streamType >= 0 && streamType < static_cast<int>(std::size(kNames));
  return known ? kNames[streamType] : "unknown";
}

void RecordingSurvey::add(const session::Entry& entry, const trace::PacketTrace* packet) {
  const session::Call& call = entry.call;
  if (calls_++ == 0) firstNs_ = call.startNs;
  lastNs_ = call.startNs;
  Calls& ofKind = byKind_[call.kind];
  ++ofKind.count;
  ofKind.refused += call.returned == 0;
  ofKind.threw += !call.returned;

  std::optional<std::int64_t> packetNumber;
  if (call.kind == session::CallKind::kInputStream) {
    Stream& stream = streams_[call.type];
    ++stream.count;
    stream.bytes += std::max(call.length, 0);
    stream.refused += call.returned == 0;
    stream.startsNs.push_back(call.startNs);
    if (call.type == 0 || call.type == 2) packetNumber = packets_++;
  }
  for (const session::LogLine& line : entry.logs) {
    const auto [at, isNew] = messages_.try_emplace({line.level, line.text});
    if (isNew) at->second = {0, call.index, packetNumber};
    ++at->second.count;
  }
  if (packet == nullptr) return;
  ++decoded_;
  for (const trace::PacketPiece& piece : packet->pieces) {
    Pieces& pieces = pieces_[static_cast<std::size_t>(piece.kind)];
    ++pieces.count;
    pieces.bytes += piece.size;
  }
  for (const trace::TracedBlob& blob : packet->blobs) {
    Blobs& blobs = blobs_[blob.raw.id][static_cast<std::size_t>(blob.camera)];
    ++blobs.count;
    blobs.diameters += blob.diameter;
  }
}

Table RecordingSurvey::callTable() const {
  Table table({"operation", "calls", "returned false", "threw"});
  for (const auto& [kind, calls] : byKind_) {
    const bool isBool = kind != session::CallKind::kGetFixedCode;
    table.addRow({nameOf(kind), calls.count, isBool ? calls.refused : 0, calls.threw});
  }
  return table;
}

Table RecordingSurvey::streamTable() const {
  Table table({"type", "content", "calls", "refused", "bytes", "rate Hz", "median ms", "gaps",
               "longest ms", "before number"});
  for (const auto& [type, stream] : streams_) {
    std::vector<std::int64_t> intervals;
    for (std::size_t i = 1; i < stream.startsNs.size(); ++i)
      intervals.push_back(stream.startsNs[i] - stream.startsNs[i - 1]);
    if (intervals.empty()) {
      const double none = std::numeric_limits<double>::quiet_NaN();
      table.addRow({type, streamName(type), stream.count, stream.refused, stream.bytes,
                    Cell(none, 1), Cell(none, 3), 0, Cell(none, 3), "-"});
      continue;
    }
    const auto longest = std::max_element(intervals.begin(), intervals.end());
    const std::int64_t longestNs = *longest;
    const std::int64_t before = longest - intervals.begin() + 1;
    std::vector<std::int64_t> sorted = intervals;
    std::nth_element(sorted.begin(),
                     sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    const std::int64_t median = sorted[sorted.size() / 2];
    const auto gaps = std::count_if(intervals.begin(), intervals.end(),
                                    [&](std::int64_t ns) { return 2 * ns > 3 * median; });
    const double span = static_cast<double>(stream.startsNs.back() - stream.startsNs.front());
    table.addRow({type, streamName(type), stream.count, stream.refused, stream.bytes,
                  Cell(static_cast<double>(intervals.size()) / span * 1e9, 1),
                  Cell(static_cast<double>(median) * 1e-6, 3), static_cast<std::int64_t>(gaps),
                  Cell(static_cast<double>(longestNs) * 1e-6, 3), before});
  }
  return table;
}

Table RecordingSurvey::logTable() const {
  Table table({"level", "message", "count", "first call", "first packet"});
  for (const auto& [key, message] : messages_) {
    std::string text = key.second;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    table.addRow({key.first, text, message.count, message.firstCall,
                  message.firstPacket ? Cell(*message.firstPacket) : Cell("-")});
  }
  return table;
}

Table RecordingSurvey::byteTable() const {
  Table table({"bytes of packets", "pieces", "bytes"});
  std::int64_t count = 0, bytes = 0;
  for (int kind = 0; kind < trace::kPieceKinds; ++kind) {
    const Pieces& pieces = pieces_[static_cast<std::size_t>(kind)];
    table.addRow(
        {trace::describe(static_cast<trace::PacketPiece::Kind>(kind)), pieces.count, pieces.bytes});
    count += pieces.count;
    bytes += pieces.bytes;
  }
  table.addRow({"all", count, bytes});
  return table;
}

Table RecordingSurvey::blobTable() const {
  Table table({"id", "left", "right", "left mean diameter", "right mean diameter"});
  for (const auto& [id, cameras] : blobs_) {
    const auto mean = [](const Blobs& blobs) {
      return Cell(blobs.diameters / static_cast<double>(blobs.count), 2);
    };
    table.addRow({id, cameras[0].count, cameras[1].count, mean(cameras[0]), mean(cameras[1])});
  }
  return table;
}

}  // namespace algtrack
