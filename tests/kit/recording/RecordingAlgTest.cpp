#include <alg_kit/recording/Database.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <tests/support/ScratchFolder.h>
#include <tests/support/ScriptedAlg.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using recording::RecordingAlg;
using recording::RecordingReader;
using session::Bytes;
using session::CallKind;
using session::Entry;
using testing::ElementsAre;

std::vector<Entry> entriesOf(const std::string& path) {
  std::vector<Entry> entries;
  const RecordingReader reader(path);
  auto cursor = reader.entries();
  for (Entry entry; cursor.next(entry);) entries.push_back(entry);
  return entries;
}

class RecordingAlgTest : public testing::Test {
 protected:
  ScratchFolder folder_;
  std::string file_ = folder_.path("session.algrec");
  ScriptedAlg library_;
  ScriptedHost host_;
};

TEST_F(RecordingAlgTest, ForwardsAllOperationsWithTheirArgumentsAndResults) {
  RecordingAlg alg(&library_, file_);
  unsigned char bytes[1000] = {};
  unsigned char answer[52];
  EXPECT_TRUE(alg.SetLogCallback(&host_));
  EXPECT_FALSE(alg.SetLogCallback(nullptr));
  EXPECT_TRUE(alg.SetDataCallback(&host_));
  EXPECT_FALSE(alg.SetDataCallback(nullptr));
  EXPECT_TRUE(alg.Init(2, bytes, 7));
  EXPECT_FALSE(alg.Init(1, nullptr, -3));
  EXPECT_TRUE(alg.SetFilterMode(0, 5, bytes));
  EXPECT_FALSE(alg.SetFilterMode(9, -1, nullptr));
  EXPECT_TRUE(alg.InputStream(0, bytes, 3, 20));
  EXPECT_EQ(alg.GetFixedCode(), 800);
  EXPECT_TRUE(alg.HandleEvent(4, nullptr, answer));
  EXPECT_THAT(
      library_.calls,
      ElementsAre("SetLogCallback 1", "SetLogCallback 0", "SetDataCallback 1", "SetDataCallback 0",
                  "Init 2 1 7", "Init 1 0 -3", "SetFilterMode 0 5 1", "SetFilterMode 9 -1 0",
                  "InputStream 0 1 3 20", "GetFixedCode", "HandleEvent 4 0 1"));
  EXPECT_THAT(answer, testing::Each(0x44));
}

