#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recorder.h>
#include <alg_kit/recording/Recording.h>
#include <tests/support/ScratchFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using recording::Database;
using recording::Recorder;
using recording::RecordingError;
using recording::RecordingReader;
using session::CallKind;
using session::Entry;
using session::Unit;
using testing::HasSubstr;

class RecordingReaderTest : public testing::Test {
 protected:
  /// A recording of `calls` packets of 40 bytes, every other one of stream type 2.
  std::string makeRecording(int calls = 3) {
    Recorder recorder(path_);
    for (int i = 0; i < calls; ++i) {
      Unit unit;
      unit.entries.resize(1);
      unit.used = 1;
      auto& entry = unit.entries[0];
      entry.call.index = 10 * i;  // with gaps
      entry.call.kind = i % 2 == 0 ? CallKind::kInputStream : CallKind::kGetFixedCode;
      if (i % 2 == 0) {
        entry.call.type = i % 4;
        entry.call.length = 40;
        entry.call.pointerGiven = true;
        entry.call.payload.assign(40, static_cast<std::uint8_t>(i));
        entry.logs.push_back({0, 3, "alg: message\n", false});
        entry.blocks.emplace_back().step = 1;
        entry.blocks[0].block.header = static_cast<std::uint64_t>(i);
      }
      recorder.append(unit);
    }
    recorder.close();
    return path_;
  }

  void change(const std::string& sql) {
    Database(path_, Database::Mode::kReadWrite).execute(sql.c_str());
  }

  /// What opening and reading everything says; it has to be one line that begins with the path.
  std::string problemOf(const std::string& path) {
    try {
      const RecordingReader reader(path);
      auto cursor = reader.entries();
      for (Entry entry; cursor.next(entry);) {
      }
      reader.truth();
    } catch (const RecordingError& error) {
      const std::string what = error.what();
      EXPECT_EQ(what.rfind(path + ": ", 0), 0u) << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << what;
      return what;
    }
    return "no problem";
  }

  ScratchFolder folder_;
  std::string path_ = folder_.path("r.algrec");
};

TEST_F(RecordingReaderTest, GivesCallsInOrderWithTheirMessagesAndBlocks) {
  const RecordingReader reader(makeRecording(5));
  auto cursor = reader.entries();
  Entry entry;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(cursor.next(entry));
    EXPECT_EQ(entry.call.index, 10 * i);
    ASSERT_EQ(entry.logs.size(), i % 2 == 0 ? 1u : 0u);
    ASSERT_EQ(entry.blocks.size(), i % 2 == 0 ? 1u : 0u);
    if (i % 2 == 0) {
      EXPECT_EQ(entry.blocks[0].block.header, static_cast<std::uint64_t>(i));
    }
  }
  EXPECT_FALSE(cursor.next(entry));
}

TEST_F(RecordingReaderTest, StartsAnywhereAndFindsSingleCallsAndPackets) {
  const RecordingReader reader(makeRecording(5));
  auto cursor = reader.entries(15);
  Entry entry;
  ASSERT_TRUE(cursor.next(entry));
  EXPECT_EQ(entry.call.index, 20);
  EXPECT_EQ(entry.logs.size(), 1u);
  ASSERT_TRUE(reader.entry(40));
  EXPECT_EQ(reader.entry(40)->call.payload[0], 4);
  EXPECT_FALSE(reader.entry(15));
  EXPECT_EQ(reader.packetCall(0), 0);
  EXPECT_EQ(reader.packetCall(1), 20);
  EXPECT_EQ(reader.packetCall(2), 40);
  EXPECT_FALSE(reader.packetCall(3));
  EXPECT_FALSE(reader.packetCall(-1));
  EXPECT_EQ(reader.callCount(), 5);
  EXPECT_EQ(reader.callCount(CallKind::kGetFixedCode), 2);
}

