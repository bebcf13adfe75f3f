#include <bindings/python/src/Columns.h>

#include <alg_factory/api/Constants.h>
#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/analysis/Moment.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>

namespace bindings {
namespace {

using session::CallKind;
using session::Entry;

constexpr std::size_t kTickEvery = 16384;

/// A call's numbers that all its rows begin with.
struct At {
  double time;
  std::int64_t call, packet;
};

class Sorter {
 public:
  explicit Sorter(Columns& columns) : columns_(columns) {}

  void add(const Entry& entry) {
    const session::Call& call = entry.call;
    const double time = moments_.secondsOf(call);
    if (const auto moment = moments_.next(call)) {
      packet_ = moment->packet;
      addPacket(entry, time);
    }
    const At at = {time, call.index, packet_};
    addCall(call, time);
    for (const session::DeliveredBlock& delivered : entry.blocks) addBlock(delivered.block, at);
    for (const session::LogLine& line : entry.logs) addLog(line, at);
    if (call.kind == CallKind::kHandleEvent) addAnswer(call, at);
  }

 private:
  void addCall(const session::Call& call, double time) {
    CallRow& row = columns_.calls.emplace_back();
    row.time = time;
    row.call = call.index;
    row.parent = call.parent.value_or(kNone);
    row.kind = static_cast<std::int32_t>(call.kind);
    row.type = call.type;
    row.mode = call.mode;
    row.length = call.length;
    row.returned = call.returned.value_or(static_cast<int>(kNone));
    row.payloadBegin = static_cast<std::int64_t>(columns_.payloads.size());
    row.payloadSize = static_cast<std::int32_t>(call.payload.size());
    row.startNs = call.startNs;
    row.durationNs = call.durationNs.value_or(kNone);
    columns_.payloads.insert(columns_.payloads.end(), call.payload.begin(), call.payload.end());
  }

  void addPacket(const Entry& entry, double time) {
    const session::Call& call = entry.call;
    PacketRow& row = columns_.packets.emplace_back();
    row.time = time;
    row.call = call.index;
    row.packet = packet_;
    row.streamType = call.type;
    row.length = static_cast<std::int32_t>(call.payload.size());
    row.blocks = static_cast<std::int32_t>(entry.blocks.size());
    if (call.type == algorithm::kStampedPacket && call.payload.size() >= algorithm::kStampSize)
      std::memcpy(&row.stamp, call.payload.data(), sizeof row.stamp);
  }

  void addBlock(const algorithm::ResultBlock& block, const At& at) {
    BlockRow& row = columns_.blocks.emplace_back();
    row.time = at.time;
    row.call = at.call;
    row.packet = at.packet;
    row.stamp = block.header;
    std::copy(std::begin(block.records), std::end(block.records), row.records);
  }

  void addLog(const session::LogLine& line, const At& at) {
    const auto [found, isNew] =
        texts_.try_emplace(line.text, static_cast<std::int32_t>(columns_.texts.size()));
    if (isNew) columns_.texts.push_back(line.text);
    columns_.logs.push_back({at.time, at.call, at.packet, line.level, found->second});
  }

  void addAnswer(const session::Call& call, const At& at) {
    if (call.output.size() == sizeof(algorithm::PoseAnswer)) {
      algorithm::PoseAnswer answer;
      std::memcpy(&answer, call.output.data(), sizeof answer);
      AnswerRow& row = columns_.answers.emplace_back();
      row.time = at.time;
      row.call = at.call;
      row.packet = at.packet;
      row.event = call.type;
      row.id = answer.id;
      std::copy_n(answer.raw, 3, row.raw);
      std::copy_n(answer.filtered, 3, row.filtered);
      std::copy_n(answer.rate, 3, row.rate);
    } else if (call.output.size() == sizeof(algorithm::HeadingAnswer)) {
      algorithm::HeadingAnswer answer;
      std::memcpy(&answer, call.output.data(), sizeof answer);
      HeadingRow& row = columns_.headings.emplace_back();
      row.time = at.time;
      row.call = at.call;
      row.packet = at.packet;
      std::copy_n(answer.orientation, 4, row.orientation);
      row.yaw = answer.yaw;
      row.negatedCorrectedYaw = answer.negatedCorrectedYaw;
      row.score = answer.score;
      row.status = answer.status;
    }
  }

  Columns& columns_;
  analysis::MomentCounter moments_;
  std::int64_t packet_ = kNone;
  std::map<std::string, std::int32_t> texts_;
};

}  // namespace

Columns readColumns(const recording::RecordingReader& reader, const Tick& tick) {
  Columns columns;
  Sorter sorter(columns);
  auto entries = reader.entries();
  for (Entry entry; entries.next(entry);) {
    sorter.add(entry);
    if (columns.calls.size() % kTickEvery == 0) tick();
  }
  return columns;
}

std::vector<TruthColumnRow> readTruth(const recording::RecordingReader& reader, const Tick& tick) {
  std::vector<TruthColumnRow> rows;
  if (!reader.hasTruth()) return rows;
  Entry first;
  const std::int64_t firstNs = reader.entries().next(first) ? first.call.startNs : 0;
  auto truth = reader.truthRows();
  for (session::TruthRow from; truth.next(from);) {
    TruthColumnRow& row = rows.emplace_back();
    row.time = (static_cast<double>(from.timeNs) - static_cast<double>(firstNs)) / 1e9;
    row.frame = from.frame;
    row.call = from.call.value_or(kNone);
    row.object = from.object;
    row.marker = from.marker;
    std::copy_n(from.position, 3, row.position);
    row.inLeft = from.inLeft;
    row.inRight = from.inRight;
    if (rows.size() % kTickEvery == 0) tick();
  }
  return rows;
}

}  // namespace bindings
