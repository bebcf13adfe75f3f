#include <alg_kit/analysis/RecordingSurvey.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <limits>

namespace analysis {
namespace {

/// The interval to `starts[i]` is `intervals[i - 1]`.
void measureIntervals(const std::vector<std::int64_t>& startsNs, StreamCount& count) {
  count.rateHz = count.medianMs = count.longestMs = std::numeric_limits<double>::quiet_NaN();
  std::vector<std::int64_t> intervals;
  for (std::size_t i = 1; i < startsNs.size(); ++i)
    intervals.push_back(startsNs[i] - startsNs[i - 1]);
  if (intervals.empty()) return;
  const auto longest = std::max_element(intervals.begin(), intervals.end());
  count.longestMs = static_cast<double>(*longest) * 1e-6;
  count.gapEndsAt = longest - intervals.begin() + 1;
  const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
  std::nth_element(intervals.begin(), middle, intervals.end());
  const std::int64_t median = *middle;
  count.medianMs = static_cast<double>(median) * 1e-6;
  count.gaps = std::count_if(intervals.begin(), intervals.end(), [&](std::int64_t ns) {
    return static_cast<double>(ns) > kGapIntervals * static_cast<double>(median);
  });
  const double span = static_cast<double>(startsNs.back() - startsNs.front());
  count.rateHz = static_cast<double>(intervals.size()) / span * 1e9;
}

}  // namespace

std::string streamName(int streamType) {
  constexpr const char* kNames[] = {"device packets",
                                    "auxiliary vectors",
                                    "stamped packets",
                                    "inertial samples of device 0",
                                    "inertial samples of device 1",
                                    "side hints"};
  return algorithm::isStreamType(streamType) ? kNames[streamType] : "unknown";
}

void RecordingSurvey::add(const session::Entry& entry, const trace::PacketTrace* packet,
                          double seconds, const std::optional<Moment>& moment) {
  const session::Call& call = entry.call;
  if (calls_++ == 0) firstNs_ = call.startNs;
  lastNs_ = call.startNs;
  OperationCount& ofKind = byKind_[call.kind];
  ofKind.kind = call.kind;
  ++ofKind.calls;
  // GetFixedCode returns a number, and 0 may be right.
  ofKind.refused += call.kind != session::CallKind::kGetFixedCode && call.returned == 0;
  ofKind.threw += !call.returned;

  if (call.kind == session::CallKind::kInputStream) {
    Stream& stream = streams_[call.type];
    ++stream.count;
    stream.bytes += std::max(call.length, 0);
    stream.refused += call.returned == 0;
    stream.startsNs.push_back(call.startNs);
  }
  packets_ += moment ? 1 : 0;
  const auto packetNumber = moment ? std::optional(moment->packet) : std::nullopt;
  for (const session::LogLine& line : entry.logs) {
    const std::pair<int, std::string> key(line.level, line.text.substr(0, kLongestMessage));
    if (messages_.size() == kMostMessages && messages_.count(key) == 0) {
      ++messagesLeftOut_;
      continue;
    }
    const auto [at, isNew] = messages_.try_emplace(key);
    if (isNew) at->second = {0, call.index, packetNumber, seconds};
    ++at->second.count;
  }
  if (packet == nullptr) return;
  ++decoded_;
  for (const trace::PacketPiece& piece : packet->pieces) {
    PieceCount& count = pieces_[static_cast<std::size_t>(piece.kind)];
    ++count.pieces;
    count.bytes += piece.size;
  }
  for (const trace::TracedBlob& blob : packet->blobs) {
    Blobs& blobs = blobs_[blob.raw.id][static_cast<std::size_t>(blob.camera)];
    ++blobs.count;
    blobs.diameters += blob.diameter;
  }
}

std::vector<OperationCount> RecordingSurvey::operations() const {
  std::vector<OperationCount> operations;
  for (const auto& [kind, count] : byKind_) operations.push_back(count);
  return operations;
}

std::vector<StreamCount> RecordingSurvey::streams() const {
  std::vector<StreamCount> counts;
  for (const auto& [type, stream] : streams_) {
    StreamCount& count = counts.emplace_back();
    count.type = type;
    count.calls = stream.count;
    count.refused = stream.refused;
    count.bytes = stream.bytes;
    measureIntervals(stream.startsNs, count);
  }
  return counts;
}

std::vector<MessageCount> RecordingSurvey::messages() const {
  std::vector<MessageCount> counts;
  for (const auto& [key, message] : messages_) {
    counts.push_back({key.first, key.second, message.count, message.firstCall, message.firstPacket,
                      message.firstSeconds});
    std::string& text = counts.back().text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
  }
  return counts;
}

std::vector<PieceCount> RecordingSurvey::pieces() const {
  std::vector<PieceCount> counts(pieces_.begin(), pieces_.end());
  for (std::size_t kind = 0; kind < counts.size(); ++kind)
    counts[kind].kind = static_cast<trace::PacketPiece::Kind>(kind);
  return counts;
}

std::vector<BlobCount> RecordingSurvey::blobs() const {
  std::vector<BlobCount> counts;
  for (const auto& [id, cameras] : blobs_) {
    BlobCount& count = counts.emplace_back();
    count.id = id;
    for (std::size_t camera = 0; camera < 2; ++camera) {
      count.blobs[camera] = cameras[camera].count;
      count.meanDiameter[camera] =
          cameras[camera].diameters / static_cast<double>(cameras[camera].count);
    }
  }
  return counts;
}

}  // namespace analysis