TEST_F(RecordingAlgTest, RecordsWhatWentInAndWhatCameOut) {
  {
    RecordingAlg alg(&library_, file_);
    alg.SetLogCallback(&host_);
    alg.SetDataCallback(&host_);
    std::vector<unsigned char> config(930);
    for (std::size_t i = 0; i < config.size(); ++i) config[i] = static_cast<unsigned char>(i);
    alg.Init(1, config.data(), 5);
    library_.onInputStream = [](ScriptedAlg& library) {
      library.log->Log(3, "alg: first\n");
      library.deliver(77);
      library.log->Log(4, "alg: second\n");
      return false;
    };
    const unsigned char packet[] = {9, 8, 7, 6, 5};
    alg.InputStream(0, packet, 1, 3);
    unsigned char answer[52];
    const std::uint64_t stamp = 0x0102030405060708;
    alg.HandleEvent(2, &stamp, answer);
    alg.GetFixedCode();
  }
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), 6u);
  for (std::size_t i = 0; i < entries.size(); ++i)
    EXPECT_EQ(entries[i].call.index, static_cast<std::int64_t>(i));

  const auto& init = entries[2].call;
  EXPECT_EQ(init.kind, CallKind::kInit);
  EXPECT_EQ(init.type, 1);
  EXPECT_EQ(init.offset, 5);
  ASSERT_EQ(init.payload.size(), 920u);
  EXPECT_EQ(init.payload[0], 5);
  EXPECT_EQ(init.payload[919], 924 % 256);

  const Entry& input = entries[3];
  EXPECT_EQ(input.call.offset, 1);
  EXPECT_EQ(input.call.length, 3);
  EXPECT_EQ(input.call.payload, (Bytes{8, 7, 6}));
  EXPECT_EQ(input.call.returned, 0);
  EXPECT_GE(input.call.durationNs.value(), 0);
  EXPECT_GE(input.call.startNs, init.startNs);
  ASSERT_EQ(input.logs.size(), 2u);
  EXPECT_EQ(input.logs[0].text, "alg: first\n");
  EXPECT_EQ(input.logs[0].level, 3);
  EXPECT_EQ(input.logs[0].step, 0);
  EXPECT_EQ(input.logs[1].step, 2);
  ASSERT_EQ(input.blocks.size(), 1u);
  EXPECT_EQ(input.blocks[0].step, 1);
  EXPECT_EQ(input.blocks[0].block.header, 77u);

  EXPECT_EQ(entries[4].call.payload, (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
  EXPECT_EQ(entries[4].call.output, Bytes(52, 0x42));
  EXPECT_EQ(entries[5].call.returned, 800);

  const RecordingReader reader(file_);
  EXPECT_TRUE(reader.metadata().complete);
  EXPECT_EQ(reader.metadata().clock, "monotonic");
  EXPECT_EQ(reader.metadata().droppedCalls, 0);
  EXPECT_FALSE(reader.metadata().platform.empty());
  ASSERT_EQ(reader.configurations().size(), 1u);
  EXPECT_EQ(reader.configurations()[0].productType, 1);
}

// Buffers end exactly behind what the library reads: reading more shows under the address
// sanitizer, reading less in the recorded bytes.
TEST_F(RecordingAlgTest, ReadsExactlyTheBytesThatTheLibraryReads) {
  struct Case {
    int streamType, length;
    std::size_t bytes;
  };
  const std::vector<Case> cases = {{0, 0, 0},  {0, 5, 5},  {0, -1, 0}, {2, 3, 0},
                                   {2, 4, 4},  {1, 0, 56}, {3, 2, 56}, {4, 99, 56},
                                   {3, -1, 0}, {5, 0, 4},  {6, 8, 0},  {-1, 8, 0}};
  {
    RecordingAlg alg(&library_, file_);
    for (const Case& c : cases) {
      const std::vector<unsigned char> exact(std::max<std::size_t>(c.bytes, 1), 0xAB);
      alg.InputStream(c.streamType, exact.data(), 0, c.length);
    }
  }
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(entries[i].call.payload, Bytes(cases[i].bytes, 0xAB))
        << "stream type " << cases[i].streamType << ", length " << cases[i].length;
}

TEST_F(RecordingAlgTest, ReadsAQuerysInputOnlyWhereTheLibraryDoes) {
  {
    RecordingAlg alg(&library_, file_);
    const std::vector<unsigned char> config(920);
    const std::vector<unsigned char> stamp(8, 1), sample(24, 2), nothing(1, 3);
    unsigned char answer[52];
    alg.HandleEvent(1, nothing.data(), answer);
    alg.HandleEvent(2, stamp.data(), answer);
    alg.HandleEvent(2, stamp.data(), nullptr);
    alg.HandleEvent(16, sample.data(), answer);
    alg.Init(2, config.data(), 0);
    alg.HandleEvent(2, nothing.data(), answer);
    alg.Init(7, config.data(), 0);
    alg.InputStream(3, nothing.data(), 0, 56);
  }
  std::vector<std::size_t> sizes;
  for (const Entry& entry : entriesOf(file_)) sizes.push_back(entry.call.payload.size());
  EXPECT_THAT(sizes, ElementsAre(0, 8, 0, 24, 920, 0, 920, 0));
}

TEST_F(RecordingAlgTest, KeepsTheLengthOfEachKindOfAnswer) {
  {
    RecordingAlg alg(&library_, file_);
    unsigned char answer[52];
    const std::vector<unsigned char> sample(24);
    alg.HandleEvent(16, sample.data(), answer);
    alg.HandleEvent(3, nullptr, nullptr);
    library_.onHandleEvent = [](ScriptedAlg&, int) { return false; };
    alg.HandleEvent(3, nullptr, answer);
  }
  const auto entries = entriesOf(file_);
  EXPECT_EQ(entries[0].call.output, Bytes(48, 0x50));
  EXPECT_TRUE(entries[1].call.output.empty());
  EXPECT_TRUE(entries[2].call.output.empty());
  EXPECT_EQ(entries[2].call.returned, 0);
}

TEST_F(RecordingAlgTest, NotesInWhichCallbackANestedCallWasMade) {
  {
    RecordingAlg alg(&library_, file_);
    alg.SetLogCallback(&host_);
    alg.SetDataCallback(&host_);
    unsigned char answer[52];
    host_.onDeliver = [&](const void*, int, int) { return alg.HandleEvent(3, nullptr, answer); };
    host_.onLog = [&](int, const char*) { return alg.GetFixedCode() == 800; };
    library_.onInputStream = [](ScriptedAlg& library) {
      return library.log->Log(3, "alg: one\n") && library.deliver(1);
    };
    EXPECT_TRUE(alg.InputStream(0, nullptr, 0, 0));
    EXPECT_TRUE(alg.GetFixedCode() == 800);
  }
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), 6u);
  EXPECT_EQ(entries[2].call.kind, CallKind::kInputStream);
  EXPECT_EQ(entries[2].logs.size(), 1u);
  EXPECT_EQ(entries[2].blocks.size(), 1u);
  EXPECT_EQ(entries[3].call.kind, CallKind::kGetFixedCode);
  EXPECT_EQ(entries[3].call.parent, 2);
  EXPECT_EQ(entries[3].call.parentStep, 0);
  EXPECT_EQ(entries[4].call.kind, CallKind::kHandleEvent);
  EXPECT_EQ(entries[4].call.parent, 2);
  EXPECT_EQ(entries[4].call.parentStep, 1);
  EXPECT_FALSE(entries[5].call.parent);
}

