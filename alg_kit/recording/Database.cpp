#include <alg_kit/recording/Database.h>

#include <alg_kit/recording/ReadOnlyFiles.h>

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

namespace recording {

namespace {

constexpr int kLargestValue = 16 * 1024 * 1024;  // bytes; a recorder keeps none above it
constexpr int kWorkStep = 100000;  // of SQLite's machine, between two looks at the work

std::string_view bytesOf(sqlite3_value* value) {
  const auto* const bytes = static_cast<const char*>(sqlite3_value_blob(value));
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
  return {bytes, bytes == nullptr ? 0 : size};
}

constexpr const char* kRowType = "row";  // of the pointer that tells where a row goes

/// Why SQLite did not open a file. Where it may not, it does not say so.
std::string openingProblem(sqlite3* database, const std::string& path) {
  if (database == nullptr) return "out of memory while opening";
  const std::string problem = sqlite3_errmsg(database);
  if (std::ifstream(path, std::ios::binary) || errno != EACCES) return problem;
  return "expected a recording, found a file that cannot be opened: " +
         std::generic_category().message(EACCES);
}

}  // namespace

/// A row while SQLite's function `take_row` has it.
struct Statement::WholeRow {
  std::string columns;  ///< their names, "a, b, c"
  int count = 0;        ///< of the columns
  sqlite3_value** values = nullptr;
  void (*read)(void*) = nullptr;
  void* given = nullptr;
  int taken = 0;              ///< rows since the latest step
  std::exception_ptr thrown;  ///< by `read`: no exception goes through SQLite

