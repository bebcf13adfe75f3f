// Files from strangers: reading changes nothing on disk, and every answer is right or refused.
#include <alg_kit/recording/Checksum.h>
#include <alg_kit/recording/Crc32.h>
#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recorder.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/recording/Repair.h>
#include <alg_kit/recording/UnitCursor.h>
#include <tests/support/ScratchFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using recording::Database;
using recording::Recorder;
using recording::RecordingError;
using recording::RecordingReader;
using session::CallKind;
using session::Entry;
using session::Unit;
using testing::HasSubstr;

std::string bytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class HostileFileTest : public testing::Test {
 protected:
  static Unit packet(std::int64_t index) {
    Unit unit;
    unit.entries.resize(1);
    unit.used = 1;
    Entry& entry = unit.entries[0];
    entry.call.index = index;
    entry.call.kind = CallKind::kInputStream;
    entry.call.length = 40;
    entry.call.pointerGiven = true;
    entry.call.payload.assign(40, static_cast<std::uint8_t>(index));
    entry.call.returned = 1;
    entry.call.startNs = 1000 * index;
    entry.call.durationNs = 500;
    entry.logs.push_back({0, 3, "alg: message\n", false});
    entry.blocks.emplace_back().step = 1;
    unit.truth.push_back({index, index, 1000 * index, 0, 0, {1, 2, 3}, true, true});
    return unit;
  }

  void record(int calls) {
    Recorder recorder(path_);
    for (int i = 0; i < calls; ++i) {
      Unit unit = packet(i);
      recorder.append(unit);
    }
    ASSERT_EQ(recorder.close().error, "");
  }

  /// What a program of before wrote: no checksums, no counts.
  void makeVersion1() {
    change(
        "DROP VIEW configurations; DROP INDEX truth_call;"
        "ALTER TABLE calls DROP COLUMN checksum; ALTER TABLE meta DROP COLUMN checksum;"
        "ALTER TABLE truth DROP COLUMN checksum;"
        "DELETE FROM meta WHERE key IN ('calls', 'last_call', 'truth_rows');"
        "CREATE INDEX truth_call ON truth (call);"
        "CREATE VIEW configurations AS SELECT id AS call, type AS product_type, payload AS "
        "calibration FROM calls WHERE kind = 'Init'; PRAGMA user_version = 1");
  }

  void change(const std::string& sql) {
    Database(path_, Database::Mode::kReadWrite).execute(sql.c_str());
  }

  void copyTo(const std::string& name, std::initializer_list<const char*> suffixes) {
    for (const char* const suffix : suffixes)
      std::filesystem::copy_file(path_ + suffix, folder_.path(name) + suffix);
  }

  /// Reads all there is; what is wrong, in one line, or "no problem".
  std::string problemOf(const std::string& path) {
    try {
      const RecordingReader reader(path);
      calls_ = 0;
      auto cursor = reader.entries();
      for (Entry entry; cursor.next(entry);) ++calls_;
      reader.truth();
      reader.configurations();
    } catch (const RecordingError& error) {
      EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << error.what();
      return error.what();
    }
    return "no problem";
  }

  std::map<std::string, std::string> folderNow() const {
    std::map<std::string, std::string> files;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path("")))
      files[file.path().filename().string()] = bytesOf(file.path());
    return files;
  }

  ScratchFolder folder_;
  std::string path_ = folder_.path("r.algrec");
  int calls_ = 0;
};

