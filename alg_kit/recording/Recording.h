// What a recording holds, and the reader. The file is an SQLite database;
// docs/recording-format.md describes it table by table.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/session/Session.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace recording {

constexpr std::int32_t kApplicationId = 0x616C6772;  ///< "algr"
constexpr int kFormatVersion = 2;                    ///< of what is written; all versions are read

/// Keys of simulations whose cameras differ from the calibration that `Init` got: the true one as
/// the 920 bytes in hexadecimal digits; with a drift it is the one of the first moment, and the
/// second key has the last moment's.
constexpr const char* kTrueCalibration = "true_calibration";
constexpr const char* kTrueCalibrationAtEnd = "true_calibration_at_end";

/// A recording that cannot be read or written. `what()` is one line that begins with the file.
class RecordingError : public std::runtime_error {
 public:
  RecordingError(const std::string& path, const std::string& problem)
      : std::runtime_error(path + ": " + problem) {}
};

/// Facts about a recording; every key of the file is in `values`.
struct Metadata {
  std::map<std::string, std::string> values;
  std::string libraryVersion;  ///< of the library that was recorded
  std::string platform;        ///< operating system, processor, compiler
  std::string clock;  ///< "monotonic": of the recording machine; "simulated": 0 = frame 0, exact
  int formatVersion = 0;          ///< from 2 on, every value that is read has its checksum
  bool complete = false;          ///< closed in order; else cut off (killed) or still going on
  bool journalMissing = false;    ///< its `-wal` is not beside it: the latest calls may be missing
  std::int64_t droppedCalls = 0;  ///< calls that the recorder could not write
};

/// What one `Init` call was given.
struct Configuration {
  std::int64_t call = 0;
  int productType = 0;
  std::optional<algorithm::StereoCalibration> calibration;  ///< none = null was passed
};

class Database;

/// A reader bears any file. It changes nothing on disk, takes time and memory that are bounded
/// (time by the file's size, memory by one outermost call: see the limits), and answers rightly or
/// not at all: what is damaged, missing or of the wrong type is an error and never a number.
constexpr std::size_t kMostCallsPerUnit = 4096;      ///< an outermost call with those in it
constexpr std::size_t kMostCallbacksPerCall = 4096;  ///< messages and blocks
constexpr std::int64_t kLatestNs = (std::int64_t{1} << 62) - 1;  ///< 146 years; and as far back

/// Reads the calls in order. Needs its reader for as long as it lives.
class EntryCursor {
 public:
  ~EntryCursor();
  EntryCursor(EntryCursor&&) noexcept;

  /// Fills `entry` (its storage is reused) with the next call; false after the last one.
  /// @throws RecordingError for a damaged file and for fields that do not fit the call
  bool next(session::Entry& entry);

  const std::string& path() const;

 private:
  friend class RecordingReader;
  EntryCursor(Database& database, int version, std::int64_t firstIndex);
  struct State;
  std::unique_ptr<State> state_;
};

/// Reads the truth, by frame, object and marker. Needs its reader for as long as it lives.
class TruthCursor {
 public:
  ~TruthCursor();
  TruthCursor(TruthCursor&&) noexcept;

  /// Fills `row`; false after the last one.
  /// @throws RecordingError for a damaged file
  bool next(session::TruthRow& row);

 private:
  friend class RecordingReader;
  TruthCursor(Database& database, const Metadata& metadata);
  TruthCursor(Database& database, const Metadata& metadata, std::int64_t call);
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
  std::int64_t callCount(session::CallKind kind) const;  ///< reads all calls

  /// All calls from `firstIndex` on.
  EntryCursor entries(std::int64_t firstIndex = 0) const;

  /// One call; none if there is no such index.
  std::optional<session::Entry> entry(std::int64_t index) const;

  /// The index of the `n`-th packet (InputStream of type 0 or 2; from 0) of the recording. Reads
  /// the calls up to it.
  std::optional<std::int64_t> packetCall(std::int64_t n) const;

  std::vector<Configuration> configurations() const;

  bool hasTruth() const;
  std::vector<session::TruthRow> truth() const;
  TruthCursor truthRows() const;
  /// The truth of one packet; empty without truth.
  std::vector<session::TruthRow> truthOf(std::int64_t call) const;

 private:
  std::string path_;
  std::unique_ptr<Database> database_;
  Metadata metadata_;
};

}  // namespace recording
