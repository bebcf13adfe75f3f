#include <alg_kit/recording/Checksum.h>
#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/Rows.h>
#include <alg_kit/recording/Schema.h>
#include <alg_kit/text/TextFile.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

namespace recording {
namespace {

void checkFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status))
    throw RecordingError(path, "expected a recording, found no such file");
  if (std::filesystem::is_directory(status))
    throw RecordingError(path, "expected a recording, found a directory");
  if (!std::filesystem::is_regular_file(status))
    throw RecordingError(path, "expected a recording, found something that is not a file");
  if (std::filesystem::file_size(path, error) == 0)
    throw RecordingError(path, "expected a recording, found an empty file");
}

/// What the latest commit of a recording of version 2 says of itself.
std::int64_t countNow(Database& database, const char* key) {
  Statement row(database, "SELECT key, value, checksum FROM meta WHERE key = ?");
  row.bindText(1, key);
  if (!row.step())
    throw RecordingError(database.path(),
                         std::string("meta: expected a fact ") + key + ", found none");
  const std::string value(row.text(1));
  if (row.integer(2) != checksumOf(key, value))
    refuseDamaged(database.path(), "meta " + text::quoted(key));
  return countIn(database.path(), key, value);
}

[[noreturn]] void refuseMissing(const std::string& path, const char* what, std::int64_t expected,
                                std::int64_t found) {
  throw RecordingError(path, std::string("expected ") + std::to_string(expected) + " " + what +
                                 ", found " + std::to_string(found) +
                                 ": the file is damaged; `algtrack repair` saves what is whole");
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
    throw RecordingError(path,
                         "expected whole pages of " + std::to_string(page) + " bytes, found " +
                             std::to_string(size) +
                             " bytes: the file was cut; `algtrack repair` saves what is whole");
}

int checkFormat(Database& database) {
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
  checkSchema(database, static_cast<int>(version));
  return static_cast<int>(version);
}

Metadata readMetadata(Database& database, int version) {
  Metadata metadata;
  metadata.formatVersion = version;
  Statement row(database, version >= 2 ? "SELECT key, value, checksum FROM meta ORDER BY key"
                                       : "SELECT key, value, 0 FROM meta ORDER BY key");
  while (row.step()) {
    const std::string_view key = row.text(0), value = row.text(1);
    if (version >= 2 && row.integer(2) != checksumOf(key, value))
      refuseDamaged(database.path(), "meta " + text::quoted(key));
    const bool isNew = metadata.values.emplace(key, value).second;
    if (!isNew || metadata.values.size() > kMostFacts)
      throw RecordingError(database.path(), "meta: expected at most " + std::to_string(kMostFacts) +
                                                " different facts, found others");
  }
  const auto value = [&](const char* key) {
    const auto found = metadata.values.find(key);
    if (version >= 2 && found == metadata.values.end() && std::string_view(key) != "clock")
      throw RecordingError(database.path(),
                           std::string("meta: expected a fact ") + key + ", found none");
    return found == metadata.values.end() ? std::string() : found->second;
  };
  metadata.libraryVersion = value("library_version");
  metadata.platform = value("platform");
  metadata.clock = value("clock");
  metadata.complete = value("complete") == "1";
  metadata.droppedCalls = countIn(database.path(), "dropped_calls", value("dropped_calls"));
  return metadata;
}

/// The rows that a cut or a lost journal takes first are the last ones.
void checkEnds(Database& database) {
  const std::int64_t expected = countNow(database, "last_call");
  Statement row(database, "SELECT id FROM calls ORDER BY id DESC LIMIT 1");
  const std::int64_t found = row.step() ? row.integer(0) : -1;
  if (found != expected)
    throw RecordingError(
        database.path(),
        "expected call " + std::to_string(expected) + " as the last one, found " +
            (found < 0 ? std::string("no call") : "call " + std::to_string(found)) +
            ": the file is damaged; `algtrack repair` saves what is whole");
}

