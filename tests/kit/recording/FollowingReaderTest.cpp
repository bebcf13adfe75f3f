#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/FollowingReader.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <tests/lifetime/ChildProcess.h>
#include <tests/support/ScratchFolder.h>
#include <tests/support/ScriptedAlg.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using recording::FollowingReader;
using recording::RecordingAlg;
using recording::RecordingError;
using State = FollowingReader::State;
using std::chrono::milliseconds;

constexpr milliseconds kLongestWait(60000);

void feed(RecordingAlg& alg, int calls) {
  for (int i = 0; i < calls; ++i) {
    const unsigned char packet[] = {static_cast<unsigned char>(i), 2, 3};
    alg.InputStream(0, packet, 0, 3);
  }
}

/// The indexes of the calls that are there now.
std::vector<std::int64_t> callsOf(FollowingReader& follower) {
  std::vector<std::int64_t> calls;
  for (session::Unit unit; follower.next(unit);)
    for (const session::Entry& entry : unit) calls.push_back(entry.call.index);
  return calls;
}

std::vector<std::int64_t> callsUntil(FollowingReader& follower, std::size_t count) {
  std::vector<std::int64_t> calls;
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (calls.size() < count && std::chrono::steady_clock::now() < end) {
    const auto more = callsOf(follower);
    calls.insert(calls.end(), more.begin(), more.end());
    if (more.empty()) std::this_thread::sleep_for(milliseconds(5));
  }
  return calls;
}

std::vector<std::int64_t> numbers(std::int64_t first, std::int64_t end) {
  std::vector<std::int64_t> result;
  for (std::int64_t i = first; i < end; ++i) result.push_back(i);
  return result;
}

std::map<std::string, std::string> contentOf(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& item : fs::directory_iterator(folder)) {
    std::ifstream file(item.path(), std::ios::binary);
    files[item.path().filename().string()] = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

class FollowingReaderTest : public testing::Test {
 protected:
  ScratchFolder folder_;
  std::string file_ = folder_.path("session.algrec");
  ScriptedAlg library_;
};

TEST_F(FollowingReaderTest, WaitsForNoNameThatNoFileCanHave) {
  std::ofstream(folder_.path("file")) << "no folder";
  for (const std::string& name : {std::string(), folder_.path("file/below"), folder_.path("new/"),
                                  folder_.path(std::string(300, 'x'))}) {
    EXPECT_THROW(recording::isThere(name), RecordingError) << name;
    FollowingReader follower(name);
    session::Unit unit;
    EXPECT_THROW(follower.next(unit), RecordingError) << name;
  }
  EXPECT_FALSE(recording::isThere(file_));
  EXPECT_TRUE(recording::isThere(folder_.path("file")));
}

TEST_F(FollowingReaderTest, FollowsAnotherProcessFromBeforeTheFileIsThereToItsLastCall) {
  FollowingReader follower(file_);
  session::Unit unit;
  EXPECT_FALSE(follower.next(unit));
  EXPECT_EQ(follower.state(), State::kAbsent);

  constexpr int kCalls = 400;
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    {
      RecordingAlg alg(&library_, file_);
      for (int i = 0; i < kCalls / 4; ++i) {
        feed(alg, 4);
        std::this_thread::sleep_for(milliseconds(10));
      }
    }
    _exit(0);
  }
  ASSERT_GT(child, 0);

  std::vector<std::int64_t> calls;
  int visitsWithCalls = 0;
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (follower.state() != State::kEnded && std::chrono::steady_clock::now() < end) {
    const auto more = callsOf(follower);
    calls.insert(calls.end(), more.begin(), more.end());
    if (!more.empty()) ++visitsWithCalls;
    std::this_thread::sleep_for(milliseconds(20));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(calls, numbers(0, kCalls));
  EXPECT_GE(visitsWithCalls, 3) << "a second of recording has four commits";
  EXPECT_TRUE(follower.metadata().complete);
  EXPECT_EQ(follower.nextCall(), kCalls);
}

TEST_F(FollowingReaderTest, LetsTheRecorderFinishAsIfNobodyLooked) {
  FollowingReader follower(file_);
  {
    RecordingAlg alg(&library_, file_);
    feed(alg, 10);
    EXPECT_EQ(callsUntil(follower, 10), numbers(0, 10));
    EXPECT_EQ(follower.state(), State::kUnderWay);
    feed(alg, 1);
  }
  EXPECT_EQ(contentOf(folder_.path("")).size(), 1u) << "no journal is left";
  EXPECT_EQ(callsOf(follower), numbers(10, 11));
  EXPECT_EQ(follower.state(), State::kEnded);
}

TEST_F(FollowingReaderTest, ChangesNothingBesideARecordingThatWasCutOff) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    RecordingAlg alg(&library_, file_);
    feed(alg, 50);
    while (alg.status().written < 50) std::this_thread::sleep_for(milliseconds(5));
    _exit(0);  // without the destructor
  }
  waitpid(child, nullptr, 0);
  const auto before = contentOf(folder_.path(""));
  ASSERT_EQ(before.count("session.algrec-wal"), 1u);

  FollowingReader follower(file_);
  EXPECT_EQ(callsOf(follower), numbers(0, 50));
  EXPECT_EQ(callsOf(follower).size(), 0u);
  EXPECT_EQ(follower.state(), State::kUnderWay) << "nobody said that it has ended";
  EXPECT_EQ(contentOf(folder_.path("")), before);
}