TEST_F(RecordingReaderTest, SaysWhatItFoundInsteadOfARecording) {
  EXPECT_THAT(problemOf(folder_.path("absent")), HasSubstr("found no such file"));
  EXPECT_THAT(problemOf(folder_.path("")), HasSubstr("found a directory"));
  EXPECT_THAT(problemOf(folder_.write("empty", "")), HasSubstr("found an empty file"));
  EXPECT_THAT(problemOf(folder_.write("text", std::string(5000, 'x'))),
              HasSubstr("expected a recording, found: file is not a database"));
  {
    Database other(folder_.path("other"), Database::Mode::kCreate);
    other.execute("CREATE TABLE calls (id INTEGER)");
  }
  EXPECT_THAT(problemOf(folder_.path("other")), HasSubstr("of another application"));
}

TEST_F(RecordingReaderTest, RefusesAFileThatWasCutAnywhere) {
  makeRecording(400);
  const auto size = std::filesystem::file_size(path_);
  for (const double share : {0.0001, 0.01, 0.1, 0.5, 0.9, 0.999}) {
    const std::string cut = folder_.path("cut");
    std::filesystem::copy_file(path_, cut, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(
        cut, static_cast<std::uintmax_t>(share * static_cast<double>(size)) + 1);
    EXPECT_THAT(problemOf(cut), HasSubstr("expected")) << share;
  }
}

// Found by fuzzing: SQLite gives the rows of a damaged table in the order it finds them.
TEST_F(RecordingReaderTest, RefusesCallsThatADamagedFileHoldsOutOfOrder) {
  EXPECT_THAT(problemOf(ALG_FUZZ_CORPUS "/recording_reader/calls_out_of_order"),
              HasSubstr("expected a call behind call"));
}

TEST_F(RecordingReaderTest, RefusesANewerFormatInPlainWords) {
  makeRecording();
  change("PRAGMA user_version = 3");
  EXPECT_THAT(problemOf(path_), HasSubstr("expected a recording of format 2 or older, found format "
                                          "3, made by a newer program"));
}

// A copy taken in the middle of a change is what a kill leaves: half of the change in the file and
// a journal that takes it back.
TEST_F(RecordingReaderTest, TakesBackWhatAKilledWriterLeftHalfDone) {
  makeRecording(400);
  Database writer(path_, Database::Mode::kReadWrite);
  writer.execute("PRAGMA cache_size = 1; BEGIN; UPDATE calls SET start_ns = 1;");
  for (const char* const suffix : {"", "-journal"})
    std::filesystem::copy_file(path_ + suffix, folder_.path("copy") + suffix);
  const std::string copy = folder_.path("copy");
  ASSERT_EQ(problemOf(copy), "no problem");
  const RecordingReader reader(copy);
  auto cursor = reader.entries();
  for (Entry entry; cursor.next(entry);) EXPECT_EQ(entry.call.startNs, 0);
}

TEST_F(RecordingReaderTest, NamesATableThatIsMissing) {
  makeRecording();
  change("DROP TABLE blocks");
  EXPECT_THAT(problemOf(path_), HasSubstr("found: no such table: blocks"));
}

TEST_F(RecordingReaderTest, RefusesFieldsThatDoNotFitTheCall) {
  const std::pair<const char*, const char*> changes[] = {
      {"UPDATE calls SET payload = zeroblob(39) WHERE id = 20",
       "call 20 (InputStream): payload: expected 40 bytes, found 39"},
      {"UPDATE calls SET kind = 'Output' WHERE id = 10", "call 10: kind: expected"},
      {"UPDATE calls SET output = zeroblob(52) WHERE id = 0", "output: expected 0 bytes, found 52"},
      {"UPDATE calls SET length = 5000000000 WHERE id = 0",
       "length: expected a number of 32 bits, found 5000000000"},
      {"UPDATE calls SET parent = 20 WHERE id = 20", "parent: expected an earlier call"},
      {"UPDATE blocks SET block = zeroblob(527) WHERE call = 20",
       "block: expected 528 bytes, found 527"},
      {"UPDATE calls SET type = 3 WHERE id = 0",
       "call 0 (InputStream): payload: expected 56 bytes, found 40"},
  };
  for (const auto& [sql, problem] : changes) {
    std::filesystem::remove(path_);
    makeRecording();
    ASSERT_EQ(problemOf(path_), "no problem");
    change(sql);
    EXPECT_THAT(problemOf(path_), HasSubstr(problem)) << sql;
  }
}

}  // namespace
