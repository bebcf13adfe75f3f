#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recording.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace recording {
namespace {

constexpr const char* kCallColumns =
    "SELECT id, parent, parent_step, kind, type, mode, offset, length, pointer_given, "
    "output_given, payload, returned, output, start_ns, duration_ns FROM calls ";
constexpr const char* kTruthColumns =
    "SELECT frame, call, time_ns, object, marker, x, y, z, in_left, in_right FROM truth ";

std::string callTitle(const session::Call& call) {
  return "call " + std::to_string(call.index) + " (" + session::nameOf(call.kind) + ")";
}

// Whoever reads a recording relies on these sizes: a file made by other hands must not lead the
// library, or us, past the end of a buffer.
void checkSizes(const std::string& path, const session::Call& call) {
  const auto require = [&](const char* field, std::size_t found, std::size_t expected) {
    if (found != expected)
      throw RecordingError(path, callTitle(call) + ": " + field + ": expected " +
                                     std::to_string(expected) + " bytes, found " +
                                     std::to_string(found));
  };
  if (!call.payload.empty()) require("payload", call.payload.size(), session::payloadSize(call, 0));
  const bool answered =
      call.kind == session::CallKind::kHandleEvent && call.returned == 1 && call.outputGiven;
  require("output", call.output.size(), answered ? session::answerSize(call.type) : 0);
}

void readCall(const std::string& path, const Statement& row, session::Call& call) {
  call.index = row.integer(0);
  call.parent = row.isNull(1) ? std::nullopt : std::optional(row.integer(1));
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
  call.pointerGiven = row.integer(8) != 0;
  call.outputGiven = row.integer(9) != 0;
  row.blob(10, call.payload);
  call.returned = row.isNull(11) ? std::nullopt : std::optional(row.number(11));
  row.blob(12, call.output);
  call.startNs = row.integer(13);
  call.durationNs = row.isNull(14) ? std::nullopt : std::optional(row.integer(14));
  if (call.parent && *call.parent >= call.index)
    throw RecordingError(path, callTitle(call) + ": parent: expected an earlier call, found call " +
                                   std::to_string(*call.parent));
  checkSizes(path, call);
}

void checkFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status))
    throw RecordingError(path, "expected a recording, found no such file");
  if (std::filesystem::is_directory(status))
    throw RecordingError(path, "expected a recording, found a directory");
  if (std::filesystem::is_regular_file(status) && std::filesystem::file_size(path, error) == 0)
    throw RecordingError(path, "expected a recording, found an empty file");
}

// SQLite says "file is not a database" or "malformed": say what was expected.
template <typename Action>
auto explained(const std::string& path, const std::string& expectation, Action action) {
  try {
    return action();
  } catch (const RecordingError& error) {
    const std::string what = error.what();
    throw RecordingError(path, expectation + ", found: " + what.substr(path.size() + 2));
  }
}

// SQLite takes the missing end of a last page for zeros. Only beside a journal may a page be
// unfinished: the journal has it too.
void checkSize(Database& database) {
  const std::string& path = database.path();
  std::error_code error;
  const auto journal = std::filesystem::file_size(path + "-wal", error);
  if (!error && journal > 0) return;
  const auto size = std::filesystem::file_size(path, error);
  const auto page = static_cast<std::uintmax_t>(database.integer("PRAGMA page_size"));
  if (!error && page > 0 && size % page != 0)
    throw RecordingError(path, "expected whole pages of " + std::to_string(page) +
                                   " bytes, found " + std::to_string(size) +
                                   " bytes: the file was cut");
}