TEST_F(FollowingReaderTest, BeginsAtTheCallThatIsAskedFor) {
  {
    RecordingAlg alg(&library_, file_);
    feed(alg, 1000);
  }
  FollowingReader follower(file_, 700);
  EXPECT_EQ(callsOf(follower), numbers(700, 1000)) << "more than one visit's worth";
  EXPECT_EQ(follower.state(), State::kEnded);
}

TEST_F(FollowingReaderTest, GoesOnInTheNextFileWithoutItsRepeatedCalls) {
  FollowingReader follower(file_);
  {
    RecordingAlg alg(&library_, file_);
    ScriptedHost host;
    const unsigned char calibration[920] = {};
    alg.SetDataCallback(&host);
    alg.Init(0, calibration, 0);
    feed(alg, 5);
    alg.continueIn(folder_.path("next.algrec"));
    feed(alg, 5);
  }
  EXPECT_EQ(callsOf(follower), numbers(0, 12));
  EXPECT_EQ(follower.state(), State::kEnded);
  EXPECT_EQ(follower.path(), folder_.path("next.algrec"));
}

TEST_F(FollowingReaderTest, LeavesOutTheRepeatedCallsBehindAGapToo) {
  // Calls 1 to 99 were dropped: the next file repeats call 0 as its call 99.
  {
    recording::Recorder recorder(file_);
    const auto take = [&](std::int64_t index) {
      session::Unit unit;
      session::Call& call = unit.append().call;
      call.index = index;
      call.kind = session::CallKind::kSetDataCallback;
      call.returned = 1;
      recorder.take(unit);
    };
    take(0);
    recorder.continueIn(folder_.path("next.algrec"));
    take(100);
  }
  FollowingReader follower(file_);
  EXPECT_EQ(callsOf(follower), (std::vector<std::int64_t>{0, 100}));
}

TEST_F(FollowingReaderTest, EndsWhereTheNextFileWasTakenAway) {
  {
    RecordingAlg alg(&library_, file_);
    feed(alg, 5);
    alg.continueIn(folder_.path("next.algrec"));
  }
  fs::remove(folder_.path("next.algrec"));
  FollowingReader follower(file_);
  EXPECT_EQ(callsOf(follower), numbers(0, 5));
  EXPECT_EQ(follower.state(), State::kEnded);
}

TEST_F(FollowingReaderTest, RefusesPartsThatLeadInACircleOrElsewhere) {
  for (const char* const name : {"session.algrec", "../other.algrec"}) {
    recording::RecordingAlgOptions options;
    options.overwrite = true;
    options.facts["continued_in"] = name;
    { RecordingAlg alg(&library_, file_, options); }
    FollowingReader follower(file_);
    session::Unit unit;
    EXPECT_THROW(follower.next(unit), RecordingError) << name;
  }
}

TEST_F(FollowingReaderTest, SaysSoWhereAnotherFileTookTheName) {
  FollowingReader follower(file_);
  RecordingAlg alg(&library_, file_);
  feed(alg, 3);
  EXPECT_EQ(callsUntil(follower, 3), numbers(0, 3));
  recording::RecordingAlg other(&library_, folder_.path("other.algrec"));
  fs::rename(folder_.path("other.algrec"), file_);
  session::Unit unit;
  EXPECT_THROW(follower.next(unit), RecordingError);
}

TEST_F(FollowingReaderTest, RefusesAFileThatIsNoRecording) {
  FollowingReader follower(folder_.write("session.algrec", "not a recording"));
  session::Unit unit;
  EXPECT_THROW(follower.next(unit), RecordingError);
}

}  // namespace