TEST_F(HostileFileTest, ReadingAKilledRecordingChangesNothingOnDisk) {
  {
    Recorder recorder(path_);
    for (int i = 0; i < 50; ++i) {
      Unit unit = packet(i);
      recorder.append(unit);
    }
    while (recorder.status().written < 50)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    copyTo("all", {"", "-wal", "-shm"});
    copyTo("no_index", {"", "-wal"});
    copyTo("alone", {""});
    // Killed when the journal had its header and no frame.
    copyTo("header", {"", "-wal", "-shm"});
    std::filesystem::resize_file(folder_.path("header-wal"), 32);
  }
  const auto before = folderNow();
  EXPECT_EQ(problemOf(folder_.path("header")), "no problem");
  EXPECT_LT(calls_, 50);
  EXPECT_FALSE(RecordingReader(folder_.path("header")).metadata().journalMissing);
  EXPECT_EQ(problemOf(folder_.path("all")), "no problem");
  EXPECT_EQ(calls_, 50);
  EXPECT_EQ(problemOf(folder_.path("no_index")), "no problem");
  EXPECT_EQ(calls_, 50);
  EXPECT_FALSE(RecordingReader(folder_.path("no_index")).metadata().journalMissing);
  // Without its journal it is a shorter recording, and says so.
  EXPECT_EQ(problemOf(folder_.path("alone")), "no problem");
  EXPECT_LT(calls_, 50);
  EXPECT_TRUE(RecordingReader(folder_.path("alone")).metadata().journalMissing);
  EXPECT_EQ(folderNow(), before);
}

/// A file in the middle of a change, with the journal that takes the change back.
class JournalTest : public HostileFileTest {
 protected:
  void SetUp() override {
    record(200);
    Database writer(path_, Database::Mode::kReadWrite);
    writer.execute("PRAGMA cache_size = 1; BEGIN; UPDATE calls SET start_ns = 7;");
    copyTo("hot", {"", "-journal"});
    writer.execute("ROLLBACK");
  }
  std::string hot_ = folder_.path("hot");
};

TEST_F(JournalTest, IsPlayedBackWithoutAChangeOnDisk) {
  const auto before = folderNow();
  EXPECT_EQ(problemOf(hot_), "no problem");
  EXPECT_EQ(calls_, 200);
  EXPECT_EQ(folderNow(), before);
}

TEST_F(JournalTest, IsRefusedWhereItNamesAnotherFile) {
  // As SQLite ends the journal of a change over several files: its name, length, sum and a mark.
  const std::string precious = folder_.write("precious", "");
  std::string tail("\0\0\0\1", 4);
  tail += precious;
  std::uint32_t sum = 0;
  for (const char c : precious) sum += static_cast<std::uint32_t>(c);
  for (const auto number : {static_cast<std::uint32_t>(precious.size()), sum})
    for (int shift = 24; shift >= 0; shift -= 8) tail += static_cast<char>(number >> shift);
  tail += "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
  std::ofstream(hot_ + "-journal", std::ios::binary | std::ios::app) << tail;
  const auto before = folderNow();
  EXPECT_THAT(problemOf(hot_), HasSubstr("hot: expected a recording, found: expected a journal of "
                                         "this recording, found one that names another file"));
  EXPECT_EQ(folderNow(), before);
}

TEST_F(HostileFileTest, RefusesASchemaThatIsNotARecordings) {
  const std::pair<const char*, const char*> changes[] = {
      {"CREATE TABLE more (x)", "found the 'table' 'more'"},
      {"CREATE TRIGGER t AFTER INSERT ON logs BEGIN DELETE FROM meta; END",
       "found the 'trigger' 't'"},
      {"CREATE INDEX i ON calls (kind)", "found the 'index' 'i'"},
      {"DROP TABLE calls; CREATE VIEW calls AS WITH RECURSIVE n(id) AS (SELECT 0 UNION ALL SELECT "
       "id + 1 FROM n) SELECT id FROM n",
       "found the 'view' 'calls'"},
      {"DROP VIEW configurations; CREATE VIEW configurations AS SELECT zeroblob(1000000000)",
       "expected the table configurations of a recording, found another one"},
      {"DROP TABLE logs; CREATE TABLE logs (call, step, level, text, threw)",
       "expected the table logs of a recording, found another one"},
      {"DROP TABLE truth", "no such table: truth"},
  };
  for (const auto& [sql, problem] : changes) {
    std::filesystem::remove(path_);
    record(3);
    ASSERT_EQ(problemOf(path_), "no problem");
    change(sql);
    EXPECT_THAT(problemOf(path_), HasSubstr(problem)) << sql;
  }
}

