#include <alg_kit/recording/Repair.h>

#include <alg_kit/recording/Checksum.h>
#include <alg_kit/recording/RecordingFile.h>
#include <alg_kit/recording/RecordingWriter.h>
#include <alg_kit/recording/Rows.h>
#include <alg_kit/recording/Schema.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <vector>

namespace recording {
namespace {

constexpr std::int64_t kFarthest = std::numeric_limits<std::int64_t>::max() / 4;
constexpr int kRowsPerCommit = 2000;
constexpr std::size_t kMostStretches = 100;

/// The first key from `from` on at which `readable` is true, where a stretch of keys is not: steps
/// that double find the other side of the stretch, halving finds its end.
template <typename Readable>
std::optional<std::int64_t> nextReadable(std::int64_t from, Readable readable) {
  std::int64_t bad = from, step = 1;
  while (!readable(from + step)) {
    bad = from + step;
    if (from + step > kFarthest) return std::nullopt;
    step *= 2;
  }
  std::int64_t good = from + step;
  while (good - bad > 1) {
    const std::int64_t middle = bad + (good - bad) / 2;
    (readable(middle) ? good : bad) = middle;
  }
  return good;
}

class Source {
 public:
  explicit Source(const std::string& path) : database_(path, Database::Mode::kDamaged) {
    if (database_.integer("PRAGMA application_id") != kApplicationId)
      throw RecordingError(path, "expected a recording, found another file");
    version_ = static_cast<int>(database_.integer("PRAGMA user_version"));
    if (version_ < 1 || version_ > kFormatVersion)
      throw RecordingError(path, "expected a recording of format 1 to " +
                                     std::to_string(kFormatVersion) + ", found format " +
                                     std::to_string(version_));
    checkSchema(database_, version_);
    const auto select = [this](std::optional<Statement>& statement, const std::string& columns,
                               const char* rest) {
      statement.emplace(database_, ("SELECT " + columns + rest).c_str());
    };
    select(call_, callColumns(version_), " FROM calls WHERE id >= ? ORDER BY id LIMIT 1");
    select(logs_, kLogColumns, " FROM logs WHERE call = ? ORDER BY step");
    select(blocks_, kBlockColumns, " FROM blocks WHERE call = ? ORDER BY step");
    select(truth_, truthColumns(version_),
           " FROM truth WHERE (frame, object, marker) > (?, ?, ?) "
           "ORDER BY frame, object, marker LIMIT 1");
  }

  std::map<std::string, std::string> facts() {
    std::map<std::string, std::string> facts;
    try {
      Statement row(database_, version_ >= 2 ? "SELECT key, value, checksum FROM meta"
                                             : "SELECT key, value, 0 FROM meta");
      for (std::size_t count = 0; row.step() && count < kMostFacts; ++count) {
        const std::string key(row.text(0)), value(row.text(1));
        if (version_ < 2 || row.integer(2) == checksumOf(key, value)) facts[key] = value;
      }
    } catch (const RecordingError&) {
      // What was read before is all that there is.
    }
    return facts;
  }

  enum class Found { kRow, kDamagedRow, kUnreadable, kEnd };

  /// The first call from `index` on. Where only its content is damaged, `entry` has its index.
  Found call(std::int64_t index, session::Entry& entry) {
    entry.logs.clear();
    entry.blocks.clear();
    entry.call.index = -1;
    try {
      call_->reset();
      call_->bind(1, index);
      if (!call_->step()) return Found::kEnd;
      const std::int64_t found = call_->integer(0);
      if (found < index) return Found::kUnreadable;
      try {
        readCall(database_.path(), *call_, entry.call);
        rowsOf(*logs_, entry, [&](const Statement& row) { entry.logs.push_back(readLog(row)); });
        rowsOf(*blocks_, entry, [&](const Statement& row) {
          entry.blocks.push_back(readBlock(database_.path(), row));
        });
        if (version_ < 2 || call_->integer(kCallChecksum) == checksumOf(entry)) return Found::kRow;
      } catch (const RecordingError&) {
      }
      entry.call.index = found;
      return Found::kDamagedRow;
    } catch (const RecordingError&) {
      return Found::kUnreadable;
    }
  }

  /// The first row of truth behind the given one.
  Found truth(session::TruthRow& row) {
    try {
      truth_->reset();
      truth_->bind(1, row.frame);
      truth_->bind(2, std::int64_t{row.object});
      truth_->bind(3, std::int64_t{row.marker});
      if (!truth_->step()) return Found::kEnd;
      session::TruthRow place;
      place.frame = truth_->integer(0);
      place.object = truth_->number(3);
      place.marker = truth_->number(4);
      const auto key = [](const session::TruthRow& r) {
        return std::make_tuple(r.frame, r.object, r.marker);
      };
      if (key(place) <= key(row)) return Found::kUnreadable;
      try {
        row = readTruthRow(database_.path(), version_, *truth_);
        return Found::kRow;
      } catch (const RecordingError&) {
        row = place;
        return Found::kDamagedRow;
      }
    } catch (const RecordingError&) {
      return Found::kUnreadable;
    }
  }

  int version() const { return version_; }
  Database& database() { return database_; }

 private:
  template <typename Take>
  void rowsOf(Statement& rows, const session::Entry& entry, Take take) {
    rows.reset();
    rows.bind(1, entry.call.index);
    for (std::size_t count = 0; rows.step(); ++count) {
      if (count == kMostCallbacksPerCall)
        throw RecordingError(database_.path(), "more messages or blocks than a call can have");
      take(rows);
    }
  }

