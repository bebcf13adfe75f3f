// A recorder's life with files, processes, disks and memory.
#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/Recorder.h>
#include <alg_kit/recording/RecordingWriter.h>
#include <tests/support/ScratchFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#if defined(__unix__)
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using recording::Database;
using recording::Recorder;
using recording::RecorderOptions;
using recording::RecorderStatus;
using recording::RecordingError;
using recording::RecordingReader;
using session::CallKind;
using session::Unit;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

Unit unitOf(std::int64_t index, std::size_t payload = 0) {
  Unit unit;
  unit.entries.resize(1);
  unit.used = 1;
  session::Call& call = unit.entries[0].call;
  call.index = index;
  call.kind = payload == 0 ? CallKind::kGetFixedCode : CallKind::kInputStream;
  call.length = static_cast<int>(payload);
  call.pointerGiven = payload > 0;
  call.payload.assign(payload, 0x5A);
  return unit;
}

void append(Recorder& recorder, std::int64_t index, std::size_t payload = 0) {
  Unit unit = unitOf(index, payload);
  recorder.append(unit);
}

void appendCall(Recorder& recorder, std::int64_t index, CallKind kind) {
  Unit unit = unitOf(index);
  session::Call& call = unit.entries[0].call;
  call.kind = kind;
  call.pointerGiven = true;
  call.returned = 1;
  call.startNs = 1000 * index;
  if (kind == CallKind::kInit) call.payload.assign(920, static_cast<std::uint8_t>(index));
  recorder.append(unit);
}

template <typename Condition>
bool becomesTrue(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(5ms);
  }
  return false;
}

std::vector<std::int64_t> indicesOf(const std::string& path) {
  std::vector<std::int64_t> indices;
  const RecordingReader reader(path);
  auto cursor = reader.entries();
  for (session::Entry entry; cursor.next(entry);) indices.push_back(entry.call.index);
  return indices;
}

std::string refusalOf(const std::string& path, bool overwrite) {
  RecorderOptions options;
  options.overwrite = overwrite;
  try {
    const Recorder recorder(path, options);
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "not refused";
}

/// Runs it in a child and returns how that ended; -1 if it had to be killed after ten seconds.
template <typename Action>
int inChild(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    action();
    _exit(0);
  }
  int status = 0;
  if (becomesTrue([&] { return waitpid(child, &status, WNOHANG) == child; }))
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return -1;
}

class RecorderLifeTest : public testing::Test {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(file_).parent_path()))
      found.push_back(file.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
  }

  ScratchFolder folder_;
  std::string file_ = folder_.path("a.algrec");
};

TEST_F(RecorderLifeTest, RefusesASecondRecorderOfAFileInTheSameProcess) {
  Recorder recorder(file_);
  append(recorder, 0);
  EXPECT_THAT(refusalOf(file_, true), HasSubstr("found one with its recorder"));
  EXPECT_THAT(refusalOf(file_, false), HasSubstr("expected no file of this name"));
  append(recorder, 1);
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.error, "");
  EXPECT_THAT(indicesOf(file_), ElementsAre(0, 1));
  EXPECT_EQ(refusalOf(file_, true), "not refused");
}

TEST_F(RecorderLifeTest, RefusesASecondRecorderOfAFileInAnotherProcess) {
  Recorder recorder(file_);
  append(recorder, 0);
  EXPECT_EQ(inChild([&] {
              if (refusalOf(file_, true).find("with its recorder") == std::string::npos) _exit(1);
            }),
            0);
  EXPECT_EQ(recorder.close().error, "");
  EXPECT_THAT(indicesOf(file_), ElementsAre(0));
}

TEST_F(RecorderLifeTest, OneOfManyThatBeginAtOnceGetsTheFile) {
  for (int round = 0; round < 10; ++round) {
    std::atomic<bool> go{false};
    std::atomic<int> winners{0};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([&] {
        RecorderOptions options;
        options.overwrite = true;
        ++ready;
        while (!go) std::this_thread::yield();
        try {
          Recorder recorder(file_, options);
          ++winners;
          append(recorder, 7);
          while (ready < 8) std::this_thread::yield();
          EXPECT_EQ(recorder.close().written, 1);
        } catch (const RecordingError&) {
        }
        ++ready;
      });
    while (ready < 4) std::this_thread::yield();
    go = true;
    while (ready < 7) std::this_thread::yield();  // three were refused
    ++ready;
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(winners, 1);
    EXPECT_THAT(indicesOf(file_), ElementsAre(7));
    EXPECT_THAT(names(), ElementsAre("a.algrec"));
  }
}

