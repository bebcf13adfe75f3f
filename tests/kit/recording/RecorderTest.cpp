#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recorder.h>
#include <alg_kit/recording/RecordingWriter.h>
#include <tests/support/ScratchFolder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#if defined(__unix__)
#include <sys/resource.h>

#include <csignal>
#endif

namespace {

using recording::Database;
using recording::Recorder;
using recording::RecorderOptions;
using recording::RecordingReader;
using session::CallKind;
using session::Unit;

Unit unitOf(std::int64_t index, std::size_t payload = 0) {
  Unit unit;
  unit.entries.resize(1);
  unit.used = 1;
  unit.entries[0].call.index = index;
  unit.entries[0].call.kind = payload == 0 ? CallKind::kGetFixedCode : CallKind::kInputStream;
  unit.entries[0].call.length = static_cast<int>(payload);
  unit.entries[0].call.pointerGiven = payload > 0;
  unit.entries[0].call.payload.assign(payload, 0x5A);
  return unit;
}

void append(Recorder& recorder, std::int64_t index, std::size_t payload = 0) {
  Unit unit = unitOf(index, payload);
  recorder.append(unit);
}

template <typename Condition>
bool becomesTrue(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

TEST(RecorderTest, TheFirstCallsFindStorageForAFullPacketAndItsBlock) {
  const ScratchFolder folder;
  Recorder recorder(folder.path("r"));
  Unit unit = unitOf(0);
  for (int n = 1; n < 300; ++n) {
    recorder.append(unit);
    ASSERT_FALSE(unit.entries.empty()) << n;
    const session::Entry& entry = unit.entries[0];
    ASSERT_GE(entry.call.payload.capacity(), 516u) << n;
    ASSERT_GE(entry.blocks.capacity(), 1u) << n;
    unit.clear();
    unit.append().call = unitOf(n)[0].call;
  }
  EXPECT_EQ(recorder.close().written, 299);
}

TEST(RecorderTest, CommitsAsOftenAsItIsAsked) {
  using std::chrono::milliseconds;
  constexpr std::int64_t kCalls = 20;
  const ScratchFolder folder;
  const auto every = [](milliseconds interval) {
    RecorderOptions options;
    options.commitInterval = interval;
    return options;
  };
  const auto calls = [&](const char* name) {
    return RecordingReader(folder.path(name)).callCount();
  };
  Recorder never(folder.path("never"), every(std::chrono::hours(1)));
  Recorder seldom(folder.path("seldom"), every(milliseconds(1000)));
  Recorder often(folder.path("often"), every(milliseconds(1)));
  std::set<std::int64_t> seen;  // one more with each commit at most
  for (std::int64_t i = 0; i < kCalls; ++i) {
    for (Recorder* const recorder : {&never, &seldom, &often}) append(*recorder, i);
    ASSERT_TRUE(becomesTrue([&] { return calls("often") == i + 1; }));
    seen.insert(calls("seldom"));
  }
  EXPECT_LT(seen.size(), static_cast<std::size_t>(kCalls / 2));
  EXPECT_EQ(calls("never"), 0);
  never.close();
  EXPECT_EQ(calls("never"), kCalls);
}

TEST(RecorderTest, WhoCameBeforeTheJournalWasMadeReadsWhatIsWrittenToIt) {
  const ScratchFolder folder;
  const std::string path = folder.path("a.algrec");
  recording::createTables(path, {});
  Database early(path, Database::Mode::kReadOnly);
  ASSERT_EQ(early.integer("SELECT COUNT(*) FROM calls"), 0);
  recording::RecordingWriter writer(path);
  for (std::int64_t i = 1; i <= 3; ++i) {
    writer.begin();
    writer.write(unitOf(i));
    writer.commit(0);
    EXPECT_EQ(early.integer("SELECT COUNT(*) FROM calls"), i);
  }
}

TEST(RecorderTest, WhoReadsBehindTheLastCallIsNotMetByTheNextOnesMessages) {
  const ScratchFolder folder;
  RecorderOptions options;
  options.commitInterval = std::chrono::milliseconds(1);
  Recorder recorder(folder.path("a.algrec"), options);
  std::atomic<bool> stop{false};
  std::thread host([&] {
    for (std::int64_t i = 0; !stop; ++i) {
      Unit unit = unitOf(i);
      unit.entries[0].logs.push_back({0, 1, "text"});
      recorder.append(unit);
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  EXPECT_TRUE(
      becomesTrue([&] { return RecordingReader(folder.path("a.algrec")).callCount() > 0; }));
  session::Entry entry;
  for (int i = 0; i < 6000; ++i) {
    try {
      const RecordingReader reader(folder.path("a.algrec"));
      auto behind = reader.entries(reader.callCount());
      while (behind.next(entry)) EXPECT_EQ(entry.logs.size(), 1u);
    } catch (const recording::RecordingError& error) {
      ADD_FAILURE() << i << ": " << error.what();
      break;
    }
  }
  stop = true;
  host.join();
}

TEST(RecorderTest, AFileUnderWayIsReadableAndSaysThatItIsNotComplete) {
  const ScratchFolder folder;
  Recorder recorder(folder.path("a.algrec"));
  EXPECT_EQ(RecordingReader(folder.path("a.algrec")).callCount(), 0);
  append(recorder, 0);
  append(recorder, 1);
  EXPECT_TRUE(
      becomesTrue([&] { return RecordingReader(folder.path("a.algrec")).callCount() == 2; }));
  EXPECT_FALSE(RecordingReader(folder.path("a.algrec")).metadata().complete);
  recorder.close();
  EXPECT_TRUE(RecordingReader(folder.path("a.algrec")).metadata().complete);
}

TEST(RecorderTest, LeavesOneFileBehind) {
  const ScratchFolder folder;
  {
    Recorder recorder(folder.path("a.algrec"));
    append(recorder, 0);
  }
  std::vector<std::string> names;
  const auto parent = std::filesystem::path(folder.path("a.algrec")).parent_path();
  for (const auto& file : std::filesystem::directory_iterator(parent))
    names.push_back(file.path().filename().string());
  EXPECT_EQ(names, std::vector<std::string>{"a.algrec"});
}

TEST(RecorderTest, CountsWhatAFullQueueDropsAndNeverMakesTheHostWait) {
  const ScratchFolder folder;
  RecorderOptions options;
  options.queueCapacity = 16;
  Recorder recorder(folder.path("a.algrec"), options);
  // Another process holds the disk: nothing can be written until it lets go.
  Database other(folder.path("a.algrec"), Database::Mode::kReadWrite);
  other.execute("BEGIN IMMEDIATE");
  for (int i = 0; i < 100; ++i) append(recorder, i);
  const std::int64_t dropped = recorder.status().dropped;
  // At most the queue, and what the writer took out of it before it had to wait.
  EXPECT_GE(dropped, 100 - 2 * 16);
  EXPECT_LT(dropped, 100);
  other.execute("ROLLBACK");

  const auto status = recorder.close();
  EXPECT_EQ(status.dropped, dropped);
  EXPECT_EQ(status.written, 100 - dropped);
  EXPECT_EQ(status.error, "");
  const RecordingReader reader(folder.path("a.algrec"));
  EXPECT_EQ(reader.metadata().droppedCalls, dropped);
  EXPECT_EQ(reader.callCount(), 100 - dropped);
}

TEST(RecorderTest, ClosesWhileSomebodyReads) {
  const ScratchFolder folder;
  Recorder recorder(folder.path("a.algrec"));
  append(recorder, 0);
  ASSERT_TRUE(becomesTrue([&] { return recorder.status().written == 1; }));
  const RecordingReader reader(folder.path("a.algrec"));
  auto cursor = reader.entries();
  session::Entry entry;
  ASSERT_TRUE(cursor.next(entry));
  append(recorder, 1);
  const auto status = recorder.close();
  EXPECT_EQ(status.written, 2);
  EXPECT_EQ(status.error, "");
  EXPECT_TRUE(RecordingReader(folder.path("a.algrec")).metadata().complete);
  EXPECT_EQ(RecordingReader(folder.path("a.algrec")).callCount(), 2);
}

TEST(RecorderTest, WaitsForTheDiskWhereItIsAskedTo) {
  const ScratchFolder folder;
  RecorderOptions options;
  options.queueCapacity = 4;
  options.waitWhenFull = true;
  Recorder recorder(folder.path("a.algrec"), options);
  for (int i = 0; i < 1000; ++i) append(recorder, i);
  EXPECT_EQ(recorder.close().dropped, 0);
  EXPECT_EQ(RecordingReader(folder.path("a.algrec")).callCount(), 1000);
}

#if defined(__unix__)
TEST(RecorderTest, AFullDiskCostsTheNewestCallsOnly) {
  const ScratchFolder folder;
  Recorder recorder(folder.path("a.algrec"));
  append(recorder, 0, 1000);
  ASSERT_TRUE(becomesTrue([&] { return recorder.status().written == 1; }));

  // A limit on the size of files stands for the full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  rlimit limit = old;
  limit.rlim_cur = 200 * 1024;
  setrlimit(RLIMIT_FSIZE, &limit);
  Unit many;
  for (int i = 1; i <= 1000; ++i) many.entries.push_back(unitOf(i, 1000).entries[0]);
  many.used = many.entries.size();
  recorder.append(many);
  EXPECT_TRUE(becomesTrue([&] { return recorder.status().dropped == 1000; }));
  EXPECT_NE(recorder.status().error, "");
  EXPECT_EQ(RecordingReader(folder.path("a.algrec")).callCount(), 1);

  setrlimit(RLIMIT_FSIZE, &old);  // room again
  append(recorder, 1001, 1000);
  const auto status = recorder.close();
  EXPECT_EQ(status.written, 2);
  const RecordingReader reader(folder.path("a.algrec"));
  EXPECT_EQ(reader.metadata().droppedCalls, 1000);
  EXPECT_EQ(reader.callCount(), 2);
  EXPECT_TRUE(reader.entry(1001));
}
#endif

TEST(RecorderTest, ReplacesAnExistingFileOnlyWhenToldTo) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.algrec", "something else");
  EXPECT_THROW(Recorder recorder(path), recording::RecordingError);
  RecorderOptions options;
  options.overwrite = true;
  { Recorder recorder(path, options); }
  EXPECT_EQ(RecordingReader(path).callCount(), 0);
}

TEST(RecorderTest, SaysInOneLineWhyAFileCannotBeMade) {
  const ScratchFolder folder;
  for (const std::string& path : {folder.path(""), folder.path("no/such/folder.algrec")}) {
    try {
      Recorder recorder(path);
      FAIL() << path;
    } catch (const recording::RecordingError& error) {
      const std::string what = error.what();
      EXPECT_EQ(what.rfind(path + ": expected ", 0), 0u) << what;
      EXPECT_NE(what.find("found"), std::string::npos) << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    }
  }
}

TEST(RecorderTest, KeepsTruthInOrderAndFindsItByCall) {
  const ScratchFolder folder;
  Recorder recorder(folder.path("a.algrec"));
  Unit unit;
  unit.truth.resize(2);
  unit.truth[0] = {7, 3, 500, 2, 1, {1.5, -2.25, 1e3}, true, false};
  unit.truth[1] = {8, std::nullopt, 600, 0, 0, {0, 0, 1}, false, true};
  recorder.append(unit);
  recorder.close();
  const RecordingReader reader(folder.path("a.algrec"));
  EXPECT_TRUE(reader.hasTruth());
  ASSERT_EQ(reader.truth().size(), 2u);
  EXPECT_FALSE(reader.truth()[1].call);
  const auto rows = reader.truthOf(3);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].frame, 7);
  EXPECT_EQ(rows[0].timeNs, 500);
  EXPECT_EQ(rows[0].object, 2);
  EXPECT_EQ(rows[0].marker, 1);
  EXPECT_EQ(rows[0].position[1], -2.25);
  EXPECT_TRUE(rows[0].inLeft);
  EXPECT_FALSE(rows[0].inRight);
}

}  // namespace