/// While it lives, and for the statements that were begun in it until they end, a growing file
/// stands still.
class OneMoment {
 public:
  explicit OneMoment(Database& database) : database_(database) { database_.execute("BEGIN"); }
  ~OneMoment() {
    try {
      database_.execute("COMMIT");
    } catch (const RecordingError&) {
      // It held nothing but a view.
    }
  }
  OneMoment(const OneMoment&) = delete;
  OneMoment& operator=(const OneMoment&) = delete;

 private:
  Database& database_;
};

}  // namespace

struct EntryCursor::State {
  State(Database& given, int formatVersion, std::int64_t firstIndex)
      : database(given),
        path(database.path()),
        version(formatVersion),
        fromTheStart(firstIndex <= 0),
        calls(Statement::ofWholeRows(database, callColumns(version),
                                     "FROM calls WHERE id >= ?1 ORDER BY id")),
        logs(Statement::ofWholeRows(database, kLogColumns,
                                    "FROM logs WHERE call >= ?1 ORDER BY call, step")),
        blocks(Statement::ofWholeRows(database, kBlockColumns,
                                      "FROM blocks WHERE call >= ?1 ORDER BY call, step")) {
    // From the start means all rows, those that should not be there too.
    const std::int64_t first = fromTheStart ? std::numeric_limits<std::int64_t>::min() : firstIndex;
    for (Statement* const rows : {&calls, &logs, &blocks}) rows->bind(1, first);
  }

  /// Reads the next message or block; its place is behind the one before.
  template <typename Read>
  bool advance(Statement& row, std::optional<std::pair<std::int64_t, int>>& place,
               const char* table, Read take) const {
    return row.step([&] {
      const std::pair<std::int64_t, int> next(row.integer(0), row.number(1));
      if (place && next <= *place)
        throw RecordingError(path, std::string(table) + " of call " + std::to_string(next.first) +
                                       ": expected rows in order: the file is damaged");
      place = next;
      take();
    });
  }

  void advanceLogs() {
    hasLog = advance(logs, logPlace, "logs", [this] { log = readLog(logs); });
  }

  void advanceBlocks() {
    hasBlock = advance(blocks, blockPlace, "blocks", [this] { block = readBlock(path, blocks); });
  }

  void refuseOrphan(const session::Entry& entry, std::int64_t call, const char* table) const {
    // Without a checksum a row may belong to a call that is gone; with one, no call is gone.
    if (call >= entry.call.index || version < 2) return;
    throw RecordingError(path, std::string(table) + ": expected a call " + std::to_string(call) +
                                   ", found none: the file is damaged");
  }

  void refuseMore(const session::Entry& entry) const {
    if (entry.logs.size() + entry.blocks.size() < kMostCallbacksPerCall) return;
    throw RecordingError(path, callTitle(entry.call) + ": expected at most " +
                                   std::to_string(kMostCallbacksPerCall) +
                                   " messages and blocks, found more");
  }

  void takeLogs(session::Entry& entry) {
    for (; hasLog && logPlace->first <= entry.call.index; advanceLogs()) {
      refuseOrphan(entry, logPlace->first, "logs");
      if (logPlace->first != entry.call.index) continue;
      refuseMore(entry);
      entry.logs.push_back(std::move(log));
    }
  }

  void takeBlocks(session::Entry& entry) {
    for (; hasBlock && blockPlace->first <= entry.call.index; advanceBlocks()) {
      refuseOrphan(entry, blockPlace->first, "blocks");
      if (blockPlace->first != entry.call.index) continue;
      refuseMore(entry);
      entry.blocks.push_back(block);
    }
  }

  /// A stream may come without bytes only where the product type makes the library read none.
  void checkAgainstProduct(const session::Call& call) {
    if (call.kind == session::CallKind::kInit) productType = call.type;
    if (!call.payload.empty() || session::payloadSize(call, 0) == 0) return;
    if (!productType) {
      Statement before(database,
                       "SELECT type FROM calls WHERE kind = 'Init' AND id < ? ORDER BY id DESC");
      before.bind(1, call.index);
      productType = before.step() ? before.number(0) : 0;
    }
    const std::size_t expected = session::payloadSize(call, *productType);
    if (expected > 0)
      throw RecordingError(path, callTitle(call) + ": payload: expected " +
                                     std::to_string(expected) + " bytes, found none");
  }