  static void take(sqlite3_context* context, int count, sqlite3_value** values) {
    auto* const row = static_cast<WholeRow*>(sqlite3_value_pointer(values[0], kRowType));
    if (row == nullptr || count != row->count + 1)
      return sqlite3_result_error(context, "expected a whole row", -1);
    ++row->taken;
    row->values = values + 1;
    try {
      row->read(row->given);
    } catch (...) {
      row->thrown = std::current_exception();
    }
    row->values = nullptr;
  }
};

Database::Database(const std::string& path, Mode mode) : path_(path) {
  if (mode == Mode::kReadWrite || mode == Mode::kCreate) {
    open(path, SQLITE_OPEN_READWRITE | (mode == Mode::kCreate ? SQLITE_OPEN_CREATE : 0), nullptr);
    return;
  }
  files_ = std::make_unique<ReadOnlyFiles>();
  // SQLite plays a journal back only into a file that it believes it can write.
  const int access = hasRollbackJournal(path) ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
  open(readOnlyUri(path), access | SQLITE_OPEN_URI, files_->name());
  distrust(mode);
}

void Database::open(const std::string& name, int flags, const char* files) {
  if (sqlite3_open_v2(name.c_str(), &handle_, flags | SQLITE_OPEN_NOMUTEX, files) != SQLITE_OK) {
    const RecordingError error(path_, openingProblem(handle_, path_));
    sqlite3_close(handle_);
    throw error;
  }
  // A reader and the recorder meet for moments only.
  setPatience(std::chrono::seconds(5));
}

void Database::distrust(Mode mode) {
  for (const int option : {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW,
                           SQLITE_DBCONFIG_TRUSTED_SCHEMA, SQLITE_DBCONFIG_ENABLE_FKEY})
    sqlite3_db_config(handle_, option, 0, nullptr);
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_DEFENSIVE, mode == Mode::kReadOnly ? 1 : 0, nullptr);
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_limit(handle_, SQLITE_LIMIT_LENGTH, kLargestValue);
  sqlite3_limit(handle_, SQLITE_LIMIT_SQL_LENGTH, 10000);
  sqlite3_limit(handle_, SQLITE_LIMIT_COLUMN, 64);
  sqlite3_limit(handle_, SQLITE_LIMIT_EXPR_DEPTH, 50);
  sqlite3_limit(handle_, SQLITE_LIMIT_COMPOUND_SELECT, 4);
  sqlite3_limit(handle_, SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_limit(handle_, SQLITE_LIMIT_TRIGGER_DEPTH, 1);
  std::error_code error;
  const auto size = std::filesystem::file_size(path_, error);
  workAllowed_ = 50000000 + (error ? 0 : static_cast<std::int64_t>(size));
  allowWork();
  sqlite3_progress_handler(
      handle_, kWorkStep,
      [](void* database) {
        std::int64_t& left = static_cast<Database*>(database)->workLeft_;
        left -= kWorkStep;
        return left < 0 ? 1 : 0;
      },
      this);
  // Pragmas before the first look into the file do not read it.
  execute("PRAGMA temp_store = MEMORY");
  execute("PRAGMA mmap_size = 0");
  execute("PRAGMA cell_size_check = ON");
  sqlite3_create_function(handle_, "take_row", -1, SQLITE_UTF8 | SQLITE_DIRECTONLY, nullptr,
                          Statement::WholeRow::take, nullptr, nullptr);
  // SQLite opens a file that was cut only for those who could mend it.
  if (mode == Mode::kDamaged) execute("PRAGMA writable_schema = ON");
}

Database::~Database() {
  sqlite3_close(handle_);
}

void Database::execute(const char* sql) {
  if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

bool Database::tryExecute(const char* sql) noexcept {
  return sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void Database::leaveJournal() noexcept {
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

std::int64_t Database::integer(const char* sql) {
  Statement statement(*this, sql);
  return statement.step() ? statement.integer(0) : 0;
}

bool Database::journalIsMissing() {
  Statement mode(*this, "PRAGMA journal_mode");
  if (!mode.step() || mode.text(0) != "wal") return false;
  std::error_code error;
  const auto real = std::filesystem::canonical(path_, error);
  return !error && !std::filesystem::exists(real.string() + "-wal", error);
}

void Database::setPatience(std::chrono::milliseconds patience) {
  sqlite3_busy_timeout(handle_, static_cast<int>(patience.count()));
}

void Database::fail() const {
  if (files_ && !files_->refusal().empty()) throw RecordingError(path_, files_->refusal());
  if (sqlite3_errcode(handle_) == SQLITE_INTERRUPT)
    throw RecordingError(path_,
                         "expected tables that can be read in their order, found more work "
                         "than a file of this size can need: the file is damaged");
  // SQLite quotes the file's own texts, which in a damaged file may be anything.
  std::string words = sqlite3_errmsg(handle_);
  for (char& c : words)
    if (c < ' ' || c > '~') c = '?';
  if (files_ && (sqlite3_errcode(handle_) & 0xFF) == SQLITE_CORRUPT)
    words += ": the file is damaged or was cut; `algtrack repair` saves what is whole";
  throw RecordingError(path_, words);
}

Statement::Statement(Database& database, const char* sql) : database_(database) {
  if (sqlite3_prepare_v2(database.handle(), sql, -1, &statement_, nullptr) != SQLITE_OK)
    database.fail();
}

Statement Statement::ofWholeRows(Database& database, const std::string& columns,
                                 const std::string& rest) {
  Statement statement(database, ("SELECT take_row(?2, " + columns + ") " + rest).c_str());
  statement.row_ = std::make_unique<WholeRow>();
  WholeRow& row = *statement.row_;
  row.columns = columns;
  row.count = 1 + static_cast<int>(std::count(columns.begin(), columns.end(), ','));
  if (sqlite3_bind_pointer(statement.statement_, 2, &row, kRowType, nullptr) != SQLITE_OK)
    database.fail();
  return statement;
}

Statement::Statement(Statement&& other) noexcept
    : database_(other.database_),
      statement_(std::exchange(other.statement_, nullptr)),
      row_(std::move(other.row_)) {}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

void Statement::bind(int parameter, std::int64_t value) {
  if (sqlite3_bind_int64(statement_, parameter, value) != SQLITE_OK) database_.fail();
}

void Statement::bind(int parameter, double value) {
  if (sqlite3_bind_double(statement_, parameter, value) != SQLITE_OK) database_.fail();
}

void Statement::bind(int parameter, const std::optional<std::int64_t>& value) {
  if (value) return bind(parameter, *value);
  if (sqlite3_bind_null(statement_, parameter) != SQLITE_OK) database_.fail();
}

void Statement::bindText(int parameter, std::string_view text) {
  if (sqlite3_bind_text64(statement_, parameter, text.data(), text.size(), SQLITE_TRANSIENT,
                          SQLITE_UTF8) != SQLITE_OK)
    database_.fail();
}

void Statement::bindBlob(int parameter, const void* bytes, std::size_t size) {
  if (sqlite3_bind_blob64(statement_, parameter, bytes, size, SQLITE_STATIC) != SQLITE_OK)
    database_.fail();
}

bool Statement::step() {
  database_.allowWork();
  const int result = sqlite3_step(statement_);
  if (result != SQLITE_ROW && result != SQLITE_DONE) database_.fail();
  return result == SQLITE_ROW;
}

bool Statement::stepWhole(void (*read)(void*), void* given) {
  row_->read = read;
  row_->given = given;
  row_->taken = 0;
  const bool found = step();
  if (row_->thrown) std::rethrow_exception(std::exchange(row_->thrown, nullptr));
  if (row_->taken != (found ? 1 : 0))
    throw RecordingError(database_.path(), "expected a table's rows one by one, found " +
                                               std::to_string(row_->taken) + " at once");
  return found;
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() {
  sqlite3_reset(statement_);
}

inline sqlite3_value* Statement::at(int column) const {
  return row_ ? row_->values[column] : sqlite3_column_value(statement_, column);
}

bool Statement::isNull(int column) const {
  return sqlite3_value_type(at(column)) == SQLITE_NULL;
}

std::string Statement::nameOf(int column) const {
  if (!row_) return sqlite3_column_name(statement_, column);
  std::size_t from = 0;
  for (; column > 0; --column) from = row_->columns.find(',', from) + 2;
  return row_->columns.substr(from, row_->columns.find(',', from) - from);
}

void Statement::refuse(int column, int type, const char* expectation) const {
  static constexpr const char* kTypes[] = {"?",      "an integer", "a real number",
                                           "a text", "a blob",     "nothing"};
  throw RecordingError(database_.path(), nameOf(column) + ": expected " + expectation + ", found " +
                                             kTypes[type <= SQLITE_NULL ? type : 0]);
}

inline sqlite3_value* Statement::valueOrNull(int column, int type, const char* expectation) const {
  sqlite3_value* const value = at(column);
  const int found = sqlite3_value_type(value);
  if (found == type) return value;
  if (found == SQLITE_NULL) return nullptr;
  refuse(column, found, expectation);
}

inline sqlite3_value* Statement::value(int column, int type, const char* expectation) const {
  sqlite3_value* const value = valueOrNull(column, type, expectation);
  if (value == nullptr) refuse(column, SQLITE_NULL, expectation);
  return value;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_value_int64(value(column, SQLITE_INTEGER, "an integer"));
}

std::optional<std::int64_t> Statement::integerOrNull(int column) const {
  sqlite3_value* const value = valueOrNull(column, SQLITE_INTEGER, "an integer");
  if (value == nullptr) return std::nullopt;
  return sqlite3_value_int64(value);
}

int Statement::number(int column) const {
  const std::int64_t value = integer(column);
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    throw RecordingError(
        database_.path(),
        nameOf(column) + ": expected a number of 32 bits, found " + std::to_string(value));
  return static_cast<int>(value);
}

bool Statement::truthValue(int column) const {
  const std::int64_t value = integer(column);
  if (value != 0 && value != 1)
    throw RecordingError(database_.path(),
                         nameOf(column) + ": expected 0 or 1, found " + std::to_string(value));
  return value == 1;
}

double Statement::real(int column) const {
  const double value = sqlite3_value_double(this->value(column, SQLITE_FLOAT, "a number"));
  if (!std::isfinite(value))
    throw RecordingError(database_.path(),
                         nameOf(column) + ": expected a finite number, found none");
  return value;
}

std::string_view Statement::text(int column) const {
  sqlite3_value* const value = this->value(column, SQLITE_TEXT, "a text");
  const auto* const text = sqlite3_value_text(value);
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
  return {reinterpret_cast<const char*>(text), text == nullptr ? 0 : size};
}

std::string_view Statement::bytes(int column) const {
  return bytesOf(value(column, SQLITE_BLOB, "bytes"));
}

void Statement::blob(int column, session::Bytes& bytes) const {
  sqlite3_value* const value = valueOrNull(column, SQLITE_BLOB, "bytes");
  if (value == nullptr) return bytes.clear();
  const std::string_view found = bytesOf(value);
  const auto* const first = reinterpret_cast<const std::uint8_t*>(found.data());
  bytes.assign(first, first + found.size());
}

}  // namespace recording