TEST_F(RecordingAlgTest, PassesASinksExceptionOnAndRecordsIt) {
  {
    RecordingAlg alg(&library_, file_);
    alg.SetDataCallback(&host_);
    host_.onDeliver = [](const void*, int, int) -> bool { throw std::runtime_error("host"); };
    library_.onInputStream = [](ScriptedAlg& library) { return library.deliver(1); };
    EXPECT_THROW(alg.InputStream(0, nullptr, 0, 0), std::runtime_error);
    EXPECT_EQ(alg.GetFixedCode(), 800);
  }
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_FALSE(entries[1].call.returned);
  ASSERT_EQ(entries[1].blocks.size(), 1u);
  EXPECT_TRUE(entries[1].blocks[0].threw);
  EXPECT_FALSE(entries[2].call.parent);
}

TEST_F(RecordingAlgTest, ClosedInACallbackRecordsTheCallUnderWay) {
  RecordingAlg alg(&library_, file_);
  alg.SetDataCallback(&host_);
  library_.onInputStream = [](ScriptedAlg& library) { return library.deliver(1); };
  host_.onDeliver = [&](const void*, int, int) {
    alg.close();
    return alg.GetFixedCode() == 800;
  };
  alg.InputStream(0, nullptr, 0, 0);
  alg.GetFixedCode();
  EXPECT_EQ(alg.close().written, 3);
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[1].call.returned, 1);
  EXPECT_EQ(entries[1].blocks.size(), 1u);
  EXPECT_EQ(entries[2].call.parent, 1);
  EXPECT_TRUE(RecordingReader(file_).metadata().complete);
}

TEST_F(RecordingAlgTest, HandsOverToTheNextRecordingWithoutLosingASink) {
  int delivered = 0;
  host_.onDeliver = [&](const void*, int, int) { return ++delivered > 0; };
  library_.onInputStream = [](ScriptedAlg& library) { return library.deliver(1); };
  auto first = std::make_unique<RecordingAlg>(&library_, file_);
  first->SetDataCallback(&host_);
  first->InputStream(0, nullptr, 0, 0);
  const std::string nextFile = folder_.path("next.algrec");
  {
    RecordingAlg next(&library_, nextFile);
    next.SetDataCallback(&host_);
    first.reset();
    next.InputStream(0, nullptr, 0, 0);
  }
  library_.deliver(2);
  EXPECT_EQ(delivered, 3);
  EXPECT_EQ(entriesOf(file_).back().blocks.size(), 1u);
  EXPECT_EQ(entriesOf(nextFile).back().blocks.size(), 1u);
}

TEST_F(RecordingAlgTest, OnlyForwardsAfterClose) {
  RecordingAlg alg(&library_, file_);
  alg.GetFixedCode();
  const auto status = alg.close();
  EXPECT_EQ(status.written, 1);
  EXPECT_EQ(status.dropped, 0);
  EXPECT_EQ(status.error, "");
  EXPECT_EQ(alg.GetFixedCode(), 800);
  EXPECT_EQ(library_.calls.size(), 2u);
  EXPECT_EQ(entriesOf(file_).size(), 1u);
}

TEST_F(RecordingAlgTest, RefusesANullObjectAndAnExistingFile) {
  EXPECT_THROW(RecordingAlg(nullptr, file_), std::invalid_argument);
  folder_.write("session.algrec", "precious");
  EXPECT_THROW(RecordingAlg(&library_, file_), recording::RecordingError);
  EXPECT_EQ(std::filesystem::file_size(file_), 8u);
}

TEST_F(RecordingAlgTest, PutsTheCallsOfSeveralThreadsInOneOrder) {
  constexpr int kCalls = 2000;
  {
    recording::RecordingAlgOptions options;
    options.waitWhenFull = true;
    RecordingAlg alg(&library_, file_, options);
    alg.SetDataCallback(&host_);
    std::uint64_t blocks = 0;
    library_.onInputStream = [&](ScriptedAlg& library) { return library.deliver(++blocks); };
    std::thread queries([&] {
      unsigned char answer[52];
      for (int i = 0; i < kCalls; ++i) alg.HandleEvent(3, nullptr, answer);
    });
    for (int i = 0; i < kCalls; ++i) alg.InputStream(0, nullptr, 0, 0);
    queries.join();
  }
  const auto entries = entriesOf(file_);
  ASSERT_EQ(entries.size(), 1u + 2 * kCalls);
  std::uint64_t blocks = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    ASSERT_EQ(entries[i].call.index, static_cast<std::int64_t>(i));
    ASSERT_FALSE(entries[i].call.parent);
    for (const auto& delivered : entries[i].blocks) ASSERT_EQ(delivered.block.header, ++blocks);
    // In one order, no call begins before the one ahead of it has ended.
    if (i > 0) {
      const auto& before = entries[i - 1].call;
      ASSERT_GE(entries[i].call.startNs, before.startNs + before.durationNs.value());
    }
  }
  EXPECT_EQ(blocks, static_cast<std::uint64_t>(kCalls));
}

