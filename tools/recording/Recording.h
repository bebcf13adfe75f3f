// What a recording holds, and the reader. The file is an SQLite database;
// docs/recording-format.md describes it table by table.
#pragma once

#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace recording {

constexpr std::int32_t kApplicationId = 0x616C6772;  ///< "algr"
constexpr int kFormatVersion = 1;

using Bytes = std::vector<std::uint8_t>;

/// A recording that cannot be read or written. `what()` is one line that begins with the file.
class RecordingError : public std::runtime_error {
 public:
  RecordingError(const std::string& path, const std::string& problem)
      : std::runtime_error(path + ": " + problem) {}
};

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

/// The operation's name, which is also what the file holds: "InputStream".
const char* nameOf(CallKind kind);

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

/// Facts about a recording; every key of the file is in `values`.
struct Metadata {
  std::map<std::string, std::string> values;
  std::string libraryVersion;  ///< of the library that was recorded
  std::string platform;        ///< operating system, processor, compiler
  std::string clock;  ///< "monotonic": of the recording machine; "simulated": 0 = frame 0, exact
  bool complete = false;          ///< closed in order; else cut off (killed) or still going on
  std::int64_t droppedCalls = 0;  ///< calls that the recorder could not write
};

/// What one `Init` call was given.
struct Configuration {
  std::int64_t call = 0;
  int productType = 0;
  std::optional<algorithm::StereoCalibration> calibration;  ///< none = null was passed
};

class Database;

/// Reads the calls in order. Needs its reader for as long as it lives.
class EntryCursor {
 public:
  ~EntryCursor();
  EntryCursor(EntryCursor&&) noexcept;

  /// Fills `entry` (its storage is reused) with the next call; false after the last one.
  /// @throws RecordingError for a damaged file and for fields that do not fit the call
  bool next(Entry& entry);

 private:
  friend class RecordingReader;
  EntryCursor(Database& database, std::int64_t firstIndex);
  struct State;
  std::unique_ptr<State> state_;
};

/// Opens a finished recording, one that was cut off, or one that is still being written.
class RecordingReader {
 public:
  /// @throws RecordingError in one line: no such file, a directory, empty, no SQLite file, damaged,
  ///         without our tables, or of a newer format
  explicit RecordingReader(const std::string& path);
  ~RecordingReader();
  RecordingReader(RecordingReader&&) noexcept;

  const std::string& path() const { return path_; }
  const Metadata& metadata() const { return metadata_; }

  std::int64_t callCount() const;
  std::int64_t callCount(CallKind kind) const;

  /// All calls from `firstIndex` on.
  EntryCursor entries(std::int64_t firstIndex = 0) const;

  /// One call; none if there is no such index.
  std::optional<Entry> entry(std::int64_t index) const;

  /// The index of the `n`-th packet (InputStream of type 0 or 2; from 0) of the recording.
  std::optional<std::int64_t> packetCall(std::int64_t n) const;

  std::vector<Configuration> configurations() const;

  bool hasTruth() const;
  std::vector<TruthRow> truth() const;
  /// The truth of one packet; empty without truth.
  std::vector<TruthRow> truthOf(std::int64_t call) const;

 private:
  std::string path_;
  std::unique_ptr<Database> database_;
  Metadata metadata_;
};

/// The number of bytes that the library reads at a call's pointer, the `payload`. `productType` is
/// the one of the latest Init (0 before it).
std::size_t payloadSize(const Call& call, int productType);

/// The number of bytes that a query which returns true writes to `output`: 52 or, for event 16, 48.
std::size_t answerSize(int eventType);

}  // namespace recording
