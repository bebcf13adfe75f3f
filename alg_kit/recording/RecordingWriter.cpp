#include <alg_kit/recording/RecordingWriter.h>

#include <alg_kit/recording/Checksum.h>
#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Schema.h>

#include <chrono>
#include <filesystem>
#include <vector>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/utsname.h>
#endif

namespace recording {
namespace {

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

void setFactIn(Database& database, const std::string& key, const std::string& value) {
  Statement statement(database, "INSERT OR REPLACE INTO meta VALUES (?, ?, ?)");
  statement.bindText(1, key);
  statement.bindText(2, value);
  statement.bind(3, std::int64_t{checksumOf(key, value)});
  statement.run();
}

void bindBytes(Statement& row, int parameter, const session::Bytes& bytes) {
  row.bindBlob(parameter, bytes.empty() ? nullptr : bytes.data(), bytes.size());
}

}  // namespace

void createTables(const std::string& path, const std::map<std::string, std::string>& facts) {
  Database database(path, Database::Mode::kCreate);
  database.execute("BEGIN");
  database.execute(schemaStatements().c_str());
  setFactIn(database, "library_version", ALG_FACTORY_VERSION);
  for (const auto& [key, value] : facts) setFactIn(database, key, value);
  setFactIn(database, "platform", platform());
  for (const char* const count : {"dropped_calls", "calls", "truth_rows"})
    setFactIn(database, count, "0");
  setFactIn(database, "last_call", "-1");
  setFactIn(database, "complete", "0");
  database.execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
  database.execute(("PRAGMA user_version = " + std::to_string(kFormatVersion)).c_str());
  database.execute("COMMIT");
  // Kept in the file; a kill at any later moment finds it this way.
  database.execute("PRAGMA journal_mode = WAL");
}

struct RecordingWriter::Statements {
  explicit Statements(Database& database)
      : call(database, "INSERT INTO calls VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
        log(database, "INSERT INTO logs VALUES (?,?,?,?,?)"),
        block(database, "INSERT INTO blocks VALUES (?,?,?,?)"),
        truth(database, "INSERT INTO truth VALUES (?,?,?,?,?,?,?,?,?,?,?)") {}
  Statement call, log, block, truth;
};

RecordingWriter::RecordingWriter(const std::string& path)
    : database_(std::make_unique<Database>(path, Database::Mode::kReadWrite)) {
  // Every commit reaches the disk, so that even a power cut costs the last moments only.
  database_->execute("PRAGMA synchronous = FULL");
  statements_ = std::make_unique<Statements>(*database_);
}

RecordingWriter::~RecordingWriter() = default;

void RecordingWriter::begin() {
  database_->execute("BEGIN");
}

void RecordingWriter::write(const session::Unit& unit) {
  for (std::size_t i = 0; i < unit.used; ++i) write(unit.entries[i]);
  for (const session::TruthRow& row : unit.truth) write(row);
}

void RecordingWriter::setFact(const std::string& key, const std::string& value) {
  setFactIn(*database_, key, value);
}

void RecordingWriter::commit(std::int64_t dropped) {
  counts_.dropped = dropped;
  const auto note = [&](const char* key, std::int64_t now, std::int64_t before) {
    if (now != before) setFact(key, std::to_string(now));
  };
  note("dropped_calls", counts_.dropped, committed_.dropped);
  note("calls", counts_.calls, committed_.calls);
  note("last_call", counts_.lastCall, committed_.lastCall);
  note("truth_rows", counts_.truthRows, committed_.truthRows);
  database_->execute("COMMIT");
  committed_ = counts_;
}

void RecordingWriter::rollback() noexcept {
  counts_ = committed_;
  for (Statement* const statement :
       {&statements_->call, &statements_->log, &statements_->block, &statements_->truth})
    statement->reset();
  // Fails harmlessly where SQLite has rolled back by itself, as it does on a full disk.
  database_->tryExecute("ROLLBACK");
}

void RecordingWriter::finish(std::int64_t dropped, bool complete) {
  setFact("dropped_calls", std::to_string(dropped));
  if (complete) setFact("complete", "1");
  statements_.reset();
  database_->setPatience(std::chrono::milliseconds(100));
  // Whoever reads keeps the journal; it belongs to the file and nothing is lost.
  database_->tryExecute("PRAGMA journal_mode = DELETE");
}

void RecordingWriter::abandon() noexcept {
  statements_.reset();
  database_->tryExecute("PRAGMA wal_checkpoint(FULL)");
  database_->leaveJournal();
}

std::int64_t RecordingWriter::bytes() {
  std::int64_t sum = 0;
  for (const char* const suffix : {"", "-wal"}) {
    std::error_code error;
    const auto size = std::filesystem::file_size(database_->path() + suffix, error);
    if (!error) sum += static_cast<std::int64_t>(size);
  }
  return sum;
}

void RecordingWriter::write(const session::Entry& entry) {
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
  row.bind(16, std::int64_t{checksumOf(entry)});
  row.run();
  ++counts_.calls;
  counts_.lastCall = call.index;

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

void RecordingWriter::write(const session::TruthRow& truth) {
  Statement& row = statements_->truth;
  row.bind(1, truth.frame);
  row.bind(2, truth.call);
  row.bind(3, truth.timeNs);
  row.bind(4, std::int64_t{truth.object});
  row.bind(5, std::int64_t{truth.marker});
  for (int i = 0; i < 3; ++i) row.bind(6 + i, truth.position[i]);
  row.bind(9, std::int64_t{truth.inLeft});
  row.bind(10, std::int64_t{truth.inRight});
  row.bind(11, std::int64_t{checksumOf(truth)});
  row.run();
  ++counts_.truthRows;
}

}  // namespace recording