TEST_F(RecorderLifeTest, SaysThatItsFileWasRemovedAndCountsItsCallsAsLost) {
  Recorder recorder(file_);
  append(recorder, 0);
  ASSERT_TRUE(becomesTrue([&] { return recorder.status().written == 1; }));
  std::filesystem::remove(file_);
  EXPECT_TRUE(becomesTrue([&] { return !recorder.status().error.empty(); }));
  append(recorder, 1);
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.written, 0);
  EXPECT_EQ(status.dropped, 2);
  EXPECT_THAT(status.error, HasSubstr("a.algrec: the file was removed while it was recorded"));
}

TEST_F(RecorderLifeTest, LeavesTheFilesOfARecorderThatTookOverItsName) {
  Recorder old(file_);
  append(old, 0);
  ASSERT_TRUE(becomesTrue([&] { return old.status().written == 1; }));
  std::filesystem::remove(file_);
  {
    Recorder next(file_);
    append(next, 5);
    ASSERT_TRUE(becomesTrue([&] { return next.status().written == 1; }));
    EXPECT_EQ(old.close().written, 0);
    EXPECT_THAT(indicesOf(file_), ElementsAre(5));
    append(next, 6);
    EXPECT_EQ(next.close().error, "");
  }
  EXPECT_THAT(indicesOf(file_), ElementsAre(5, 6));
}

TEST_F(RecorderLifeTest, ARenamedFileKeepsWhatWasWritten) {
  Recorder recorder(file_);
  append(recorder, 0);
  ASSERT_TRUE(becomesTrue([&] { return recorder.status().written == 1; }));
  std::filesystem::rename(file_, folder_.path("b.algrec"));
  ASSERT_TRUE(becomesTrue([&] { return !recorder.status().error.empty(); }));
  append(recorder, 1);
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.written, 1);
  EXPECT_EQ(status.dropped, 1);
  EXPECT_THAT(status.error, HasSubstr("renamed or replaced"));
  // What was committed is in the file alone, without the journal that kept the old name.
  Database moved(folder_.path("b.algrec"), Database::Mode::kReadWrite);
  EXPECT_EQ(moved.integer("SELECT count(*) FROM calls"), 1);
}

TEST_F(RecorderLifeTest, RefusesAFileWithoutAName) {
  EXPECT_THAT(refusalOf("", false), HasSubstr("expected the name of its file, found none"));
  EXPECT_THAT(refusalOf("", true), HasSubstr("expected the name of its file, found none"));
}

TEST_F(RecorderLifeTest, ReplacesALinkAndNotItsTarget) {
  const std::string precious = folder_.write("precious", "text");
  std::filesystem::create_symlink(precious, file_);
  std::filesystem::create_symlink(precious, file_ + ".creating");
  EXPECT_THAT(refusalOf(file_, false), HasSubstr("expected no file of this name"));
  EXPECT_EQ(refusalOf(file_, true), "not refused");
  EXPECT_EQ(std::filesystem::file_size(precious), 4u);
  EXPECT_FALSE(std::filesystem::is_symlink(file_));
}

