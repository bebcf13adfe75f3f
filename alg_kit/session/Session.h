// A host's session with the library: the calls across the interface, what they were given, and what
// came of them.
#pragma once

#include <alg_factory/service/ResultBlock.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace session {

using Bytes = std::vector<std::uint8_t>;

/// The seven operations of algorithm::AlgBase.
enum class CallKind {
  kInit,
  kInputStream,
  kSetDataCallback,
  kSetLogCallback,
  kSetFilterMode,
  kGetFixedCode,
  kHandleEvent,
};

constexpr std::uint32_t kCallKinds = 7;

/// The operation's name, which is also what the file holds: "InputStream".
const char* nameOf(CallKind kind);

/// The operation of that name; none if there is no such.
std::optional<CallKind> callKindNamed(std::string_view name);

/// One call across the interface. A number that the operation does not have is 0.
struct Call {
  std::int64_t index = 0;              ///< order of entry, from 0; a gap = dropped calls
  std::optional<std::int64_t> parent;  ///< the call in whose callback this one was made
  int parentStep = 0;                  ///< which of the parent's callbacks: its `step`
  CallKind kind = CallKind::kInit;
  int type = 0;    ///< Init: product; InputStream: stream; SetFilterMode: parameter; HandleEvent
  int mode = 0;    ///< SetFilterMode
  int offset = 0;  ///< Init, InputStream: as the host passed it; `payload` begins behind it
  int length = 0;  ///< InputStream: as the host passed it
  bool pointerGiven = false;  ///< config, buffer, sink, reserved or input was not null
  bool outputGiven = false;   ///< HandleEvent: output was not null
  /// The bytes that the library reads: Init 920; stream types 0 and 2 `length`, 1, 3 and 4 56, 5
  /// 4; HandleEvent 16 24 and, on product types 0 and 1, 2 8. Empty where it reads none.
  Bytes payload;
  std::optional<int> returned;  ///< bool as 0 or 1; none = the call ended with an exception
  Bytes output;                 ///< HandleEvent that returned true: 52 bytes, event 16 48 bytes
  std::int64_t startNs = 0;     ///< at entry; Metadata::clock says on which clock
  std::optional<std::int64_t> durationNs;  ///< host's callbacks included; none = not measured
};

/// The blobs of one frame, rather than inertial samples, a setting or a question.
bool isPacket(const Call& call);

/// A message of the library during a call.
struct LogLine {
  int step = 0;  ///< place among the callbacks (messages and blocks) of its call, from 0
  int level = 0;
  std::string text;    ///< as it came, with the newline at its end
  bool threw = false;  ///< the host's sink threw
};

/// A delivered block.
struct DeliveredBlock {
  int step = 0;  ///< as LogLine::step
  algorithm::ResultBlock block;
  bool threw = false;  ///< the host's sink threw
};

/// A call and what the library said during it (not during calls nested in it).
struct Entry {
  Call call;
  std::vector<LogLine> logs;           ///< in order
  std::vector<DeliveredBlock> blocks;  ///< in order; at most one with today's library
};

/// Where a simulated marker really was. Ordered by frame, object and marker.
struct TruthRow {
  std::int64_t frame = 0;
  std::optional<std::int64_t> call;  ///< the InputStream call of its packet; none = packet lost
  std::int64_t timeNs = 0;           ///< the frame's time, on the clock of Call::startNs
  int object = 0;                    ///< object id = blob id
  int marker = 0;                    ///< 0; 0 and 1 for the two-point object
  double position[3] = {};           ///< right camera's frame (x right, y down, z forward), mm
  bool inLeft = false;               ///< the left camera reported it
  bool inRight = false;              ///< the right camera reported it
};

/// An outermost call with the calls nested in it, in order of entry, or truth, or both.
struct Unit {
  std::vector<Entry> entries;  ///< the first `used` ones; the others only keep their storage
  std::size_t used = 0;
  std::vector<TruthRow> truth;

  std::size_t size() const { return used; }
  bool empty() const { return used == 0; }
  Entry& operator[](std::size_t i) { return entries[i]; }
  const Entry& operator[](std::size_t i) const { return entries[i]; }
  const Entry* begin() const { return entries.data(); }
  const Entry* end() const { return entries.data() + used; }

  /// A further entry, as new but for its storage. It stays where it is until the next one.
  Entry& append();

  /// Nothing but storage is left.
  void clear();

  void swap(Unit& other) noexcept {
    entries.swap(other.entries);
    std::swap(used, other.used);
    truth.swap(other.truth);
  }
};

/// As `to = from`, but of the storage for further entries `to` keeps its own.
void copy(const Unit& from, Unit& to);

/// The number of bytes that the library reads at a call's pointer, the `payload`. `productType` is
/// the one of the latest Init (0 before it).
std::size_t payloadSize(const Call& call, int productType);

/// What is wrong with the size of a call's payload or output.
struct SizeProblem {
  std::string expected, found;  ///< "a payload of 920 bytes", "12"
};

/// A call that came from outside must not lead the library, or us, past the end of a buffer: its
/// payload is empty or as long as what the library reads, its output as long as the answer.
std::optional<SizeProblem> problemInSizes(const Call& call);

/// The number of bytes that a query which returns true writes to `output`: 52 or, for event 16, 48.
std::size_t answerSize(int eventType);

}  // namespace session
