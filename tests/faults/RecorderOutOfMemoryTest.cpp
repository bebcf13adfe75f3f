// Memory that runs out beside a host that records: the host's calls go on, what was not recorded is
// counted, and the process lives.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <alg_kit/recording/RecordingAlg.h>
#include <tests/faults/FailingAllocations.h>
#include <tests/support/ScratchFolder.h>

namespace {

using recording::RecordingAlg;
using recording::RecordingReader;
using testing_support::FailingAllocation;
using testing_support::NoMemoryElsewhere;

/// Delivers and logs in every packet; allocates nothing.
class StillLibrary final : public algorithm::AlgBase {
 public:
  bool Init(int, const unsigned char*, int) override { return true; }
  bool InputStream(int, const unsigned char*, int, int) override {
    ++packets;
    const algorithm::ResultBlock block;
    return log->Log(4, "alg: a message that is too long for a string's own storage\n") &&
           data->Deliver(&block, 0, sizeof block);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    data = sink;
    return true;
  }
  bool SetLogCallback(algorithm::LogSink* sink) override {
    log = sink;
    return true;
  }
  bool SetFilterMode(int, int, void*) override { return true; }
  int GetFixedCode() override { return 800; }
  bool HandleEvent(int, const void*, void*) override { return true; }

  int packets = 0;
  algorithm::DataSink* data = nullptr;
  algorithm::LogSink* log = nullptr;
};

struct QuietHost : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void*, int, int) override { return ++blocks > 0; }
  bool Log(int, const char*) override { return ++messages > 0; }
  int blocks = 0, messages = 0;
};

TEST(RecorderOutOfMemory, NeverReachesTheHostsCallAndCountsTheCall) {
  const ScratchFolder folder;
  const unsigned char packet[600] = {};  // more than a recorder has room for beforehand
  int failures = 0;
  for (bool struck = true; struck; ++failures) {
    StillLibrary library;
    QuietHost host;
    const std::string file = folder.path(std::to_string(failures));
    RecordingAlg alg(&library, file);
    alg.SetLogCallback(&host);
    alg.SetDataCallback(&host);
    {
      const FailingAllocation failure(failures);
      ASSERT_TRUE(alg.InputStream(0, packet, 0, sizeof packet));
      struck = failure.struck();
    }
    EXPECT_EQ(library.packets, 1);
    EXPECT_EQ(host.blocks, 1);
    EXPECT_EQ(host.messages, 1);
    const auto status = alg.close();
    EXPECT_EQ(status.dropped, struck ? 1 : 0);
    EXPECT_EQ(status.written, struck ? 2 : 3);
    EXPECT_EQ(RecordingReader(file).metadata().droppedCalls, status.dropped);
  }
  EXPECT_GT(failures, 3);  // the bytes and the message at least
}

TEST(RecorderOutOfMemory, InTheWriterIsAnErrorInTheStatusAndNotTheHostsEnd) {
  const ScratchFolder folder;
  const std::string file = folder.path("a.algrec");
  recording::Recorder recorder(file);
  session::Unit unit;
  unit.entries.resize(1);
  unit.used = 1;
  {
    const NoMemoryElsewhere none;
    std::filesystem::remove(file);  // gives the writer something to say, for which it has no memory
    recorder.append(unit);
    for (int i = 0; i < 2000 && recorder.status().dropped == 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(recorder.status().error, "out of memory while writing");
  EXPECT_EQ(recorder.close().dropped, 1);
}

}  // namespace