  /// The end of the table: nothing may be missing.
  void finish() {
    if (hasLog || hasBlock)
      if (version >= 2)
        throw RecordingError(path,
                             "expected messages and blocks of calls, found some behind the "
                             "last call: the file is damaged");
    if (fromTheStart && expectedCalls && read != *expectedCalls)
      refuseMissing(path, "calls", *expectedCalls, read);
  }

  Database& database;
  std::string path;
  int version;
  bool fromTheStart;
  Statement calls, logs, blocks;
  bool begun = false, hasLog = false, hasBlock = false;
  session::LogLine log;           ///< the next one, at `logPlace`
  session::DeliveredBlock block;  ///< likewise
  std::optional<std::pair<std::int64_t, int>> logPlace, blockPlace;
  std::optional<std::int64_t> last;  // index of the latest call
  std::optional<int> productType;
  std::int64_t read = 0;
  std::optional<std::int64_t> expectedCalls;
};

EntryCursor::EntryCursor(Database& database, int version, std::int64_t firstIndex)
    : state_(std::make_unique<State>(database, version, firstIndex)) {}
EntryCursor::~EntryCursor() = default;
EntryCursor::EntryCursor(EntryCursor&&) noexcept = default;

const std::string& EntryCursor::path() const {
  return state_->path;
}

bool EntryCursor::next(session::Entry& entry) {
  State& state = *state_;
  entry.logs.clear();
  entry.blocks.clear();
  std::optional<OneMoment> moment;
  if (!state.begun) moment.emplace(state.database);
  std::int64_t checksum = 0;
  const bool found = state.calls.step([&] {
    readCall(state.path, state.calls, entry.call);
    checksum = state.calls.integer(kCallChecksum);
  });
  if (!state.begun) {
    state.begun = true;
    state.advanceLogs();
    state.advanceBlocks();
    if (found && state.version >= 2) state.expectedCalls = countNow(state.database, "calls");
  }
  if (!found) {
    state.finish();
    return false;
  }
  // SQLite trusts the order in which a damaged file holds its rows.
  if (state.last && entry.call.index <= *state.last)
    throw RecordingError(state.path, callTitle(entry.call) + ": expected a call behind call " +
                                         std::to_string(*state.last) + ": the file is damaged");
  state.last = entry.call.index;
  ++state.read;
  state.takeLogs(entry);
  state.takeBlocks(entry);
  if (state.version >= 2 && checksum != checksumOf(entry))
    refuseDamaged(state.path, callTitle(entry.call));
  state.checkAgainstProduct(entry.call);
  return true;
}

struct TruthCursor::State {
  /// @param call  whose truth it is; none = all
  State(Database& given, int formatVersion, bool isComplete,
        const std::optional<std::int64_t>& call)
      : database(given),
        version(formatVersion),
        complete(isComplete),
        all(!call),
        rows(all ? Statement::ofWholeRows(database, truthColumns(version),
                                          "FROM truth ORDER BY frame, object, marker")
                 : Statement(database, ("SELECT " + truthColumns(version) +
                                        " FROM truth WHERE call = ? ORDER BY frame, object, marker")
                                           .c_str())) {
    if (call) rows.bind(1, *call);
  }

  Database& database;
  int version;
  bool complete, all;
  Statement rows;
  std::optional<std::tuple<std::int64_t, int, int>> last;
  std::int64_t read = 0;
  std::optional<std::int64_t> expected;
};

TruthCursor::TruthCursor(Database& database, const Metadata& metadata)
    : state_(std::make_unique<State>(database, metadata.formatVersion, metadata.complete,
                                     std::nullopt)) {}
TruthCursor::TruthCursor(Database& database, const Metadata& metadata, std::int64_t call)
    : state_(std::make_unique<State>(database, metadata.formatVersion, metadata.complete, call)) {}
TruthCursor::~TruthCursor() = default;
TruthCursor::TruthCursor(TruthCursor&&) noexcept = default;

