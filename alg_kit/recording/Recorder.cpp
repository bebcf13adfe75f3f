#include <alg_kit/recording/Recorder.h>

#include <alg_kit/recording/Database.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/utsname.h>
#endif

namespace recording {
namespace {

constexpr auto kCommitInterval = std::chrono::milliseconds(250);

constexpr const char* kSchema = R"(
CREATE TABLE meta (
  key TEXT PRIMARY KEY,
  value TEXT NOT NULL
) WITHOUT ROWID;
CREATE TABLE calls (
  id INTEGER PRIMARY KEY,
  parent INTEGER,
  parent_step INTEGER NOT NULL,
  kind TEXT NOT NULL,
  type INTEGER NOT NULL,
  mode INTEGER NOT NULL,
  offset INTEGER NOT NULL,
  length INTEGER NOT NULL,
  pointer_given INTEGER NOT NULL,
  output_given INTEGER NOT NULL,
  payload BLOB,
  returned INTEGER,
  output BLOB,
  start_ns INTEGER NOT NULL,
  duration_ns INTEGER
);
CREATE TABLE logs (
  call INTEGER NOT NULL,
  step INTEGER NOT NULL,
  level INTEGER NOT NULL,
  text TEXT NOT NULL,
  threw INTEGER NOT NULL,
  PRIMARY KEY (call, step)
) WITHOUT ROWID;
CREATE TABLE blocks (
  call INTEGER NOT NULL,
  step INTEGER NOT NULL,
  block BLOB NOT NULL,
  threw INTEGER NOT NULL,
  PRIMARY KEY (call, step)
) WITHOUT ROWID;
CREATE TABLE truth (
  frame INTEGER NOT NULL,
  call INTEGER,
  time_ns INTEGER NOT NULL,
  object INTEGER NOT NULL,
  marker INTEGER NOT NULL,
  x REAL NOT NULL,
  y REAL NOT NULL,
  z REAL NOT NULL,
  in_left INTEGER NOT NULL,
  in_right INTEGER NOT NULL,
  PRIMARY KEY (frame, object, marker)
) WITHOUT ROWID;
CREATE INDEX truth_call ON truth (call);
CREATE VIEW configurations AS
  SELECT id AS call, type AS product_type, payload AS calibration
  FROM calls WHERE kind = 'Init';
)";

std::string platform() {
  std::string text;
#if defined(__unix__) || defined(__APPLE__)
  utsname names{};
  if (uname(&names) == 0) text = std::string(names.sysname) + " " + names.machine;
#elif defined(_WIN32)
  text = "Windows";
#endif
#if defined(__clang__)
  text += ", clang " __clang_version__;
#elif defined(__GNUC__)
  text += ", gcc " __VERSION__;
#elif defined(_MSC_VER)
  text += ", msvc " + std::to_string(_MSC_VER);
#endif
  return text;
}

void setFact(Database& database, const std::string& key, const std::string& value) {
  Statement statement(database, "INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)");
  statement.bindText(1, key);
  statement.bindText(2, value);
  statement.run();
}

// A file that exists under its name has all its tables: it is made beside it and renamed.
void createFile(const std::string& path, const RecorderOptions& options) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::is_directory(path, error))
    throw RecordingError(path, "expected a file to record to, found a directory");
  if (fs::exists(path, error) && !options.overwrite)
    throw RecordingError(path, "expected no file of this name, found one");

  const std::string unfinished = path + ".creating";
  const auto removeAll = [&](const std::string& name) {
    for (const char* const suffix : {"", "-wal", "-shm", "-journal"})
      fs::remove(name + suffix, error);
  };
  removeAll(unfinished);
  try {
    Database database(unfinished, Database::Mode::kCreate);
    database.execute("BEGIN");
    database.execute(kSchema);
    setFact(database, "library_version", ALG_FACTORY_VERSION);
    for (const auto& [key, value] : options.facts) setFact(database, key, value);
    setFact(database, "platform", platform());
    setFact(database, "dropped_calls", "0");
    setFact(database, "complete", "0");
    database.execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
    database.execute(("PRAGMA user_version = " + std::to_string(kFormatVersion)).c_str());
    database.execute("COMMIT");
    // Kept in the file; a kill at any later moment finds it this way.
    database.execute("PRAGMA journal_mode = WAL");
  } catch (const RecordingError& problem) {
    removeAll(unfinished);
    throw RecordingError(path, "expected to create a recording, found:" +
                                   std::string(problem.what()).substr(unfinished.size() + 1));
  }
  removeAll(path);  // what an earlier recorder left there would be taken for ours
  fs::rename(unfinished, path, error);
  if (error) {
    removeAll(unfinished);
    throw RecordingError(path, "expected to create a recording, found: " + error.message());
  }
}

}  // namespace