TEST_F(RecordingAlgTest, HandsOverToAnotherFileWithEveryCallInOneOfThem) {
  {
    RecordingAlg alg(&library_, file_);
    alg.SetDataCallback(&host_);
    alg.continueIn(folder_.path("next.algrec"));
    alg.GetFixedCode();
  }
  EXPECT_EQ(entriesOf(file_).size(), 1u);
  const auto next = entriesOf(folder_.path("next.algrec"));
  ASSERT_EQ(next.size(), 2u);
  EXPECT_EQ(next[0].call.kind, CallKind::kSetDataCallback);
  EXPECT_EQ(next[1].call.index, 1);
}

TEST_F(RecordingAlgTest, ClosingKeepsNoOtherCallWaitingForTheDisk) {
  RecordingAlg alg(&library_, file_);
  recording::Database other(file_, recording::Database::Mode::kReadWrite);
  other.execute("BEGIN IMMEDIATE");
  alg.GetFixedCode();
  std::thread closing([&] { alg.close(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const auto begin = std::chrono::steady_clock::now();
  alg.GetFixedCode();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
  other.execute("ROLLBACK");
  closing.join();
  EXPECT_EQ(alg.status().written, 1);
}

// Every pairing of threads that use the library directly, through the recorder, with sinks set on
// either, and that query from inside a callback: nothing stands still.
TEST(RecordingAlgLocks, NoPairingOfRawAndRecordedCallsStandsStill) {
  const ScratchFolder folder;
  struct Library final : algorithm::AlgBase {
    std::recursive_mutex lock;
    algorithm::DataSink* data = nullptr;
    bool Init(int, const unsigned char*, int) override { return true; }
    bool InputStream(int, const unsigned char*, int, int) override {
      const std::lock_guard<std::recursive_mutex> guard(lock);
      const algorithm::ResultBlock block;
      return data->Deliver(&block, 0, sizeof block);
    }
    bool SetDataCallback(algorithm::DataSink* sink) override {
      data = sink;
      return true;
    }
    bool SetLogCallback(algorithm::LogSink*) override { return true; }
    bool SetFilterMode(int, int, void*) override { return true; }
    int GetFixedCode() override { return 800; }
    bool HandleEvent(int, const void*, void* output) override {
      const std::lock_guard<std::recursive_mutex> guard(lock);
      std::memset(output, 0, 52);
      return true;
    }
  };
  int number = 0;
  for (const bool feedRaw : {false, true})
    for (const bool queryRaw : {false, true})
      for (const bool nestedRaw : {false, true})
        for (const bool sinkRaw : {false, true}) {
          Library library;
          RecordingAlg alg(&library, folder.path(std::to_string(++number)));
          const auto pick = [&](bool raw) -> algorithm::AlgBase& {
            return raw ? static_cast<algorithm::AlgBase&>(library) : alg;
          };
          ScriptedHost host;
          unsigned char nested[52];
          host.onDeliver = [&](const void*, int, int) {
            return pick(nestedRaw).HandleEvent(1, nullptr, nested);
          };
          pick(sinkRaw).SetDataCallback(&host);
          std::atomic<bool> stop{false};
          std::atomic<int> fed{0}, asked{0};
          std::thread feeding([&] {
            while (!stop) {
              fed += pick(feedRaw).InputStream(0, nullptr, 0, 0) ? 1 : 0;
              std::this_thread::sleep_for(std::chrono::microseconds(100));  // a device has a rate
            }
          });
          std::thread asking([&] {
            unsigned char answer[52];
            while (!stop) asked += pick(queryRaw).HandleEvent(1, nullptr, answer) ? 1 : 0;
          });
          // Where only the limit on waiting helps, each of them gets on about once a second.
          const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
          const int want = feedRaw && sinkRaw && !queryRaw && !nestedRaw ? 2 : 20;
          while ((fed < want || asked < want) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
          EXPECT_GE(fed, want) << feedRaw << queryRaw << nestedRaw << sinkRaw;
          EXPECT_GE(asked, want) << feedRaw << queryRaw << nestedRaw << sinkRaw;
          stop = true;
          feeding.join();
          asking.join();
          EXPECT_EQ(alg.close().error, "");
        }
}

}  // namespace