// Without checksums, as a recording of version 1 is, every value is still checked for its type.
TEST_F(HostileFileTest, RefusesValuesOfTheWrongTypeOrRange) {
  const std::pair<const char*, const char*> changes[] = {
      {"UPDATE truth SET x = 'abc'", "x: expected a number, found a text"},
      {"UPDATE truth SET y = 9e999", "y: expected a finite number"},
      {"UPDATE calls SET duration_ns = 'NaN'", "duration_ns: expected an integer, found a text"},
      {"UPDATE calls SET duration_ns = -1", "duration_ns: expected at most 146 years, found -1 ns"},
      {"UPDATE calls SET start_ns = 'yesterday'", "start_ns: expected an integer, found a text"},
      {"UPDATE calls SET start_ns = -9223372036854775807", "start_ns: expected at most 146 years"},
      {"UPDATE truth SET time_ns = 9223372036854775807", "time_ns: expected at most 146 years"},
      {"UPDATE calls SET pointer_given = 2", "pointer_given: expected 0 or 1, found 2"},
      {"UPDATE calls SET payload = 'text'", "payload: expected bytes, found a text"},
      {"UPDATE calls SET id = -5 WHERE id = 1", "id: expected a number from 0"},
      {"UPDATE logs SET text = x'00'", "text: expected a text, found a blob"},
      {"UPDATE meta SET value = '-7' WHERE key = 'dropped_calls'", "expected a count, found '-7'"},
      {"UPDATE meta SET value = 7 || 'x' WHERE key = 'dropped_calls'", "found '7x'"},
      {"UPDATE calls SET payload = NULL, length = 60000000",
       "payload: expected 60000000 bytes, found none"},
      {"UPDATE calls SET kind = 'Init', payload = NULL", "payload: expected 920 bytes, found 0"},
  };
  for (const auto& [sql, problem] : changes) {
    std::filesystem::remove(path_);
    record(3);
    makeVersion1();
    ASSERT_EQ(problemOf(path_), "no problem");
    ASSERT_EQ(RecordingReader(path_).metadata().formatVersion, 1);
    change(sql);
    EXPECT_THAT(problemOf(path_), HasSubstr(problem)) << sql;
  }
}

TEST_F(HostileFileTest, MissesEveryRowThatIsMissing) {
  const std::pair<const char*, const char*> changes[] = {
      {"DELETE FROM calls WHERE id = 9", "expected call 9 as the last one, found call 8"},
      {"DELETE FROM calls", "expected call 9 as the last one, found no call"},
      {"DELETE FROM calls WHERE id = 4; DELETE FROM logs WHERE call = 4;"
       "DELETE FROM blocks WHERE call = 4",
       "expected 10 calls, found 9"},
      {"DELETE FROM calls WHERE id = 4", "logs: expected a call 4, found none"},
      {"DELETE FROM logs WHERE call = 4", "call 4 (InputStream): its checksum does not fit"},
      {"DELETE FROM blocks WHERE call = 4", "call 4 (InputStream): its checksum does not fit"},
      {"INSERT INTO logs VALUES (99, 0, 3, 'x', 0)", "behind the last call"},
      {"DELETE FROM truth WHERE frame = 9", "expected 10 rows of truth, found 9"},
      {"DELETE FROM meta WHERE key = 'calls'", "expected a fact calls, found none"},
      {"UPDATE meta SET value = '1' WHERE key = 'dropped_calls'",
       "meta 'dropped_calls': its checksum does not fit"},
  };
  for (const auto& [sql, problem] : changes) {
    std::filesystem::remove(path_);
    record(10);
    ASSERT_EQ(problemOf(path_), "no problem");
    change(sql);
    EXPECT_THAT(problemOf(path_), HasSubstr(problem)) << sql;
  }
}

