// A thin layer over SQLite: handles that close themselves, errors that name the file.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace recording {

class Database {
 public:
  enum class Mode { kReadOnly, kReadWrite, kCreate };

  /// @throws RecordingError
  Database(const std::string& path, Mode mode);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs statements that give no rows, or whose rows do not matter.
  void execute(const char* sql);

  /// The same where a failure does not matter. Returns whether it went well.
  bool tryExecute(const char* sql) noexcept;

  /// From here on closing neither works in nor removes the journal beside the file.
  void leaveJournal() noexcept;

  /// The first column of the first row.
  std::int64_t integer(const char* sql);

  /// How long to wait for another connection's lock.
  void setPatience(std::chrono::milliseconds patience);

  const std::string& path() const { return path_; }
  sqlite3* handle() const { return handle_; }

  /// @throws RecordingError with SQLite's own words for what went wrong last
  [[noreturn]] void fail() const;

 private:
  void open(int flags);

  std::string path_;
  sqlite3* handle_ = nullptr;
};

/// A prepared statement. Parameters and columns count from 1 and 0, as in SQLite.
class Statement {
 public:
  Statement(Database& database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void bind(int parameter, std::int64_t value);
  void bind(int parameter, double value);
  void bind(int parameter, const std::optional<std::int64_t>& value);
  void bindText(int parameter, std::string_view text);
  /// The bytes must live until `reset`. Null stands for SQL's NULL.
  void bindBlob(int parameter, const void* bytes, std::size_t size);

  /// True while there is a row.
  bool step();
  /// Runs to the end and makes the statement ready for the next use.
  void run();
  void reset();

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  /// A 32-bit value. @throws RecordingError if it is none
  int number(int column) const;
  double real(int column) const;
  std::string_view text(int column) const;  ///< until the next step
  void blob(int column, session::Bytes& bytes) const;

 private:
  Database& database_;
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace recording
