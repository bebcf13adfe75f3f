// A thin layer over SQLite: handles that close themselves, errors that name the file.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;
struct sqlite3_value;

namespace recording {

class ReadOnlyFiles;

/// A connection. One thread at a time uses it, with its statements: SQLite takes no locks then.
class Database {
 public:
  enum class Mode {
    kReadOnly,  ///< a file from anybody: nothing on disk changes, and no schema or size is trusted
    kDamaged,   ///< the same for a file that SQLite would refuse as a whole
    kReadWrite,
    kCreate
  };

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

  /// A recording under way keeps its latest calls in a journal beside it. Only where it was
  /// finished, or its journal worked in, does the file say that there is none.
  bool journalIsMissing();

  /// How long to wait for another connection's lock.
  void setPatience(std::chrono::milliseconds patience);

  const std::string& path() const { return path_; }
  sqlite3* handle() const { return handle_; }

  /// Before each step of a statement: so much work it may do, linear in the size of the file.
  void allowWork() { workLeft_ = workAllowed_; }

  /// @throws RecordingError with SQLite's own words for what went wrong last
  [[noreturn]] void fail() const;

 private:
  void open(const std::string& name, int flags, const char* files);
  void distrust(Mode mode);

  std::string path_;
  std::unique_ptr<ReadOnlyFiles> files_;
  sqlite3* handle_ = nullptr;
  std::int64_t workAllowed_ = 0;
  std::int64_t workLeft_ = 0;
};

/// A prepared statement. Parameters and columns count from 1 and 0, as in SQLite. A value of
/// another type than the one asked for is an error, never converted.
class Statement {
 public:
  Statement(Database& database, const char* sql);

  /// For many rows: SQLite hands each row over whole, to the function that `step` is given. Looking
  /// the values up one by one takes longer than all else that is done with them.
  /// `columns` stand as after SELECT, "a, b, c"; `rest` is "FROM ..." with the parameter ?1 at
  /// most, in the order that the table has: no row is sorted.
  /// @throws RecordingError
  static Statement ofWholeRows(Database& database, const std::string& columns,
                               const std::string& rest);

  ~Statement();
  Statement(Statement&&) noexcept;
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
  /// The same; calls `read()` for the row. Of whole rows the values are there in `read` alone.
  template <typename Read>
  bool step(Read read) {
    if (row_) return stepWhole([](void* given) { (*static_cast<Read*>(given))(); }, &read);
    const bool found = step();
    if (found) read();
    return found;
  }
  /// Runs to the end and makes the statement ready for the next use.
  void run();
  void reset();

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  std::optional<std::int64_t> integerOrNull(int column) const;
  int number(int column) const;             ///< of 32 bits
  bool truthValue(int column) const;        ///< 0 or 1
  double real(int column) const;            ///< finite
  std::string_view text(int column) const;  ///< until the next step
  /// Empty for NULL.
  void blob(int column, session::Bytes& bytes) const;
  std::string_view bytes(int column) const;  ///< a blob's, until the next step

 private:
  struct WholeRow;

  bool stepWhole(void (*read)(void*), void* given);
  sqlite3_value* at(int column) const;
  /// The row's value, which SQLite looks up once for its type and its content.
  sqlite3_value* value(int column, int type, const char* expectation) const;
  /// Null for SQL's NULL.
  sqlite3_value* valueOrNull(int column, int type, const char* expectation) const;
  std::string nameOf(int column) const;
  [[noreturn]] void refuse(int column, int type, const char* expectation) const;

  Database& database_;
  sqlite3_stmt* statement_ = nullptr;
  std::unique_ptr<WholeRow> row_;  ///< null: values are looked up one by one
  friend class Database;
};

}  // namespace recording