/// The database side, used by the writer thread only.
class Recorder::Writer {
 public:
  explicit Writer(const std::string& path) : database_(path, Database::Mode::kReadWrite) {
    // Every commit reaches the disk, so that even a power cut costs the last moments only.
    database_.execute("PRAGMA synchronous = FULL");
    statements_ = std::make_unique<Statements>(database_);
  }

  void begin() { database_.execute("BEGIN"); }

  void write(const session::Unit& unit) {
    for (std::size_t i = 0; i < unit.used; ++i) write(unit.entries[i]);
    for (const session::TruthRow& row : unit.truth) write(row);
  }

  void commit(std::int64_t dropped) {
    if (dropped != droppedWritten_) setFact(database_, "dropped_calls", std::to_string(dropped));
    database_.execute("COMMIT");
    droppedWritten_ = dropped;
  }

  void rollback() {
    for (Statement* const statement : statements_->all()) statement->reset();
    // Fails harmlessly where SQLite has rolled back by itself, as it does on a full disk.
    try {
      database_.execute("ROLLBACK");
    } catch (const RecordingError&) {
    }
  }

  /// Complete, and if nobody is reading, one file without a journal beside it.
  void finish(std::int64_t dropped) {
    setFact(database_, "dropped_calls", std::to_string(dropped));
    setFact(database_, "complete", "1");
    statements_.reset();
    database_.setPatience(std::chrono::milliseconds(100));
    try {
      database_.execute("PRAGMA journal_mode = DELETE");
    } catch (const RecordingError&) {
      // Whoever reads keeps the journal; it belongs to the file and nothing is lost.
    }
  }

 private:
  struct Statements {
    explicit Statements(Database& database)
        : call(database, "INSERT INTO calls VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
          log(database, "INSERT INTO logs VALUES (?,?,?,?,?)"),
          block(database, "INSERT INTO blocks VALUES (?,?,?,?)"),
          truth(database, "INSERT INTO truth VALUES (?,?,?,?,?,?,?,?,?,?)") {}
    std::vector<Statement*> all() { return {&call, &log, &block, &truth}; }
    Statement call, log, block, truth;
  };

  static void bindBytes(Statement& row, int parameter, const session::Bytes& bytes) {
    row.bindBlob(parameter, bytes.empty() ? nullptr : bytes.data(), bytes.size());
  }

  void write(const session::Entry& entry) {
    const session::Call& call = entry.call;
    Statement& row = statements_->call;
    row.bind(1, call.index);
    row.bind(2, call.parent);
    row.bind(3, std::int64_t{call.parentStep});
    row.bindText(4, session::nameOf(call.kind));
    row.bind(5, std::int64_t{call.type});
    row.bind(6, std::int64_t{call.mode});
    row.bind(7, std::int64_t{call.offset});
    row.bind(8, std::int64_t{call.length});
    row.bind(9, std::int64_t{call.pointerGiven});
    row.bind(10, std::int64_t{call.outputGiven});
    bindBytes(row, 11, call.payload);
    row.bind(12, call.returned ? std::optional<std::int64_t>(*call.returned) : std::nullopt);
    bindBytes(row, 13, call.output);
    row.bind(14, call.startNs);
    row.bind(15, call.durationNs);
    row.run();

    for (const session::LogLine& log : entry.logs) {
      Statement& line = statements_->log;
      line.bind(1, call.index);
      line.bind(2, std::int64_t{log.step});
      line.bind(3, std::int64_t{log.level});
      line.bindText(4, log.text);
      line.bind(5, std::int64_t{log.threw});
      line.run();
    }
    for (const session::DeliveredBlock& delivered : entry.blocks) {
      Statement& block = statements_->block;
      block.bind(1, call.index);
      block.bind(2, std::int64_t{delivered.step});
      block.bindBlob(3, &delivered.block, sizeof delivered.block);
      block.bind(4, std::int64_t{delivered.threw});
      block.run();
    }
  }

