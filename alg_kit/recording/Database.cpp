#include <alg_kit/recording/Database.h>

#include <alg_kit/recording/ReadOnlyFiles.h>

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>
#include <utility>
#include <vector>

namespace recording {

namespace {

constexpr int kLargestValue = 16 * 1024 * 1024;  // bytes; a recorder keeps none above it
constexpr int kWorkStep = 100000;  // of SQLite's machine, between two looks at the work

constexpr const char* kRowType = "row";  // of the pointer that tells where a row goes

template <typename Value>
void read(sqlite3_value* from, Value& to) {
  to.type = sqlite3_value_type(from);
  switch (to.type) {
    case SQLITE_INTEGER:
      to.integer = sqlite3_value_int64(from);
      break;
    case SQLITE_FLOAT:
      to.real = sqlite3_value_double(from);
      break;
    case SQLITE_TEXT:
    case SQLITE_BLOB: {
      const void* const bytes =
          to.type == SQLITE_TEXT ? sqlite3_value_text(from) : sqlite3_value_blob(from);
      const auto size = static_cast<std::size_t>(sqlite3_value_bytes(from));
      to.bytes = {static_cast<const char*>(bytes), bytes == nullptr ? 0 : size};
      break;
    }
    default:
      break;
  }
}

}  // namespace

/// A row as SQLite's function `take_row` gets it.
struct Statement::WholeRow {
  std::string columns;  ///< their names, "a, b, c"
  std::vector<Value> values;
  std::string bytes;  ///< of the texts and blobs, which SQLite keeps for the function alone
  int taken = 0;      ///< rows since the latest step

  void take(sqlite3_value** from) {
    ++taken;
    std::size_t size = 0;
    for (Value& value : values) {
      value.bytes = {};
      read(*from++, value);
      size += value.bytes.size();
    }
    if (bytes.size() < size) bytes.resize(size);
    std::size_t used = 0;
    for (Value& value : values) {
      if (value.bytes.empty()) continue;
      std::memcpy(bytes.data() + used, value.bytes.data(), value.bytes.size());
      value.bytes = {bytes.data() + used, value.bytes.size()};
      used += value.bytes.size();
    }
  }

  static void takeRow(sqlite3_context* context, int count, sqlite3_value** values) {
    auto* const row = static_cast<WholeRow*>(sqlite3_value_pointer(values[0], kRowType));
    if (row == nullptr || static_cast<std::size_t>(count) != row->values.size() + 1)
      return sqlite3_result_error(context, "expected a whole row", -1);
    try {
      row->take(values + 1);
    } catch (const std::bad_alloc&) {
      sqlite3_result_error_nomem(context);
    }
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
    const RecordingError error(
        path_, handle_ != nullptr ? sqlite3_errmsg(handle_) : "out of memory while opening");
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
                          Statement::WholeRow::takeRow, nullptr, nullptr);
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
  row.values.resize(1 + static_cast<std::size_t>(std::count(columns.begin(), columns.end(), ',')));
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
  if (row_) row_->taken = 0;
  const int result = sqlite3_step(statement_);
  if (result != SQLITE_ROW && result != SQLITE_DONE) database_.fail();
  if (row_ && result == SQLITE_ROW && row_->taken != 1)
    throw RecordingError(database_.path(), "expected a table's rows one by one, found " +
                                               std::to_string(row_->taken) + " at once");
  return result == SQLITE_ROW;
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() {
  sqlite3_reset(statement_);
}

inline const Statement::Value& Statement::at(int column) const {
  if (row_) return row_->values[static_cast<std::size_t>(column)];
  read(sqlite3_column_value(statement_, column), value_);
  return value_;
}

bool Statement::isNull(int column) const {
  return at(column).type == SQLITE_NULL;
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

inline const Statement::Value* Statement::valueOrNull(int column, int type,
                                                      const char* expectation) const {
  const Value& value = at(column);
  if (value.type == type) return &value;
  if (value.type == SQLITE_NULL) return nullptr;
  refuse(column, value.type, expectation);
}

inline const Statement::Value& Statement::value(int column, int type,
                                                const char* expectation) const {
  const Value* const value = valueOrNull(column, type, expectation);
  if (value == nullptr) refuse(column, SQLITE_NULL, expectation);
  return *value;
}

std::int64_t Statement::integer(int column) const {
  return value(column, SQLITE_INTEGER, "an integer").integer;
}

std::optional<std::int64_t> Statement::integerOrNull(int column) const {
  const Value* const value = valueOrNull(column, SQLITE_INTEGER, "an integer");
  if (value == nullptr) return std::nullopt;
  return value->integer;
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
  const double value = this->value(column, SQLITE_FLOAT, "a number").real;
  if (!std::isfinite(value))
    throw RecordingError(database_.path(),
                         nameOf(column) + ": expected a finite number, found none");
  return value;
}

std::string_view Statement::text(int column) const {
  return value(column, SQLITE_TEXT, "a text").bytes;
}

std::string_view Statement::bytes(int column) const {
  return value(column, SQLITE_BLOB, "bytes").bytes;
}

void Statement::blob(int column, session::Bytes& bytes) const {
  const Value* const value = valueOrNull(column, SQLITE_BLOB, "bytes");
  if (value == nullptr) return bytes.clear();
  const auto* const first = reinterpret_cast<const std::uint8_t*>(value->bytes.data());
  bytes.assign(first, first + value->bytes.size());
}

}  // namespace recording