TEST_F(HostileFileTest, NoFlippedBitChangesAnAnswer) {
  record(20);
  const auto answersOf = [](const std::string& path) {
    const RecordingReader reader(path);
    recording::Checksum sum;
    auto cursor = reader.entries();
    for (Entry entry; cursor.next(entry);) sum.add(std::int64_t{recording::checksumOf(entry)});
    for (const auto& row : reader.truth()) sum.add(std::int64_t{recording::checksumOf(row)});
    sum.add(reader.callCount());
    sum.add(reader.metadata().droppedCalls);
    sum.add(std::int64_t{reader.metadata().complete});
    return sum.value();
  };
  const std::string whole = bytesOf(path_);
  const std::uint32_t right = answersOf(path_);
  const std::string flipped = folder_.path("flipped");
  int refused = 0, same = 0;
  for (std::size_t i = 0; i < 1500; ++i) {
    std::string bytes = whole;
    const std::size_t bit = i * 7919 * 31 % (8 * bytes.size());
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
    std::ofstream(flipped, std::ios::binary) << bytes;
    try {
      ASSERT_EQ(answersOf(flipped), right) << "bit " << bit;
      ++same;  // in a page's free bytes
    } catch (const RecordingError&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, 300);
  RecordProperty("refused", refused);
  RecordProperty("same", same);
}

TEST_F(HostileFileTest, ChecksumsAreThoseOfZlib) {
  recording::Checksum sum;
  sum.addText("123456789");
  // zlib.crc32(b"\x03" + struct.pack("<q", 9) + b"123456789")
  EXPECT_EQ(sum.value(), 0xc1d6bb7au);
}

TEST(Crc32Test, FoldedBlocksGiveWhatTheTablesGive) {
  std::vector<std::uint8_t> bytes;
  for (std::uint32_t i = 0, x = 1; i < 1100; ++i, x = 1664525 * x + 1013904223)
    bytes.push_back(static_cast<std::uint8_t>(x >> 24));
  for (std::size_t size = 0; size < 1000; ++size)
    for (const std::size_t from : {0, 1, 7})
      ASSERT_EQ(recording::crc32After(0xFFFFFFFF, bytes.data() + from, size),
                recording::crc32ByTables(0xFFFFFFFF, bytes.data() + from, size))
          << size << " bytes";
}

TEST_F(HostileFileTest, ChecksumsDoNotDependOnHowBytesAreCut) {
  const std::string text(5000, 'x');
  recording::Checksum whole;
  whole.addText(text);
  std::string fed("\x03\x88\x13\0\0\0\0\0\0", 9);  // a text of 5000 bytes
  EXPECT_EQ(whole.value(), recording::Checksum::ofRaw(fed + text));
}

TEST_F(HostileFileTest, RefusesMoreCallsInOneThanAHostCanMake) {
  Recorder recorder(path_);
  Unit unit;
  const auto many = recording::kMostCallsPerUnit;
  for (std::size_t i = 0; i < many; ++i) {
    Entry& entry = unit.append();
    entry.call.index = static_cast<std::int64_t>(i);
    entry.call.kind = CallKind::kGetFixedCode;
    if (i > 0) entry.call.parent = 0;
  }
  recorder.append(unit);
  Unit one;  // by itself a call of its own, but it says that it was made in the first
  one.append().call.index = static_cast<std::int64_t>(many);
  one.entries[0].call.kind = CallKind::kGetFixedCode;
  one.entries[0].call.parent = 0;
  recorder.append(one);
  ASSERT_EQ(recorder.close().dropped, 0);
  const RecordingReader reader(path_);
  recording::UnitCursor units(reader.entries());
  Unit all;
  EXPECT_THROW(units.next(all), RecordingError);
}

TEST_F(HostileFileTest, RefusesAPipeAndADevice) {
  EXPECT_THAT(problemOf("/dev/zero"), HasSubstr("found something that is not a file"));
}

class RepairTest : public HostileFileTest {
 protected:
  recording::Repair repair() { return recording::repair(path_, saved_, true); }
  std::string saved_ = folder_.path("saved.algrec");
};

TEST_F(RepairTest, SavesEveryReadableCallOfAFileThatWasCut) {
  record(1000);
  const auto size = std::filesystem::file_size(path_);
  std::filesystem::resize_file(path_, size * 6 / 10 + 100);
  EXPECT_THAT(problemOf(path_), HasSubstr("was cut; `algtrack repair`"));
  const auto before = bytesOf(path_);
  const auto result = repair();
  EXPECT_EQ(bytesOf(path_), before);
  EXPECT_GT(result.calls, 100);
  EXPECT_EQ(result.calls + result.lostCalls, 1000);
  EXPECT_TRUE(result.lossKnown);
  EXPECT_FALSE(result.complete);
  EXPECT_EQ(problemOf(saved_), "no problem");
  EXPECT_EQ(calls_, result.calls);
  const RecordingReader reader(saved_);
  EXPECT_FALSE(reader.metadata().complete);
  EXPECT_EQ(reader.metadata().droppedCalls, result.lostCalls);
  EXPECT_EQ(reader.metadata().values.at("repaired_from"), "r.algrec");
}

TEST_F(RepairTest, LeavesOutTheCallThatIsDamagedAndNoOther) {
  record(30);
  change(
      "UPDATE calls SET length = 41 WHERE id = 7; UPDATE logs SET level = 9 WHERE call = 20;"
      "UPDATE truth SET x = 5 WHERE frame = 3");
  const auto result = repair();
  EXPECT_EQ(result.calls, 28);
  EXPECT_EQ(result.lostCalls, 2);
  EXPECT_EQ(result.truthRows, 29);
  EXPECT_EQ(problemOf(saved_), "no problem");
  EXPECT_FALSE(RecordingReader(saved_).entry(7));
  EXPECT_TRUE(RecordingReader(saved_).entry(8));
}

TEST_F(RepairTest, ReadsOnBehindAPageThatIsDestroyed) {
  record(1000);
  std::string bytes = bytesOf(path_);
  std::memset(&bytes[bytes.size() / 8 / 4096 * 4096], 0xA5, 4096);
  std::ofstream(path_, std::ios::binary) << bytes;
  ASSERT_NE(problemOf(path_), "no problem");
  const auto result = repair();
  EXPECT_GT(result.calls, 900);
  EXPECT_GT(result.lostCalls, 0);
  EXPECT_EQ(result.calls + result.lostCalls, 1000);
  EXPECT_EQ(problemOf(saved_), "no problem");
}

TEST_F(RepairTest, WorksInTheJournalOfAKilledRecorder) {
  {
    Recorder recorder(path_);
    Unit unit = packet(0);
    recorder.append(unit);
    while (recorder.status().written < 1) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    copyTo("killed", {"", "-wal"});
  }
  const auto result = recording::repair(folder_.path("killed"), saved_, false);
  EXPECT_EQ(result.calls, 1);
  EXPECT_EQ(result.lostCalls, 0);
  EXPECT_EQ(problemOf(saved_), "no problem");
}

TEST_F(RepairTest, SavesARecordingOfTheFirstVersion) {
  record(10);
  makeVersion1();
  const auto result = repair();
  EXPECT_EQ(result.calls, 10);
  EXPECT_TRUE(result.complete);
  EXPECT_FALSE(result.lossKnown);
  EXPECT_EQ(RecordingReader(saved_).metadata().formatVersion, 2);
}

TEST_F(RepairTest, RefusesToOverwriteAndToRepairInPlace) {
  record(3);
  folder_.write("saved.algrec", "precious");
  EXPECT_THROW(recording::repair(path_, saved_, false), RecordingError);
  EXPECT_THROW(recording::repair(path_, path_, true), RecordingError);
  EXPECT_EQ(problemOf(path_), "no problem");
}

}  // namespace