void checkFormat(Database& database) {
  const std::string& path = database.path();
  const auto application = database.integer("PRAGMA application_id");
  const auto version = database.integer("PRAGMA user_version");
  if (application != kApplicationId)
    throw RecordingError(path, "expected a recording, found an SQLite file of another application");
  if (version > kFormatVersion)
    throw RecordingError(path, "expected a recording of format " + std::to_string(kFormatVersion) +
                                   " or older, found format " + std::to_string(version) +
                                   ", made by a newer program");
  if (version < 1)
    throw RecordingError(path, "expected a recording, found format " + std::to_string(version));
  for (const char* const query :
       {kCallColumns, kTruthColumns, "SELECT call, step, level, text, threw FROM logs",
        "SELECT call, step, block, threw FROM blocks", "SELECT key, value FROM meta"})
    explained(path, "expected a recording's tables", [&] { Statement check(database, query); });
}

Metadata readMetadata(Database& database) {
  Metadata metadata;
  Statement row(database, "SELECT key, value FROM meta ORDER BY key");
  while (row.step()) metadata.values.emplace(row.text(0), row.text(1));
  const auto value = [&](const char* key) {
    const auto found = metadata.values.find(key);
    return found == metadata.values.end() ? std::string() : found->second;
  };
  metadata.libraryVersion = value("library_version");
  metadata.platform = value("platform");
  metadata.clock = value("clock");
  metadata.complete = value("complete") == "1";
  metadata.droppedCalls =
      database.integer("SELECT CAST(value AS INTEGER) FROM meta WHERE key = 'dropped_calls'");
  return metadata;
}

std::vector<session::TruthRow> readTruth(const std::string& path, Statement& row) {
  std::vector<session::TruthRow> rows;
  while (row.step()) {
    session::TruthRow& truth = rows.emplace_back();
    truth.frame = row.integer(0);
    truth.call = row.isNull(1) ? std::nullopt : std::optional(row.integer(1));
    truth.timeNs = row.integer(2);
    truth.object = row.number(3);
    truth.marker = row.number(4);
    for (int i = 0; i < 3; ++i) {
      if (row.isNull(5 + i))
        throw RecordingError(path, "truth of frame " + std::to_string(truth.frame) +
                                       ": position: expected numbers, found none");
      truth.position[i] = row.real(5 + i);
    }
    truth.inLeft = row.integer(8) != 0;
    truth.inRight = row.integer(9) != 0;
  }
  return rows;
}

}  // namespace

struct EntryCursor::State {
  State(Database& database, std::int64_t firstIndex)
      : path(database.path()),
        calls(database, (std::string(kCallColumns) + "WHERE id >= ? ORDER BY id").c_str()),
        logs(database,
             "SELECT call, step, level, text, threw FROM logs WHERE call >= ? ORDER BY call, step"),
        blocks(database,
               "SELECT call, step, block, threw FROM blocks WHERE call >= ? ORDER BY call, step") {
    calls.bind(1, firstIndex);
    logs.bind(1, firstIndex);
    blocks.bind(1, firstIndex);
  }

  void takeLogs(session::Entry& entry) {
    for (; hasLog && logs.integer(0) <= entry.call.index; hasLog = logs.step())
      if (logs.integer(0) == entry.call.index)
        entry.logs.push_back(
            {logs.number(1), logs.number(2), std::string(logs.text(3)), logs.integer(4) != 0});
  }

  void takeBlocks(session::Entry& entry) {
    for (; hasBlock && blocks.integer(0) <= entry.call.index; hasBlock = blocks.step()) {
      if (blocks.integer(0) != entry.call.index) continue;
      session::DeliveredBlock& delivered = entry.blocks.emplace_back();
      delivered.step = blocks.number(1);
      const std::string_view bytes = blocks.text(2);
      if (bytes.size() != sizeof delivered.block)
        throw RecordingError(path, callTitle(entry.call) + ": block: expected " +
                                       std::to_string(sizeof delivered.block) + " bytes, found " +
                                       std::to_string(bytes.size()));
      std::memcpy(&delivered.block, bytes.data(), bytes.size());
      delivered.threw = blocks.integer(3) != 0;
    }
  }

  std::string path;
  Statement calls, logs, blocks;
  bool begun = false, hasLog = false, hasBlock = false;
  std::optional<std::int64_t> last;  // index of the latest call
};