  void write(const session::TruthRow& truth) {
    Statement& row = statements_->truth;
    row.bind(1, truth.frame);
    row.bind(2, truth.call);
    row.bind(3, truth.timeNs);
    row.bind(4, std::int64_t{truth.object});
    row.bind(5, std::int64_t{truth.marker});
    for (int i = 0; i < 3; ++i) row.bind(6 + i, truth.position[i]);
    row.bind(9, std::int64_t{truth.inLeft});
    row.bind(10, std::int64_t{truth.inRight});
    row.run();
  }

  Database database_;
  std::unique_ptr<Statements> statements_;
  std::int64_t droppedWritten_ = 0;
};

Recorder::Recorder(const std::string& path, const RecorderOptions& options)
    : waiting_(std::max<std::size_t>(options.queueCapacity, 2)),
      spent_(waiting_.capacity()),
      waitWhenFull_(options.waitWhenFull) {
  createFile(path, options);
  writer_ = std::make_unique<Writer>(path);
  thread_ = std::thread([this] { run(); });
}

Recorder::~Recorder() {
  close();
}

bool Recorder::Ring::put(session::Unit& unit) {
  const std::size_t head = head_.load(std::memory_order_relaxed);
  if (head - tail_.load(std::memory_order_acquire) == units_.size()) return false;
  units_[head % units_.size()] = std::move(unit);
  head_.store(head + 1, std::memory_order_release);
  return true;
}

bool Recorder::Ring::take(session::Unit& unit) {
  const std::size_t tail = tail_.load(std::memory_order_relaxed);
  if (tail == head_.load(std::memory_order_acquire)) return false;
  unit = std::move(units_[tail % units_.size()]);
  tail_.store(tail + 1, std::memory_order_release);
  return true;
}

std::size_t Recorder::Ring::size() const {
  const std::size_t tail = tail_.load(std::memory_order_acquire);
  return head_.load(std::memory_order_acquire) - tail;
}

void Recorder::append(session::Unit& unit) {
  while (!waiting_.put(unit)) {
    if (!waitWhenFull_) {
      droppedByQueue_ += static_cast<std::int64_t>(unit.used);
      return;
    }
    wake_.notify_one();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (!spent_.take(unit)) unit = session::Unit();
  // The writer looks by itself several times a second; only a queue that fills up wakes it.
  if (waiting_.size() == waiting_.capacity() / 2) wake_.notify_one();
}

void Recorder::take(const session::Unit& unit) noexcept {
  try {
    session::copy(unit, copy_);
    append(copy_);
  } catch (const std::bad_alloc&) {
    miss(static_cast<std::int64_t>(unit.used));
  }
}

void Recorder::miss(std::int64_t calls) noexcept {
  droppedByQueue_ += calls;
}

void Recorder::end() noexcept {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
}

void Recorder::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_) {
    wake_.wait_for(lock, kCommitInterval);
    lock.unlock();
    drain();
    lock.lock();
  }
  lock.unlock();
  drain();
  try {
    writer_->finish(droppedByQueue_ + droppedByDisk_);
  } catch (const RecordingError& problem) {
    lock.lock();
    error_ = problem.what();
  }
  writer_.reset();
}

void Recorder::drain() {
  const std::int64_t dropped = droppedByQueue_ + droppedByDisk_;
  if (waiting_.size() == 0 && dropped == 0) return;
  std::int64_t calls = 0;
  bool failed = false;
  std::string error;
  const auto attempt = [&](auto action) {
    if (failed) return;
    try {
      action();
    } catch (const RecordingError& problem) {
      failed = true;
      error = problem.what();
    }
  };

  attempt([&] { writer_->begin(); });
  session::Unit unit;
  for (std::size_t left = waiting_.size(); left > 0 && waiting_.take(unit); --left) {
    calls += static_cast<std::int64_t>(unit.used);
    attempt([&] { writer_->write(unit); });
    unit.used = 0;
    unit.truth.clear();
    spent_.put(unit);
  }
  attempt([&] { writer_->commit(dropped); });
  if (!failed) {
    written_ += calls;
    return;
  }
  writer_->rollback();
  droppedByDisk_ += calls;
  const std::lock_guard<std::mutex> guard(mutex_);
  error_ = error;
}

RecorderStatus Recorder::close() {
  end();
  if (thread_.joinable()) thread_.join();
  return status();
}

RecorderStatus Recorder::status() const {
  RecorderStatus status;
  status.written = written_;
  status.dropped = droppedByQueue_ + droppedByDisk_;
  const std::lock_guard<std::mutex> guard(mutex_);
  status.error = error_;
  return status;
}

}  // namespace recording
