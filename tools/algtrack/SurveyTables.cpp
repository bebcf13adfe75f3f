#include <alg_kit/trace/FateText.h>
#include <tools/algtrack/SurveyTables.h>

#include <array>
#include <string>

namespace algtrack {

using analysis::BlobFunnel;
using analysis::RecordingSurvey;

Table callTable(const RecordingSurvey& survey) {
  Table table({"operation", "calls", "returned false", "threw"});
  for (const analysis::OperationCount& count : survey.operations())
    table.addRow({session::nameOf(count.kind), count.calls, count.refused, count.threw});
  return table;
}

Table streamTable(const RecordingSurvey& survey) {
  Table table({"type",
               "content",
               "calls",
               "refused",
               "bytes",
               {"rate Hz", "rate_hz"},
               {"median ms", "median_interval_ms"},
               "gaps",
               {"longest ms", "longest_interval_ms"},
               {"before number", "longest_ends_at_number"}});
  for (const analysis::StreamCount& count : survey.streams())
    table.addRow({count.type, analysis::streamName(count.type), count.calls, count.refused,
                  count.bytes, Cell(count.rateHz, 1), Cell(count.medianMs, 3), count.gaps,
                  Cell(count.longestMs, 3),
                  count.calls > 1 ? Cell(count.gapEndsAt) : Cell::none()});
  return table;
}

Table logTable(const RecordingSurvey& survey) {
  Table table(
      {"level", "message", "count", "first call", "first packet", {"first s", "first_time_s"}});
  for (const analysis::MessageCount& message : survey.messages())
    table.addRow({message.level, message.text, message.count, message.firstCall,
                  message.firstPacket ? Cell(*message.firstPacket) : Cell::none(),
                  Cell(message.firstSeconds, 3)});
  return table;
}

Table byteTable(const RecordingSurvey& survey) {
  Table table({{"bytes of packets", "meaning"}, "pieces", "bytes"});
  std::int64_t pieces = 0, bytes = 0;
  for (const analysis::PieceCount& count : survey.pieces()) {
    table.addRow({trace::describe(count.kind), count.pieces, count.bytes});
    pieces += count.pieces;
    bytes += count.bytes;
  }
  table.addRow({"all", pieces, bytes});
  return table;
}

Table blobTable(const RecordingSurvey& survey) {
  Table table({"id",
               "left",
               "right",
               {"left mean diameter", "left_mean_diameter_px"},
               {"right mean diameter", "right_mean_diameter_px"}});
  for (const analysis::BlobCount& count : survey.blobs())
    table.addRow({count.id, count.blobs[0], count.blobs[1], Cell(count.meanDiameter[0], 2),
                  Cell(count.meanDiameter[1], 2)});
  return table;
}

Table funnelTable(const BlobFunnel& funnel) {
  Table table({"stage", "left", "right", "blobs"});
  using Counts = std::array<std::int64_t, 2>;
  Counts left = {funnel.records(0), funnel.records(1)};
  const auto addRow = [&](const std::string& text, const Counts& counts) {
    table.addRow({text, counts[0], counts[1], counts[0] + counts[1]});
  };
  const auto endedAt = [&](trace::BlobFate fate) -> Counts {
    return {funnel.ended(fate, 0), funnel.ended(fate, 1)};
  };
  const auto addSum = [&](const char* text) { addRow(text, left); };
  addSum("records decoded");
  for (int i = 0; i < static_cast<int>(trace::BlobFate::kDelivered); ++i) {
    const auto fate = static_cast<trace::BlobFate>(i);
    const Counts counts = endedAt(fate);
    addRow(std::string("  - ") + trace::describe(fate), counts);
    for (std::size_t camera = 0; camera < 2; ++camera) left[camera] -= counts[camera];
    switch (fate) {
      case trace::BlobFate::kMerged:
        addSum("= after merging");
        break;
      case trace::BlobFate::kNotMutual:
        addSum("= with a partner");
        break;
      case trace::BlobFate::kEpipolar:
        addSum("= of accepted pairs");
        break;
      case trace::BlobFate::kTooNear:
        addSum("= of points");
        break;
      case trace::BlobFate::kTooMany:
        addSum("= of points after the filter");
        break;
      default:
        break;
    }
  }
  addRow("= delivered", endedAt(trace::BlobFate::kDelivered));
  return table;
}

Json funnelJson(const BlobFunnel& funnel) {
  const auto sides = [](std::int64_t left, std::int64_t right) {
    return Json{{"left", left}, {"right", right}};
  };
  Json json;
  json["records"] = sides(funnel.records(0), funnel.records(1));
  for (int i = 0; i < trace::kBlobFates; ++i) {
    const auto fate = static_cast<trace::BlobFate>(i);
    json["ends"][jsonKey(trace::keyOf(fate))] = sides(funnel.ended(fate, 0), funnel.ended(fate, 1));
  }
  json["closes"] = funnel.closes();
  return json;
}

}  // namespace algtrack
