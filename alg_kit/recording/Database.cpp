#include <alg_kit/recording/Database.h>

#include <sqlite3.h>

#include <limits>

namespace recording {

Database::Database(const std::string& path, Mode mode) : path_(path) {
  if (mode != Mode::kReadOnly) {
    open(SQLITE_OPEN_READWRITE | (mode == Mode::kCreate ? SQLITE_OPEN_CREATE : 0));
    return;
  }
  open(SQLITE_OPEN_READONLY);
  const int result =
      sqlite3_exec(handle_, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
  // What a killed writer left beside the file has to be worked in before anybody can read it.
  if ((result & 0xFF) != SQLITE_READONLY) return;
  sqlite3_close(handle_);
  open(SQLITE_OPEN_READWRITE);
}

void Database::open(int flags) {
  if (sqlite3_open_v2(path_.c_str(), &handle_, flags, nullptr) != SQLITE_OK) {
    const RecordingError error(
        path_, handle_ != nullptr ? sqlite3_errmsg(handle_) : "out of memory while opening");
    sqlite3_close(handle_);
    throw error;
  }
  // A reader and the recorder meet for moments only.
  setPatience(std::chrono::seconds(5));
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

void Database::setPatience(std::chrono::milliseconds patience) {
  sqlite3_busy_timeout(handle_, static_cast<int>(patience.count()));
}

void Database::fail() const {
  // SQLite quotes the file's own texts, which in a damaged file may be anything.
  std::string words = sqlite3_errmsg(handle_);
  for (char& c : words)
    if (c < ' ' || c > '~') c = '?';
  throw RecordingError(path_, words);
}

Statement::Statement(Database& database, const char* sql) : database_(database) {
  if (sqlite3_prepare_v2(database.handle(), sql, -1, &statement_, nullptr) != SQLITE_OK)
    database.fail();
}

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
  const int result = sqlite3_step(statement_);
  if (result != SQLITE_ROW && result != SQLITE_DONE) database_.fail();
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

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

int Statement::number(int column) const {
  const std::int64_t value = integer(column);
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    throw RecordingError(database_.path(), std::string(sqlite3_column_name(statement_, column)) +
                                               ": expected a number of 32 bits, found " +
                                               std::to_string(value));
  return static_cast<int>(value);
}

double Statement::real(int column) const {
  return sqlite3_column_double(statement_, column);
}

std::string_view Statement::text(int column) const {
  const auto* const bytes = sqlite3_column_blob(statement_, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
  return {static_cast<const char*>(bytes), bytes == nullptr ? 0 : size};
}

void Statement::blob(int column, session::Bytes& bytes) const {
  const auto* const begin =
      static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
  bytes.assign(begin, begin == nullptr ? begin : begin + size);
}

}  // namespace recording