  Database database_;
  int version_ = 0;
  std::optional<Statement> call_, logs_, blocks_, truth_;
};

/// Writes in transactions of a bearable size.
class Target {
 public:
  Target(const std::string& path, bool overwrite, const std::function<void(std::int64_t)>& progress)
      : file_(path, overwrite, [&](const std::string& name) { createTables(name, {}); }),
        writer_(path),
        progress_(progress) {
    writer_.begin();
  }

  template <typename Row>
  void write(const Row& row) {
    writer_.write(row);
    ++rows_;
    if (progress_) progress_(rows_);
    if (rows_ % kRowsPerCommit != 0) return;
    writer_.commit(0);
    writer_.begin();
  }

  void finish(const std::map<std::string, std::string>& facts, std::int64_t dropped,
              bool complete) {
    for (const auto& [key, value] : facts) writer_.setFact(key, value);
    writer_.commit(dropped);
    writer_.finish(dropped, complete);
  }

 private:
  RecordingFile file_;
  RecordingWriter writer_;
  const std::function<void(std::int64_t)>& progress_;
  std::int64_t rows_ = 0;
};

/// The whole file's size as its header has it: SQLite keeps the number of pages there.
std::int64_t sizeByHeader(const std::string& path) {
  std::array<unsigned char, 100> header{};
  std::ifstream file(path, std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(header.data()), header.size())) return 0;
  const auto number = [&](std::size_t at, int bytes) {
    std::int64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = 256 * value + header[at + static_cast<std::size_t>(i)];
    return value;
  };
  if (number(24, 4) != number(92, 4)) return 0;  // the count is of another state
  const std::int64_t page = number(16, 2);
  return (page == 1 ? 65536 : page) * number(28, 4);
}

void note(std::vector<CallRange>& missing, std::int64_t first, std::int64_t last) {
  if (first <= last && missing.size() < kMostStretches) missing.push_back({first, last});
}

/// @param last  the last call that was written; -1 = not known
void saveCalls(Source& source, Target& target, Repair& result, std::int64_t last) {
  session::Entry entry;
  std::int64_t next = 0;  // behind the latest one saved
  for (std::int64_t index = 0;;) {
    const Source::Found found = source.call(index, entry);
    if (found == Source::Found::kEnd) break;
    if (found == Source::Found::kUnreadable) {
      ++result.lostCalls;
      const auto readable = nextReadable(index, [&](std::int64_t at) {
        return source.call(at, entry) != Source::Found::kUnreadable;
      });
      if (!readable) break;
      index = *readable;
      continue;
    }
    index = entry.call.index + 1;
    if (found == Source::Found::kRow) {
      target.write(entry);
      ++result.calls;
      note(result.missing, next, entry.call.index - 1);
      next = index;
    } else {
      ++result.lostCalls;
    }
  }
  note(result.missing, next, last);
}

void saveTruth(Source& source, Target& target, Repair& result) {
  session::TruthRow row;
  const auto behindFrame = [&row](std::int64_t frame) {
    row = session::TruthRow();
    row.frame = frame;
    row.object = row.marker = std::numeric_limits<int>::max();
  };
  behindFrame(-1);
  for (;;) {
    const std::int64_t frame = row.frame;
    const Source::Found found = source.truth(row);
    if (found == Source::Found::kEnd) return;
    if (found == Source::Found::kUnreadable) {
      ++result.lostTruthRows;
      const auto next = nextReadable(frame, [&](std::int64_t at) {
        behindFrame(at);
        return source.truth(row) != Source::Found::kUnreadable;
      });
      if (!next) return;
      behindFrame(*next);
    } else if (found == Source::Found::kRow) {
      target.write(row);
      ++result.truthRows;
    } else {
      ++result.lostTruthRows;
    }
  }
}

std::int64_t countAmong(const std::map<std::string, std::string>& facts, const std::string& key) {
  const auto found = facts.find(key);
  try {
    return found == facts.end() ? 0 : countIn("", key, found->second);
  } catch (const RecordingError&) {
    return 0;
  }
}

}  // namespace

Repair repair(const std::string& from, const std::string& to, bool overwrite,
              const std::function<void(std::int64_t)>& progress) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(from, error))
    throw RecordingError(from, "expected a recording to repair, found no file");
  if (std::filesystem::equivalent(from, to, error))
    throw RecordingError(to, "expected another file than the one to repair, found the same");
  Source source(from);
  std::map<std::string, std::string> facts = source.facts();
  const bool closed = facts["complete"] == "1";
  Repair result;
  result.droppedCalls = countAmong(facts, "dropped_calls");
  result.fileBytes = static_cast<std::int64_t>(std::filesystem::file_size(from, error));
  result.wholeBytes = sizeByHeader(from);
  result.journalMissing = !closed && source.database().journalIsMissing();
  const bool counted = source.version() >= 2 && facts.count("calls") != 0;
  const std::int64_t calls = countAmong(facts, "calls");
  const std::int64_t truthRows = countAmong(facts, "truth_rows");
  const std::int64_t last = counted ? countAmong(facts, "last_call") : -1;
  // These are the new file's own.
  for (const char* const own : {"complete", "dropped_calls", "calls", "last_call", "truth_rows"})
    facts.erase(own);
  facts["repaired_from"] = std::filesystem::path(from).filename().string();

  Target target(to, overwrite, progress);
  saveCalls(source, target, result, last);
  saveTruth(source, target, result);
  result.lossKnown = counted;
  if (counted) {
    result.lostCalls = std::max(calls - result.calls, result.lostCalls);
    result.lostTruthRows = std::max(truthRows - result.truthRows, result.lostTruthRows);
  }
  result.complete = closed && result.lostCalls == 0 && result.lostTruthRows == 0;
  target.finish(facts, result.droppedCalls + result.lostCalls, result.complete);
  return result;
}

}  // namespace recording
