// The database side of recording: tables, rows, transactions. Used by one thread.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace recording {

/// Makes a recording without calls in the empty file `path`.
/// @throws RecordingError
void createTables(const std::string& path, const std::map<std::string, std::string>& facts);

/// Writes rows into a file that `createTables` made. All operations throw RecordingError.
class RecordingWriter {
 public:
  explicit RecordingWriter(const std::string& path);
  ~RecordingWriter();
  RecordingWriter(const RecordingWriter&) = delete;
  RecordingWriter& operator=(const RecordingWriter&) = delete;

  void begin();
  void write(const session::Unit& unit);
  void write(const session::Entry& entry);
  void write(const session::TruthRow& truth);
  void setFact(const std::string& key, const std::string& value);
  void commit(std::int64_t dropped);
  void rollback() noexcept;

  /// Complete unless told otherwise, and if nobody is reading, one file without a journal beside
  /// it.
  void finish(std::int64_t dropped, bool complete = true);

  /// For a file that lost its name: what was committed goes from the journal into the file, and no
  /// file is removed by name, since the names may be somebody else's by now.
  void abandon() noexcept;

  /// The size of the file with what waits in its journal.
  std::int64_t bytes();

 private:
  struct Statements;

  /// What `meta` says about the tables, so that a reader misses what is missing.
  struct Counts {
    std::int64_t calls = 0, lastCall = -1, truthRows = 0, dropped = 0;
  };

  std::unique_ptr<Database> database_;
  std::unique_ptr<Statements> statements_;
  Counts counts_, committed_;
};

}  // namespace recording