TEST_F(RecorderLifeTest, GoesOnInTheNextFileOfTheGivenSize) {
  RecorderOptions options;
  options.maxBytes = 200 * 1024;
  options.waitWhenFull = true;
  {
    Recorder recorder(file_, options);
    std::int64_t index = 0;
    for (const auto kind : {CallKind::kSetLogCallback, CallKind::kSetDataCallback, CallKind::kInit})
      appendCall(recorder, index++, kind);
    while (recorder.status().files < 3) {
      append(recorder, index++, 500);
      std::this_thread::sleep_for(1ms);
    }
    const RecorderStatus status = recorder.close();
    EXPECT_EQ(status.written, index);
    EXPECT_EQ(status.dropped, 0);
    EXPECT_EQ(status.file, folder_.path("a.3.algrec"));
  }
  EXPECT_THAT(names(), ElementsAre("a.2.algrec", "a.3.algrec", "a.algrec"));
  const auto first = indicesOf(file_);
  const auto second = indicesOf(folder_.path("a.2.algrec"));
  // The next file begins with the set-up, numbered to end just before its first call.
  const std::int64_t next = first.back() + 1;
  ASSERT_GE(second.size(), 4u);
  EXPECT_EQ(second[0], next - 3);
  EXPECT_EQ(second[3], next);
  const RecordingReader reader(folder_.path("a.2.algrec"));
  EXPECT_TRUE(reader.metadata().complete);
  EXPECT_EQ(reader.metadata().values.at("continues"), "a.algrec");
  EXPECT_EQ(reader.metadata().values.at("continued_in"), "a.3.algrec");
  EXPECT_EQ(reader.metadata().values.at("continues_at"), std::to_string(next));
  ASSERT_EQ(reader.configurations().size(), 1u);
  EXPECT_EQ(reader.entry(next - 1)->call.payload[0], 2);
  EXPECT_EQ(reader.entry(next - 1)->call.startNs, reader.entry(next)->call.startNs);
}

TEST_F(RecorderLifeTest, GoesOnInTheNextFileAfterTheGivenTime) {
  RecorderOptions options;
  options.maxSeconds = 0.3;
  Recorder recorder(file_, options);
  std::int64_t index = 0;
  EXPECT_TRUE(becomesTrue([&] {
    append(recorder, index++);
    return recorder.status().files == 2;
  }));
  EXPECT_EQ(recorder.close().written, index);
}

TEST_F(RecorderLifeTest, LeavesAFileAloneThatHasTheNextName) {
  folder_.write("a.2.algrec", "precious");
  RecorderOptions options;
  options.maxSeconds = 0.01;
  Recorder recorder(file_, options);
  append(recorder, 0);
  EXPECT_TRUE(becomesTrue([&] { return recorder.status().files == 2; }));
  EXPECT_EQ(recorder.status().file, folder_.path("a.3.algrec"));
  EXPECT_EQ(std::filesystem::file_size(folder_.path("a.2.algrec")), 8u);
}

TEST_F(RecorderLifeTest, HandsOverToAnotherFileWithoutAGap) {
  Recorder recorder(file_);
  std::thread host([&] {
    for (int i = 0; i < 2000; ++i) {
      append(recorder, i);
      if (i % 10 == 0) std::this_thread::sleep_for(1ms);
    }
  });
  std::this_thread::sleep_for(30ms);
  recorder.continueIn(folder_.path("b.algrec"));
  EXPECT_THROW(recorder.continueIn("/no/such/folder/c.algrec"), RecordingError);
  host.join();
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.written, 2000);
  EXPECT_EQ(status.file, folder_.path("b.algrec"));
  auto all = indicesOf(file_);
  EXPECT_GT(all.size(), 0u);
  const auto rest = indicesOf(folder_.path("b.algrec"));
  EXPECT_GT(rest.size(), 0u);
  all.insert(all.end(), rest.begin(), rest.end());
  ASSERT_EQ(all.size(), 2000u);
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], static_cast<std::int64_t>(i));
  EXPECT_EQ(RecordingReader(file_).metadata().values.at("continued_in"), "b.algrec");
  EXPECT_TRUE(RecordingReader(file_).metadata().complete);
}

TEST_F(RecorderLifeTest, TheQueueIsBoundedInBytes) {
  RecorderOptions options;
  options.queueBytes = 1024 * 1024;
  Recorder recorder(file_, options);
  Database other(file_, Database::Mode::kReadWrite);
  other.execute("BEGIN IMMEDIATE");  // nothing can be written until this ends
  for (int i = 0; i < 100; ++i) append(recorder, i, 100 * 1000);
  // Ten of them fit, and as many may be on their way to the disk.
  EXPECT_GE(recorder.status().dropped, 80);
  EXPECT_LT(recorder.status().dropped, 100);
  other.execute("ROLLBACK");
  EXPECT_EQ(recorder.close().error, "");
}

