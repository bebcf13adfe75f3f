#include <alg_kit/recording/Rows.h>

#include <alg_kit/recording/Checksum.h>
#include <alg_kit/text/TextFile.h>

#include <charconv>
#include <cstring>

namespace recording {
namespace {

// Whoever reads a recording relies on these sizes: a file made by other hands must not lead the
// library, or us, past the end of a buffer.
void checkSizes(const std::string& path, const session::Call& call) {
  const auto require = [&](const char* field, std::size_t found, std::size_t expected) {
    if (found != expected)
      throw RecordingError(path, callTitle(call) + ": " + field + ": expected " +
                                     std::to_string(expected) + " bytes, found " +
                                     std::to_string(found));
  };
  if (!call.payload.empty() || call.kind == session::CallKind::kInit)
    require("payload", call.payload.size(), session::payloadSize(call, 0));
  const bool answered =
      call.kind == session::CallKind::kHandleEvent && call.returned == 1 && call.outputGiven;
  require("output", call.output.size(), answered ? session::answerSize(call.type) : 0);
}

/// @param title  makes the name of the row, which only an error needs
template <typename Title>
void checkTime(const std::string& path, Title title, const char* field, std::int64_t first,
               std::int64_t value) {
  if (value < first || value > kLatestNs)
    throw RecordingError(path, title() + ": " + field + ": expected at most 146 years, found " +
                                   std::to_string(value) + " ns");
}

}  // namespace

std::string callColumns(int version) {
  return std::string(
             "id, parent, parent_step, kind, type, mode, offset, length, pointer_given, "
             "output_given, payload, returned, output, start_ns, duration_ns, ") +
         (version >= 2 ? "checksum" : "0");
}

std::string truthColumns(int version) {
  return std::string("frame, call, time_ns, object, marker, x, y, z, in_left, in_right, ") +
         (version >= 2 ? "checksum" : "0");
}

[[noreturn]] void refuseDamaged(const std::string& path, const std::string& what) {
  throw RecordingError(path, what +
                                 ": its checksum does not fit: the file is damaged; `algtrack "
                                 "repair` saves what is whole");
}

std::string callTitle(const session::Call& call) {
  return "call " + std::to_string(call.index) + " (" + session::nameOf(call.kind) + ")";
}

void readCall(const std::string& path, const Statement& row, session::Call& call) {
  call.index = row.integer(0);
  if (call.index < 0)
    throw RecordingError(path, "id: expected a number from 0, found " + std::to_string(call.index));
  call.parent = row.integerOrNull(1);
  call.parentStep = row.number(2);
  const auto kind = session::callKindNamed(row.text(3));
  if (!kind)
    throw RecordingError(path, "call " + std::to_string(call.index) +
                                   ": kind: expected the name of an operation, found another text");
  call.kind = *kind;
  call.type = row.number(4);
  call.mode = row.number(5);
  call.offset = row.number(6);
  call.length = row.number(7);
  call.pointerGiven = row.truthValue(8);
  call.outputGiven = row.truthValue(9);
  row.blob(10, call.payload);
  call.returned = row.isNull(11) ? std::nullopt : std::optional(row.number(11));
  row.blob(12, call.output);
  call.startNs = row.integer(13);
  call.durationNs = row.integerOrNull(14);
  if (call.parent && *call.parent >= call.index)
    throw RecordingError(path, callTitle(call) + ": parent: expected an earlier call, found call " +
                                   std::to_string(*call.parent));
  const auto title = [&] { return callTitle(call); };
  checkTime(path, title, "start_ns", -kLatestNs, call.startNs);
  if (call.durationNs) checkTime(path, title, "duration_ns", 0, *call.durationNs);
  checkSizes(path, call);
}

session::LogLine readLog(const Statement& row) {
  return {row.number(1), row.number(2), std::string(row.text(3)), row.truthValue(4)};
}

session::DeliveredBlock readBlock(const std::string& path, const Statement& row) {
  session::DeliveredBlock delivered;
  delivered.step = row.number(1);
  const std::string_view bytes = row.bytes(2);
  if (bytes.size() != sizeof delivered.block)
    throw RecordingError(path, "call " + std::to_string(row.integer(0)) + ": block: expected " +
                                   std::to_string(sizeof delivered.block) + " bytes, found " +
                                   std::to_string(bytes.size()));
  std::memcpy(static_cast<void*>(&delivered.block), bytes.data(), bytes.size());
  delivered.threw = row.truthValue(3);
  return delivered;
}

session::TruthRow readTruthRow(const std::string& path, int version, const Statement& row) {
  session::TruthRow truth;
  truth.frame = row.integer(0);
  const auto title = [&] { return "truth of frame " + std::to_string(truth.frame); };
  truth.call = row.integerOrNull(1);
  truth.timeNs = row.integer(2);
  checkTime(path, title, "time_ns", -kLatestNs, truth.timeNs);
  truth.object = row.number(3);
  truth.marker = row.number(4);
  for (int i = 0; i < 3; ++i) truth.position[i] = row.real(5 + i);
  truth.inLeft = row.truthValue(8);
  truth.inRight = row.truthValue(9);
  if (version >= 2 && row.integer(10) != checksumOf(truth)) refuseDamaged(path, title());
  return truth;
}

std::int64_t countIn(const std::string& path, const std::string& key, const std::string& text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const std::int64_t least = key == "last_call" ? -1 : 0;
  if (!text.empty() && (error != std::errc() || end != text.data() + text.size() || value < least))
    throw RecordingError(path, key + ": expected a count, found " + text::quoted(text));
  return value;
}

}  // namespace recording
