#pragma once

#include <memory>
#include <string>

namespace recording {

/// A file system for SQLite that changes nothing on disk: no byte of a database, its journals or
/// any other file is written, and no file is made or removed.
///
/// - What a writer under way, or a killed one, left in `NAME-wal` is read from there. With a
/// writer,
///   its locks are honoured.
/// - A rollback journal `NAME-journal` that a kill left is played back in memory.
/// - A journal that names another file is refused.
class ReadOnlyFiles {
 public:
  ReadOnlyFiles();
  ~ReadOnlyFiles();
  ReadOnlyFiles(const ReadOnlyFiles&) = delete;
  ReadOnlyFiles& operator=(const ReadOnlyFiles&) = delete;

  /// For sqlite3_open_v2.
  const char* name() const;

  /// What it had to refuse; empty if nothing.
  const std::string& refusal() const;

  struct System;

 private:
  std::unique_ptr<System> system_;
};

/// A URI of the file for SQLite's read-only use.
std::string readOnlyUri(const std::string& path);

/// A journal lies beside the file that may have to be played back.
bool hasRollbackJournal(const std::string& path);

}  // namespace recording
