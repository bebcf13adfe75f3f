// A recording's calls sorted into columns.
#pragma once

#include <alg_kit/recording/Recording.h>
#include <bindings/python/src/Rows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bindings {

struct Columns {
  std::vector<CallRow> calls;
  std::vector<PacketRow> packets;
  std::vector<BlockRow> blocks;
  std::vector<AnswerRow> answers;  ///< of pose queries that returned true
  std::vector<HeadingRow> headings;
  std::vector<LogRow> logs;
  std::vector<std::string> texts;  ///< of messages, each once
  std::vector<std::uint8_t> payloads;
};

/// Called now and then while something long goes on; may throw to end it.
using Tick = std::function<void()>;

Columns readColumns(const recording::RecordingReader& reader, const Tick& tick);

std::vector<TruthColumnRow> readTruth(const recording::RecordingReader& reader, const Tick& tick);

}  // namespace bindings
