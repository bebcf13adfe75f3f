#include <alg_kit/view/WindowAnswers.h>

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/view/Downloads.h>
#include <sim/Simulator.h>
#include <tests/support/ScratchFolder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

namespace view {
namespace {

using nlohmann::json;

constexpr int kProduct = 2;
constexpr int kPackets = 120;

/// Packets of a simulated device that reach the library, and every call of the host, in a file.
class Host {
 public:
  explicit Host(const std::string& path)
      : device_(rig::builtInRig(), sim::Scene::moving(kProduct)),
        alg_(std::make_unique<recording::RecordingAlg>(algorithm::AlgFactory::CreateALG(0), path,
                                                       options())) {
    alg_->SetDataCallback(&sink_);
    alg_->Init(kProduct, reinterpret_cast<const unsigned char*>(&device_.rig().calibration), 0);
  }

  void feed(int packets) {
    for (int n = 0; n < packets; ++n, ++fed_) {
      const sim::Frame frame = device_.frame(fed_);
      alg_->InputStream(device_.streamType(), frame.payload.data(), 0,
                        static_cast<int>(frame.payload.size()));
      algorithm::PoseAnswer answer;
      alg_->HandleEvent(0, nullptr, &answer);
    }
  }

  void close() { alg_.reset(); }

  const algorithm::ResultBlock& latest() const { return sink_.block; }

 private:
  struct Sink : algorithm::DataSink {
    algorithm::ResultBlock block;
    bool Deliver(const void* buffer, int, int) override {
      block = *static_cast<const algorithm::ResultBlock*>(buffer);
      return true;
    }
  };

  static recording::RecordingAlgOptions options() {
    recording::RecordingAlgOptions options;
    options.commitInterval = std::chrono::milliseconds(5);
    return options;
  }

  sim::Simulator device_;
  Sink sink_;
  int fed_ = 0;
  std::unique_ptr<recording::RecordingAlg> alg_;
};

class WindowAnswersTest : public testing::Test {
 protected:
  json ask(json question) const {
    question["id"] = 7;
    const json answer = json::parse(answers_.answer(question.dump()));
    EXPECT_EQ(answer.value("id", -1), 7);
    return answer;
  }

  void watch(const std::string& path) { watchers_.push_back(std::make_unique<Watcher>(path)); }