bool TruthCursor::next(session::TruthRow& row) {
  State& state = *state_;
  const std::string& path = state.database.path();
  const bool found = state.rows.step([&] { row = readTruthRow(path, state.version, state.rows); });
  // Counted after the first step, which holds one moment of a growing file.
  if (state.all && state.version >= 2 && !state.expected && (found || state.complete))
    state.expected = countNow(state.database, "truth_rows");
  if (!found) {
    if (state.expected && state.read != *state.expected)
      refuseMissing(path, "rows of truth", *state.expected, state.read);
    return false;
  }
  // SQLite trusts the order in which a damaged file holds its rows.
  const std::tuple<std::int64_t, int, int> place(row.frame, row.object, row.marker);
  if (state.last && place <= *state.last)
    throw RecordingError(path, "truth of frame " + std::to_string(row.frame) +
                                   ": expected rows in order: the file is damaged");
  state.last = place;
  ++state.read;
  return true;
}

namespace {

std::vector<session::TruthRow> allOf(TruthCursor cursor) {
  std::vector<session::TruthRow> rows;
  for (session::TruthRow row; cursor.next(row);) rows.push_back(row);
  return rows;
}

}  // namespace

RecordingReader::RecordingReader(const std::string& path) : path_(path) {
  checkFile(path);
  database_ = std::make_unique<Database>(path, Database::Mode::kReadOnly);
  explained(path, "expected a recording",
            [&] { database_->integer("SELECT count(*) FROM sqlite_master"); });
  checkSize(*database_);
  // One moment of a file that may be growing.
  database_->execute("BEGIN");
  const int version = checkFormat(*database_);
  metadata_ = readMetadata(*database_, version);
  metadata_.journalMissing = !metadata_.complete && database_->journalIsMissing();
  if (version >= 2) checkEnds(*database_);
  database_->execute("COMMIT");
}

RecordingReader::~RecordingReader() = default;
RecordingReader::RecordingReader(RecordingReader&&) noexcept = default;

std::int64_t RecordingReader::callCount() const {
  return metadata_.formatVersion >= 2 ? countNow(*database_, "calls")
                                      : database_->integer("SELECT count(*) FROM calls");
}

EntryCursor RecordingReader::entries(std::int64_t firstIndex) const {
  return EntryCursor(*database_, metadata_.formatVersion, firstIndex);
}

std::optional<session::Entry> RecordingReader::entry(std::int64_t index) const {
  session::Entry entry;
  if (!entries(index).next(entry) || entry.call.index != index) return std::nullopt;
  return entry;
}

// A call's kind has its checksum too, so these go through the calls one by one.

std::int64_t RecordingReader::callCount(session::CallKind kind) const {
  std::int64_t count = 0;
  EntryCursor cursor = entries();
  for (session::Entry entry; cursor.next(entry);) count += entry.call.kind == kind ? 1 : 0;
  return count;
}

std::optional<std::int64_t> RecordingReader::packetCall(std::int64_t n) const {
  if (n < 0) return std::nullopt;
  EntryCursor cursor = entries();
  for (session::Entry entry; cursor.next(entry);) {
    const session::Call& call = entry.call;
    const bool packet =
        call.kind == session::CallKind::kInputStream && (call.type == 0 || call.type == 2);
    if (packet && n-- == 0) return call.index;
  }
  return std::nullopt;
}

std::vector<Configuration> RecordingReader::configurations() const {
  constexpr std::size_t kMost = 100000;
  std::vector<Configuration> configurations;
  Statement row(*database_, "SELECT id FROM calls WHERE kind = 'Init' ORDER BY id");
  std::int64_t last = -1;
  while (row.step()) {
    const std::int64_t index = row.integer(0);
    const auto found = index > last ? entry(index) : std::nullopt;
    if (!found || configurations.size() == kMost)
      throw RecordingError(path_, "expected at most " + std::to_string(kMost) +
                                      " Init calls in order, found others: the file is damaged");
    last = index;
    const session::Call& call = found->call;
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
  return allOf(truthRows());
}

TruthCursor RecordingReader::truthRows() const {
  return TruthCursor(*database_, metadata_);
}

std::vector<session::TruthRow> RecordingReader::truthOf(std::int64_t call) const {
  return allOf(TruthCursor(*database_, metadata_, call));
}

}  // namespace recording