TEST_F(RecorderLifeTest, DropsACallThatNoReaderWouldTake) {
  Recorder recorder(file_);
  append(recorder, 0, 20 * 1024 * 1024);
  append(recorder, 1);
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.dropped, 1);
  EXPECT_THAT(indicesOf(file_), ElementsAre(1));
}

TEST_F(RecorderLifeTest, LeavesTheAskedRoomOnTheDisk) {
  RecorderOptions options;
  options.minFreeBytes = std::int64_t{1} << 60;
  Recorder recorder(file_, options);
  append(recorder, 0);
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.dropped, 1);
  EXPECT_THAT(status.error, HasSubstr("free bytes on the disk"));
  EXPECT_EQ(RecordingReader(file_).metadata().droppedCalls, 1);
}

TEST_F(RecorderLifeTest, ClosingGivesUpAfterItsLimitAndCanBeAskedAgain) {
  Recorder recorder(file_);
  ASSERT_TRUE(becomesTrue([&] { return RecordingReader(file_).callCount() == 0; }));
  Database other(file_, Database::Mode::kReadWrite);
  other.execute("BEGIN IMMEDIATE");
  append(recorder, 0);
  const auto begin = std::chrono::steady_clock::now();
  const RecorderStatus status = recorder.close(50ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
  EXPECT_FALSE(status.closed);
  EXPECT_NE(status.error, "");
  other.execute("ROLLBACK");
  const RecorderStatus last = recorder.close();
  EXPECT_TRUE(last.closed);
  EXPECT_EQ(last.written, 1);
  EXPECT_EQ(last.error, "");
}

TEST_F(RecorderLifeTest, AForkedChildRecordsNothingAndTheParentLosesNothing) {
  Recorder recorder(file_);
  std::atomic<bool> stop{false};
  std::atomic<std::int64_t> count{0};
  std::thread host([&] {
    while (!stop) append(recorder, count++);
  });
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(inChild([&] {
                Unit unit = unitOf(1000000);
                recorder.append(unit);
                if (recorder.status().error != "a forked child records nothing") _exit(1);
                if (recorder.close().closed) _exit(2);
                recorder.~Recorder();
              }),
              0);
  }
  stop = true;
  host.join();
  const RecorderStatus status = recorder.close();
  EXPECT_EQ(status.error, "");
  EXPECT_EQ(status.written + status.dropped, count);
  EXPECT_LT(indicesOf(file_).back(), 1000000);
}

TEST_F(RecorderLifeTest, AChildThatLivesOnDoesNotKeepTheLock) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  pid_t child = 0;
  {
    Recorder recorder(file_);
    child = fork();
    if (child == 0) {
      char byte;
      close(ends[1]);
      static_cast<void>(!read(ends[0], &byte, 1));
      _exit(0);
    }
  }
  EXPECT_EQ(refusalOf(file_, true), "not refused");
  close(ends[1]);
  close(ends[0]);
  waitpid(child, nullptr, 0);
}

// Between the making of the journal's index and its first words lies a moment.
TEST_F(RecorderLifeTest, WhoComesWhileARecorderMakesItsIndexWaitsForIt) {
  recording::createTables(file_, {});
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const int index = open((file_ + "-shm").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    struct flock living {};
    living.l_type = F_RDLCK;
    living.l_whence = SEEK_SET;
    living.l_start = 128;  // SQLite's byte of those who have the index open
    living.l_len = 1;
    if (ftruncate(index, 32768) != 0 || fcntl(index, F_SETLK, &living) != 0) _exit(1);
    static_cast<void>(!write(ends[1], "x", 1));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    recording::RecordingWriter writer(file_);
    pause();
    _exit(0);
  }
  char byte;
  ASSERT_EQ(read(ends[0], &byte, 1), 1);
  EXPECT_NO_THROW(EXPECT_EQ(RecordingReader(file_).callCount(), 0));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(RecorderLifeTest, AProcessThatExitsWithoutClosingLeavesAReadableFile) {
  EXPECT_EQ(inChild([&] {
              auto* const recorder = new Recorder(file_);
              append(*recorder, 0);
              becomesTrue([&] { return recorder->status().written == 1; });
              exit(0);
            }),
            0);
  EXPECT_THAT(indicesOf(file_), ElementsAre(0));
  EXPECT_FALSE(RecordingReader(file_).metadata().complete);
}

}  // namespace

#endif