  void waitFor(Watcher::State state, std::int64_t frames) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const Watcher& watcher = *watchers_.front();
    while (watcher.status().state != state || watcher.log().size() < frames) {
      ASSERT_LT(std::chrono::steady_clock::now(), end)
          << keyOf(watcher.status().state) << " " << watcher.status().problem;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  ScratchFolder folder_;
  Watchers watchers_;
  WindowAnswers answers_{watchers_};
};

TEST_F(WindowAnswersTest, FollowsAFileFromBeforeItExistsToItsEnd) {
  const std::string path = folder_.path("live.algrec");
  watch(path);
  waitFor(Watcher::State::kAbsent, 0);
  Host host(path);
  host.feed(kPackets / 2);
  waitFor(Watcher::State::kLive, kPackets / 2);
  host.feed(kPackets / 2);
  waitFor(Watcher::State::kLive, kPackets);
  // The newest packet is here although nothing came behind it.
  const json frame =
      ask({{"op", "frames"}, {"from", kPackets - 1}, {"to", kPackets - 1}})["frames"][0];
  EXPECT_EQ(frame["frame"], kPackets - 1);
  for (int object = 0; object < 6; ++object) {
    const algorithm::TrackedPoint& record = host.latest().records[object];
    ASSERT_EQ(record.id, object);
    const json& place = frame["objects"][static_cast<std::size_t>(object)]["raw"];
    EXPECT_NEAR(place[0].get<double>(), record.x, 1e-4);
    EXPECT_NEAR(place[1].get<double>(), record.y, 1e-4);
    EXPECT_NEAR(place[2].get<double>(), record.z, 1e-4);
  }
  host.close();
  waitFor(Watcher::State::kEnded, kPackets);
}

TEST_F(WindowAnswersTest, AFileThatIsFollowedAndTheSameFileReadLaterGiveTheSameFrames) {
  const std::string path = folder_.path("live.algrec");
  watch(path);
  Host host(path);
  host.feed(kPackets);
  host.close();
  waitFor(Watcher::State::kEnded, kPackets);
  // Estimates apart: what is under way does not know yet how fast its packets come.
  const auto frames = [&] {
    json list = ask({{"op", "frames"}, {"from", 0}, {"to", kPackets}})["frames"];
    for (json& frame : list)
      for (json& object : frame["objects"])
        for (const char* key : {"estimated", "sd", "velocity"}) object.erase(key);
    return list;
  };
  const json followed = frames();
  watchers_.clear();
  watch(path);
  waitFor(Watcher::State::kEnded, kPackets);
  EXPECT_EQ(followed.size(), static_cast<std::size_t>(kPackets));
  EXPECT_EQ(followed, frames());
}

TEST_F(WindowAnswersTest, WhatIsNoQuestionIsRefusedInOneLine) {
  const std::string path = folder_.path("a.algrec");
  Host host(path);
  host.feed(5);
  host.close();
  watch(path);
  waitFor(Watcher::State::kEnded, 5);
  for (const char* question :
       {"", "{", "[]", "7", "null", "{\"op\":7}", "{\"op\":\"nonsense\"}", "{\"op\":\"at\"}",
        "{\"op\":\"at\",\"t\":\"1\"}", "{\"op\":\"at\",\"t\":1e300}",
        "{\"op\":\"about\",\"file\":1}", "{\"op\":\"about\",\"file\":-1}",
        "{\"op\":\"ray\",\"frame\":5,\"blob\":0}", "{\"op\":\"ray\",\"frame\":0,\"blob\":4000}",
        "{\"op\":\"frames\",\"from\":-1,\"to\":3}",
        "{\"op\":\"series\",\"from\":0,\"to\":1,\"columns\":1000000}",
        "{\"op\":\"gap\",\"frame\":0,\"object\":99}", "{\"op\":\"about\",\"id\":{}}"}) {
    const json answer = json::parse(answers_.answer(question));
    ASSERT_TRUE(answer.contains("error")) << question << " " << answer.dump();
    EXPECT_EQ(answer["error"].get<std::string>().find('\n'), std::string::npos);
  }
}

TEST_F(WindowAnswersTest, ATimeIsAnsweredWithItsPacketAtOnce) {
  const std::string path = folder_.path("a.algrec");
  Host host(path);
  host.feed(20);
  host.close();
  watch(path);
  waitFor(Watcher::State::kEnded, 20);
  const json frame = ask({{"op", "frames"}, {"from", 12}, {"to", 12}})["frames"][0];
  const json at = ask({{"op", "at"}, {"t", frame["t"]}});
  EXPECT_EQ(at["frame"], 12);
  EXPECT_EQ(at["frames"], json::array({frame}));
}

TEST_F(WindowAnswersTest, AnAnswerHasNoMoreThanItsLimit) {
  const std::string path = folder_.path("a.algrec");
  Host host(path);
  host.feed(500);
  host.close();
  watch(path);
  waitFor(Watcher::State::kEnded, 500);
  EXPECT_EQ(ask({{"op", "frames"}, {"from", 0}, {"to", 1000000}})["frames"].size(),
            static_cast<std::size_t>(kMostFrames));
  const json series = ask({{"op", "series"}, {"from", 0}, {"to", 1e6}, {"columns", 100}})["series"];
  EXPECT_LE(series["times"].size(), 100u);
  EXPECT_EQ(series["frames_each"], 8);
}

TEST_F(WindowAnswersTest, ATableHasALineForEveryObjectOfEveryPacketInTheRange) {
  const std::string path = folder_.path("a.algrec");
  Host host(path);
  host.feed(kPackets);
  host.close();
  watch(path);
  waitFor(Watcher::State::kEnded, kPackets);
  const std::string table = csvOf(watchers_[0]->log(), -1, 1e6);
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1 + 6 * kPackets);
}

TEST_F(WindowAnswersTest, AFileThatIsNoRecordingIsSaidToBeNone) {
  watch(folder_.write("text.algrec", "not a recording"));
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (watchers_[0]->status().state != Watcher::State::kFailed) {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const json about = ask({{"op", "about"}});
  EXPECT_EQ(about["files"][0]["state"], "failed");
  EXPECT_NE(about["files"][0]["problem"].get<std::string>().find("expected a recording"),
            std::string::npos);
}

}  // namespace
}  // namespace view