EntryCursor::EntryCursor(Database& database, std::int64_t firstIndex)
    : state_(std::make_unique<State>(database, firstIndex)) {}
EntryCursor::~EntryCursor() = default;
EntryCursor::EntryCursor(EntryCursor&&) noexcept = default;

bool EntryCursor::next(session::Entry& entry) {
  entry.logs.clear();
  entry.blocks.clear();
  if (!state_->calls.step()) return false;
  if (!state_->begun) {
    // After the calls' first step, so that all three see the same moment of a growing file.
    state_->begun = true;
    state_->hasLog = state_->logs.step();
    state_->hasBlock = state_->blocks.step();
  }
  readCall(state_->path, state_->calls, entry.call);
  // SQLite trusts the order in which a damaged file holds its rows.
  if (state_->last && entry.call.index <= *state_->last)
    throw RecordingError(state_->path, callTitle(entry.call) + ": expected a call behind call " +
                                           std::to_string(*state_->last) + ": the file is damaged");
  state_->last = entry.call.index;
  state_->takeLogs(entry);
  state_->takeBlocks(entry);
  return true;
}

RecordingReader::RecordingReader(const std::string& path) : path_(path) {
  checkFile(path);
  database_ = std::make_unique<Database>(path, Database::Mode::kReadOnly);
  explained(path, "expected a recording",
            [&] { database_->integer("SELECT count(*) FROM sqlite_master"); });
  checkSize(*database_);
  checkFormat(*database_);
  metadata_ = readMetadata(*database_);
}

RecordingReader::~RecordingReader() = default;
RecordingReader::RecordingReader(RecordingReader&&) noexcept = default;

std::int64_t RecordingReader::callCount() const {
  return database_->integer("SELECT count(*) FROM calls");
}

std::int64_t RecordingReader::callCount(session::CallKind kind) const {
  Statement row(*database_, "SELECT count(*) FROM calls WHERE kind = ?");
  row.bindText(1, session::nameOf(kind));
  row.step();
  return row.integer(0);
}

EntryCursor RecordingReader::entries(std::int64_t firstIndex) const {
  return EntryCursor(*database_, firstIndex);
}

std::optional<session::Entry> RecordingReader::entry(std::int64_t index) const {
  session::Entry entry;
  if (!entries(index).next(entry) || entry.call.index != index) return std::nullopt;
  return entry;
}

std::optional<std::int64_t> RecordingReader::packetCall(std::int64_t n) const {
  if (n < 0) return std::nullopt;
  Statement row(*database_,
                "SELECT id FROM calls WHERE kind = 'InputStream' AND type IN (0, 2) "
                "ORDER BY id LIMIT 1 OFFSET ?");
  row.bind(1, n);
  if (!row.step()) return std::nullopt;
  return row.integer(0);
}

std::vector<Configuration> RecordingReader::configurations() const {
  std::vector<Configuration> configurations;
  Statement row(*database_,
                (std::string(kCallColumns) + "WHERE kind = 'Init' ORDER BY id").c_str());
  session::Call call;
  while (row.step()) {
    readCall(path_, row, call);
    Configuration& configuration = configurations.emplace_back();
    configuration.call = call.index;
    configuration.productType = call.type;
    if (call.payload.empty()) continue;
    std::memcpy(&configuration.calibration.emplace(), call.payload.data(), call.payload.size());
  }
  return configurations;
}

bool RecordingReader::hasTruth() const {
  return database_->integer("SELECT EXISTS (SELECT 1 FROM truth)") != 0;
}

std::vector<session::TruthRow> RecordingReader::truth() const {
  Statement row(*database_,
                (std::string(kTruthColumns) + "ORDER BY frame, object, marker").c_str());
  return readTruth(path_, row);
}

std::vector<session::TruthRow> RecordingReader::truthOf(std::int64_t call) const {
  Statement row(
      *database_,
      (std::string(kTruthColumns) + "WHERE call = ? ORDER BY frame, object, marker").c_str());
  row.bind(1, call);
  return readTruth(path_, row);
}

}  // namespace recording
